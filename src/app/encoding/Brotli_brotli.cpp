#include "app/encoding/Brotli.h"

#include "app/kernel/Throw.h"

#include <brotli/encode.h>

#include <cstddef>
#include <cstdint>

namespace vireo::impl {

namespace {

/// A window of 512 KiB: a stream is to cost little more than that.
constexpr std::uint32_t WindowBits = 19;

class BrotliEncoder final : public BodyEncoder {
public:
    explicit BrotliEncoder(int level) : state_(BrotliEncoderCreateInstance(nullptr, nullptr, nullptr)) {
        if (!state_) {
            throwNoMemory();
        }
        BrotliEncoderSetParameter(state_, BROTLI_PARAM_QUALITY, static_cast<std::uint32_t>(level));
        BrotliEncoderSetParameter(state_, BROTLI_PARAM_LGWIN, WindowBits);
    }
    ~BrotliEncoder() override { BrotliEncoderDestroyInstance(state_); }

    std::string_view coding() const override { return "br"; }

    std::optional<std::string> whole(std::string_view body) override {
        std::string out;
        run(body, BROTLI_OPERATION_FINISH, out);
        if (out.size() >= body.size()) {
            return std::nullopt;
        }
        return out;
    }

    void piece(std::string_view bytes, bool flush, std::string& out) override {
        run(bytes, flush ? BROTLI_OPERATION_FLUSH : BROTLI_OPERATION_PROCESS, out);
    }

    void end(std::string& out) override { run({}, BROTLI_OPERATION_FINISH, out); }

private:
    void run(std::string_view bytes, BrotliEncoderOperation operation, std::string& out) {
        std::size_t left = bytes.size();
        const auto* next = reinterpret_cast<const std::uint8_t*>(bytes.data());
        do {
            std::size_t noRoom = 0;
            if (BrotliEncoderCompressStream(state_, operation, &left, &next, &noRoom, nullptr, nullptr) ==
                BROTLI_FALSE) {
                throwNoMemory();
            }
            takeOutput(out);
        } while (left > 0 || BrotliEncoderHasMoreOutput(state_) == BROTLI_TRUE);
    }

    void takeOutput(std::string& out) {
        while (BrotliEncoderHasMoreOutput(state_) == BROTLI_TRUE) {
            std::size_t size = 0; // as much as there is
            const std::uint8_t* bytes = BrotliEncoderTakeOutput(state_, &size);
            out.append(reinterpret_cast<const char*>(bytes), size);
        }
    }

    BrotliEncoderState* const state_;
};

} // namespace

bool hasBrotli() {
    return true;
}

std::unique_ptr<BodyEncoder> makeBrotliEncoder(int level) {
    return std::make_unique<BrotliEncoder>(level);
}

} // namespace vireo::impl
