#include "app/middleware/Base64Text.h"

#include "vireo/support/Base64.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace vireo::impl {

namespace {

constexpr std::string_view LettersAndDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr std::size_t UnitCharacters = 4;

/// @param last two characters of the alphabet.
/// @param text without padding.
std::optional<std::string> decode(std::string_view text, std::string_view last) {
    if (text.size() % UnitCharacters == 1) {
        return std::nullopt;
    }
    std::string bytes;
    bytes.reserve(text.size() / UnitCharacters * 3 + 2);
    unsigned int bits = 0;
    unsigned int count = 0;
    for (const char c : text) {
        std::size_t value = LettersAndDigits.find(c);
        if (value == std::string_view::npos) {
            value = last.find(c);
            if (value == std::string_view::npos) {
                return std::nullopt;
            }
            value += LettersAndDigits.size();
        }
        bits = (bits << 6U | static_cast<unsigned int>(value)) & 0xFFFFU;
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFFU);
        }
    }
    const unsigned int rest = bits & ((1U << count) - 1);
    return rest == 0 ? std::optional<std::string>(std::move(bytes)) : std::nullopt;
}

} // namespace

std::string encodeBase64Url(std::string_view bytes) {
    std::string text;
    ql::base64Encode(bytes.data(), bytes.size(), text, ql::Base64CharSet::Standard);
    text.erase((std::min)(text.find('='), text.size()));
    std::ranges::replace(text, '+', '-');
    std::ranges::replace(text, '/', '_');
    return text;
}

std::optional<std::string> decodeBase64Url(std::string_view text) {
    return decode(text, "-_");
}

std::optional<std::string> decodeBase64(std::string_view text) {
    const std::string_view plain = text.substr(0, text.find('='));
    if (plain.size() != text.size()) {
        const std::string_view padding = text.substr(plain.size());
        if (text.size() % UnitCharacters != 0 || padding.size() > 2 ||
            padding.find_first_not_of('=') != std::string_view::npos) {
            return std::nullopt;
        }
    }
    return decode(plain, "+/");
}

} // namespace vireo::impl
