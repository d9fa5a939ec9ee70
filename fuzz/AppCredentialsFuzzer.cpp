// Base64, passwords and tokens of the header Authorization, and signed texts, beside a reading bit by bit.
//
// An input is a byte, what it is, and a text.

#include "Check.h"
#include "ModelText.h"
#include "app/middleware/Base64Text.h"
#include "app/middleware/Credentials.h"
#include "vireo/app/Session.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace vireofuzz;

constexpr std::string_view Common = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

/// The bytes of base64 without its padding; none where bits are left over that are not zero, or too many.
std::optional<std::string> bytesOf(std::string_view text, std::string_view lastTwo) {
    const std::string alphabet = std::string(Common) + std::string(lastTwo);
    std::string bytes;
    unsigned int bits = 0;
    int count = 0;
    for (const char c : text) {
        const std::size_t value = alphabet.find(c);
        if (value == std::string::npos) {
            return std::nullopt;
        }
        bits = bits << 6U | static_cast<unsigned int>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> static_cast<unsigned int>(count) & 0xFFU);
            bits &= (1U << static_cast<unsigned int>(count)) - 1;
        }
    }
    return count < 6 && bits == 0 ? std::optional(bytes) : std::nullopt;
}

std::optional<std::string> bytesWithPadding(std::string_view text) {
    const std::size_t end = text.find('=');
    const std::string_view padding = text.substr(std::min(end, text.size()));
    if (!padding.empty() &&
        (padding.size() > 2 || padding.find_first_not_of('=') != std::string_view::npos || text.size() % 4 != 0)) {
        return std::nullopt;
    }
    return bytesOf(text.substr(0, end), "+/");
}

bool isControl(char c) {
    return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7F';
}

/// What stands behind the word and a blank.
std::optional<std::string_view> behind(std::string_view header, std::string_view word) {
    if (header.size() <= word.size() || header[word.size()] != ' ') {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < word.size(); ++i) {
        if ((header[i] | 0x20) != (word[i] | 0x20)) {
            return std::nullopt;
        }
    }
    return trimmed(header.substr(word.size()));
}

void checkBasic(std::string_view header) {
    const std::optional<vireo::impl::BasicCredentials> parsed = vireo::impl::parseBasic(header);
    const std::optional<std::string_view> text = behind(header, "Basic");
    const std::optional<std::string> plain = text ? bytesWithPadding(*text) : std::nullopt;
    bool isExpected = plain && plain->find(':') != std::string::npos;
    for (const char c : plain.value_or("")) {
        isExpected = isExpected && !isControl(c);
    }
    check(parsed.has_value() == isExpected, "a name and a password, or none");
    if (parsed) {
        check(parsed->user + ":" + parsed->password == *plain, "another name or password");
        check(parsed->user.find(':') == std::string::npos, "a name with a colon");
    }
}

void checkBearer(std::string_view header) {
    const std::optional<std::string_view> parsed = vireo::impl::parseBearer(header);
    const std::optional<std::string_view> text = behind(header, "Bearer");
    const bool isExpected = text && !text->empty() && text->find_first_of(" \t,") == std::string_view::npos;
    check(parsed.has_value() == isExpected, "a token, or none");
    check(!parsed || *parsed == *text, "another token");
}

/// Only what was signed for the same purpose is taken, whatever is changed of it.
void checkSigned(const std::string& text) {
    static const vireo::SignedText Signer({std::string(32, 'k')});
    const std::string purpose = text.substr(0, text.size() / 4);
    const std::string signedText = Signer.sign(text, purpose);
    check(Signer.verify(signedText, purpose) == text, "what was signed is not taken");
    check(!Signer.verify(signedText, purpose + "x"), "what was signed for something else is taken");
    std::string changed = signedText;
    char& letter = changed[text.empty() ? 0 : static_cast<unsigned char>(text[0]) % changed.size()];
    letter = letter == 'A' ? 'B' : 'A';
    check(!Signer.verify(changed, purpose), "what was changed is taken");
    check(!Signer.verify(text, purpose), "what was never signed is taken");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 5) {
    case 0:
        check(vireo::impl::decodeBase64(text) == bytesWithPadding(text), "other bytes of base64");
        break;
    case 1: {
        const std::optional<std::string> bytes = vireo::impl::decodeBase64Url(text);
        check(bytes == bytesOf(text, "-_"), "other bytes of base64url");
        check(!bytes || vireo::impl::encodeBase64Url(*bytes) == text, "bytes have two texts");
        check(vireo::impl::decodeBase64Url(vireo::impl::encodeBase64Url(text)) == text, "bytes do not come back");
        break;
    }
    case 2:
        checkBasic(text);
        break;
    case 3:
        checkBearer(text);
        break;
    default:
        checkSigned(text);
    }
    return 0;
}
