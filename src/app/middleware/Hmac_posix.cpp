#include "app/kernel/Throw.h"
#include "app/middleware/Hmac.h"

#include <array>
#include <limits>

#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace vireo::impl {

std::string hmacSha256(std::string_view key, std::string_view text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    const bool fits = key.size() <= static_cast<std::size_t>((std::numeric_limits<int>::max)());
    if (!fits ||
        HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
             reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data(), &length) == nullptr) {
        throwRuntimeError("the HMAC could not be computed");
    }
    return {digest.begin(), digest.begin() + length};
}

} // namespace vireo::impl
