#include "vireo/support/HashHelper.h"

#include <WindowsHeaders.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

#include <bcrypt.h>

namespace ql {
namespace {

/// The longest digest on offer, in bytes.
constexpr ULONG MaxDigestLength = 64;

struct DigestChoice {
    LPCWSTR algorithm;
    ULONG length;
};

DigestChoice findDigest(HashType type) {
    switch (type) {
    case HashType::Sha512:
        return {BCRYPT_SHA512_ALGORITHM, 64};
    case HashType::Sha256:
        return {BCRYPT_SHA256_ALGORITHM, 32};
    case HashType::Sha1:
        return {BCRYPT_SHA1_ALGORITHM, 20};
    }
    throw std::runtime_error("unknown digest");
}

void require(NTSTATUS status) {
    if (!BCRYPT_SUCCESS(status)) {
        throw std::runtime_error("the digest could not be computed");
    }
}

struct ProviderCloser {
    void operator()(void* provider) const { BCryptCloseAlgorithmProvider(provider, 0); }
};

struct HashDestroyer {
    void operator()(void* hash) const { BCryptDestroyHash(hash); }
};

using ProviderHandle = std::unique_ptr<void, ProviderCloser>;
using HashHandle = std::unique_ptr<void, HashDestroyer>;

ProviderHandle openProvider(LPCWSTR algorithm) {
    BCRYPT_ALG_HANDLE provider = nullptr;
    require(BCryptOpenAlgorithmProvider(&provider, algorithm, nullptr, 0));
    return ProviderHandle(provider);
}

HashHandle createHash(const ProviderHandle& provider) {
    BCRYPT_HASH_HANDLE hash = nullptr;
    require(BCryptCreateHash(provider.get(), &hash, nullptr, 0, nullptr, 0, 0));
    return HashHandle(hash);
}

void add(const HashHandle& hash, const char* in, std::uint64_t inLength) {
    // The interface takes its input as non-const, though it only reads it.
    auto* bytes = reinterpret_cast<PUCHAR>(const_cast<char*>(in));
    while (inLength > 0) {
        const ULONG piece = static_cast<ULONG>(std::min<std::uint64_t>(inLength, std::numeric_limits<ULONG>::max()));
        require(BCryptHashData(hash.get(), bytes, piece, 0));
        bytes += piece;
        inLength -= piece;
    }
}

void finishInto(const HashHandle& hash, ULONG digestLength, char* out, std::uint64_t outLength) {
    UCHAR digest[MaxDigestLength];
    require(BCryptFinishHash(hash.get(), digest, digestLength, 0));
    const std::uint64_t length = std::min<std::uint64_t>(outLength, digestLength);
    if (length > 0) {
        std::memcpy(out, digest, static_cast<std::size_t>(length));
    }
}

} // namespace

struct HashHelper::Native {
    explicit Native(HashType type)
        : choice(findDigest(type)), provider(openProvider(choice.algorithm)), hash(createHash(provider)) {}

    DigestChoice choice;
    ProviderHandle provider;
    /// Goes before the provider it comes from.
    HashHandle hash;
};

HashHelper::HashHelper(HashType type) : native_(std::make_unique<Native>(type)) {}

HashHelper::~HashHelper() = default;

std::uint64_t HashHelper::getDigestLength() const {
    return native_->choice.length;
}

void HashHelper::hash(const char* in, std::uint64_t inLength, char* out, std::uint64_t outLength) {
    const HashHandle alone = createHash(native_->provider);
    add(alone, in, inLength);
    finishInto(alone, native_->choice.length, out, outLength);
}

void HashHelper::addData(const char* in, std::uint64_t inLength) {
    add(native_->hash, in, inLength);
}

void HashHelper::finish(char* out, std::uint64_t outLength) {
    HashHandle next = createHash(native_->provider);
    finishInto(native_->hash, native_->choice.length, out, outLength);
    native_->hash = std::move(next);
}

} // namespace ql
