#include "vireo/support/Base64.h"

#include <cstddef>

namespace ql {
namespace {

constexpr char StandardAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

bool base64Encode(const char* data, std::uint64_t size, std::string& out, Base64CharSet charSet) {
    std::string text;
    if (charSet != Base64CharSet::Standard) {
        out.clear();
        return false;
    }
    text.reserve(static_cast<std::size_t>((size / 3 + 1) * 4));
    for (std::uint64_t at = 0; at < size; at += 3) {
        const std::uint64_t inGroup = size - at < 3 ? size - at : 3;
        std::uint32_t group = 0;
        for (std::uint64_t i = 0; i < 3; ++i) {
            group = group << 8U | (i < inGroup ? static_cast<unsigned char>(data[at + i]) : 0U);
        }
        for (std::uint64_t i = 0; i < 4; ++i) {
            const std::uint32_t sextet = group >> (18U - 6U * i) & 0x3FU;
            text.push_back(i <= inGroup ? StandardAlphabet[sextet] : '=');
        }
    }
    // Swapped in last, so that `data` may be the bytes of `out`.
    out.swap(text);
    return true;
}

} // namespace ql
