#include "vireo/support/qlRandomUtils.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include <openssl/rand.h>

void qlRandomUtils::Rand(char* out, std::uint64_t size) {
    while (size > 0) {
        const int piece = static_cast<int>(std::min<std::uint64_t>(size, std::numeric_limits<int>::max()));
        if (RAND_bytes(reinterpret_cast<unsigned char*>(out), piece) != 1) {
            throw std::runtime_error("the system has no random bytes to give");
        }
        out += piece;
        size -= static_cast<std::uint64_t>(piece);
    }
}
