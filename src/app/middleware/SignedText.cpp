#include "app/middleware/Base64Text.h"
#include "app/middleware/Hmac.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/Authentication.h"
#include "vireo/app/Session.h"
#include "vireo/support/qlRandomUtils.h"

#include <utility>

namespace vireo {

namespace {

constexpr std::size_t MinKeyBytes = 32;

/// The purpose's length stands before both, so that no other pair has the same bytes.
std::string signatureOf(const std::string& key, std::string_view text, std::string_view purpose) {
    std::string all = std::to_string(purpose.size()) + ":";
    all += purpose;
    all += text;
    return impl::hmacSha256(key, all);
}

} // namespace

std::string newKey() {
    std::string bytes(MinKeyBytes, '\0');
    qlRandomUtils::Rand(bytes.data(), bytes.size());
    return impl::encodeBase64Url(bytes);
}

SignedText::SignedText(std::vector<std::string> keys) {
    if (keys.empty()) {
        ql::impl::throwInvalidArgument("signing takes a key");
    }
    for (const std::string& key : keys) {
        if (key.size() < MinKeyBytes) {
            ql::impl::throwInvalidArgument("a key has 32 bytes at least: vireo::newKey() makes one");
        }
    }
    keys_ = std::make_unique<const std::vector<std::string>>(std::move(keys));
}

SignedText::SignedText(const SignedText& other) : SignedText(*other.keys_) {}
SignedText::~SignedText() = default;

SignedText& SignedText::operator=(const SignedText& other) {
    keys_ = std::make_unique<const std::vector<std::string>>(*other.keys_);
    return *this;
}

std::string SignedText::sign(std::string_view text, std::string_view purpose) const {
    return impl::encodeBase64Url(std::string(text) + signatureOf(keys_->front(), text, purpose));
}

std::optional<std::string> SignedText::verify(std::string_view signedText, std::string_view purpose) const {
    std::optional<std::string> bytes = impl::decodeBase64Url(signedText);
    if (!bytes || bytes->size() < impl::HmacBytes) {
        return std::nullopt;
    }
    const std::string signature = bytes->substr(bytes->size() - impl::HmacBytes);
    bytes->resize(bytes->size() - impl::HmacBytes);
    for (const std::string& key : *keys_) {
        if (isSameText(signature, signatureOf(key, *bytes, purpose))) {
            return bytes;
        }
    }
    return std::nullopt;
}

} // namespace vireo
