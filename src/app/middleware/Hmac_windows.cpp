#include "app/kernel/Throw.h"
#include "app/middleware/Hmac.h"

#include <windows.h>

#include <bcrypt.h>

#include <limits>
#include <memory>

namespace vireo::impl {

namespace {

struct ProviderCloser {
    void operator()(void* provider) const { BCryptCloseAlgorithmProvider(provider, 0); }
};

struct HashDestroyer {
    void operator()(void* hash) const { BCryptDestroyHash(hash); }
};

void require(bool isDone) {
    if (!isDone) {
        throwRuntimeError("the HMAC could not be computed");
    }
}

ULONG lengthOf(std::string_view text) {
    require(text.size() <= (std::numeric_limits<ULONG>::max)());
    return static_cast<ULONG>(text.size());
}

/// The interface takes its input as non-const, though it only reads it.
PUCHAR bytesOf(std::string_view text) {
    return reinterpret_cast<PUCHAR>(const_cast<char*>(text.data()));
}

} // namespace

std::string hmacSha256(std::string_view key, std::string_view text) {
    BCRYPT_ALG_HANDLE provider = nullptr;
    require(BCRYPT_SUCCESS(
        BCryptOpenAlgorithmProvider(&provider, BCRYPT_SHA256_ALGORITHM, nullptr, BCRYPT_ALG_HANDLE_HMAC_FLAG)));
    const std::unique_ptr<void, ProviderCloser> ownProvider(provider);
    BCRYPT_HASH_HANDLE hash = nullptr;
    require(BCRYPT_SUCCESS(BCryptCreateHash(provider, &hash, nullptr, 0, bytesOf(key), lengthOf(key), 0)));
    const std::unique_ptr<void, HashDestroyer> ownHash(hash);
    require(BCRYPT_SUCCESS(BCryptHashData(hash, bytesOf(text), lengthOf(text), 0)));
    std::string digest(HmacBytes, '\0');
    require(BCRYPT_SUCCESS(BCryptFinishHash(hash, bytesOf(digest), static_cast<ULONG>(digest.size()), 0)));
    return digest;
}

} // namespace vireo::impl
