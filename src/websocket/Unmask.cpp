#include "websocket/Unmask.h"

#include <cstdint>
#include <cstring>

namespace ql::impl {

namespace {

constexpr std::size_t StrideWords = 8;
constexpr std::size_t StrideBytes = StrideWords * sizeof(std::uint64_t);

} // namespace

void unmask(unsigned char* out, const unsigned char* in, std::size_t count, const unsigned char* maskKey,
            std::size_t phase) {
    // The key as seen from the first byte. All later steps are multiples of 4 long, so it fits each of them.
    unsigned char key[sizeof(std::uint64_t)];
    for (std::size_t i = 0; i < sizeof key; ++i) {
        key[i] = maskKey[(phase + i) % 4];
    }
    std::uint64_t keyWord = 0;
    std::memcpy(&keyWord, key, sizeof keyWord);

    // Copies in and out of a local array leave the compiler free to use its widest registers, whatever the alignment.
    std::size_t done = 0;
    for (; count - done >= StrideBytes; done += StrideBytes) {
        std::uint64_t words[StrideWords];
        std::memcpy(words, in + done, StrideBytes);
        for (std::uint64_t& word : words) {
            word ^= keyWord;
        }
        std::memcpy(out + done, words, StrideBytes);
    }
    for (; done < count; ++done) {
        out[done] = static_cast<unsigned char>(in[done] ^ key[done % 4]);
    }
}

} // namespace ql::impl
