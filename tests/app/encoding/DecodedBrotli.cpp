#include "app/encoding/Decoded.h"

#include <brotli/decode.h>

#include <array>
#include <cstdint>
#include <stdexcept>

namespace encodingtest {

std::string decodedBrotli(std::string_view body, bool* isWhole) {
    BrotliDecoderState* const state = BrotliDecoderCreateInstance(nullptr, nullptr, nullptr);
    std::size_t left = body.size();
    const auto* next = reinterpret_cast<const std::uint8_t*>(body.data());
    std::string text;
    BrotliDecoderResult result = BROTLI_DECODER_RESULT_NEEDS_MORE_OUTPUT;
    while (result == BROTLI_DECODER_RESULT_NEEDS_MORE_OUTPUT || BrotliDecoderHasMoreOutput(state) == BROTLI_TRUE) {
        std::array<std::uint8_t, 4096> room;
        std::size_t free = room.size();
        std::uint8_t* to = room.data();
        result = BrotliDecoderDecompressStream(state, &left, &next, &free, &to, nullptr);
        text.append(reinterpret_cast<const char*>(room.data()), room.size() - free);
    }
    BrotliDecoderDestroyInstance(state);
    if (result == BROTLI_DECODER_RESULT_ERROR) {
        throw std::runtime_error("no Brotli");
    }
    if (isWhole) {
        *isWhole = result == BROTLI_DECODER_RESULT_SUCCESS && left == 0;
    }
    return text;
}

} // namespace encodingtest
