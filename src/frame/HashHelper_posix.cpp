#include "vireo/support/HashHelper.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <openssl/evp.h>

namespace ql {
namespace {

const EVP_MD* findDigest(HashType type) {
    switch (type) {
    case HashType::Sha512:
        return EVP_sha512();
    case HashType::Sha256:
        return EVP_sha256();
    case HashType::Sha1:
        return EVP_sha1();
    }
    throw std::runtime_error("unknown digest");
}

void require(int opensslResult) {
    if (opensslResult != 1) {
        throw std::runtime_error("the digest could not be computed");
    }
}

void copyDigest(const unsigned char* digest, unsigned int digestLength, char* out, std::uint64_t outLength) {
    const std::uint64_t length = std::min<std::uint64_t>(outLength, digestLength);
    if (length > 0) {
        std::memcpy(out, digest, static_cast<std::size_t>(length));
    }
}

struct ContextDeleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

} // namespace

struct HashHelper::Native {
    explicit Native(HashType type) : digest(findDigest(type)), context(EVP_MD_CTX_new()) {
        if (!context) {
            throw std::runtime_error("no memory for the digest");
        }
        start();
    }

    void start() const { require(EVP_DigestInit_ex(context.get(), digest, nullptr)); }

    const EVP_MD* digest;
    std::unique_ptr<EVP_MD_CTX, ContextDeleter> context;
};

HashHelper::HashHelper(HashType type) : native_(std::make_unique<Native>(type)) {}

HashHelper::~HashHelper() = default;

std::uint64_t HashHelper::getDigestLength() const {
    return static_cast<std::uint64_t>(EVP_MD_get_size(native_->digest));
}

void HashHelper::hash(const char* in, std::uint64_t inLength, char* out, std::uint64_t outLength) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    require(EVP_Digest(in, static_cast<std::size_t>(inLength), digest, &digestLength, native_->digest, nullptr));
    copyDigest(digest, digestLength, out, outLength);
}

void HashHelper::addData(const char* in, std::uint64_t inLength) {
    require(EVP_DigestUpdate(native_->context.get(), in, static_cast<std::size_t>(inLength)));
}

void HashHelper::finish(char* out, std::uint64_t outLength) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    require(EVP_DigestFinal_ex(native_->context.get(), digest, &digestLength));
    native_->start();
    copyDigest(digest, digestLength, out, outLength);
}

} // namespace ql
