#include "skeleton/Digest.h"

#include <cstddef>
#include <vector>

namespace skeleton {

std::string hexadecimalDigest(ql::HashHelper& hash) {
    std::vector<char> digest(static_cast<std::size_t>(hash.getDigestLength()));
    hash.finish(digest.data(), digest.size());
    std::string text;
    for (const char byte : digest) {
        const auto value = static_cast<unsigned char>(byte);
        text += "0123456789abcdef"[value >> 4U];
        text += "0123456789abcdef"[value & 0x0FU];
    }
    return text;
}

} // namespace skeleton
