#include "frame/HttpSyntax.h"

#include <algorithm>
#include <charconv>

namespace ql::impl {

namespace {

constexpr std::string_view Blanks = " \t";

bool isLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isTokenCharacter(char c) {
    return isLetterOrDigit(c) || std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

bool isToken(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, isTokenCharacter);
}

bool isFieldValue(std::string_view text) {
    return std::ranges::none_of(text, [](char c) { return isControl(c) && c != '\t'; });
}

std::string_view withoutBlanks(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(Blanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(Blanks) - begin + 1);
}

bool isSameWord(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, {}, lowered, lowered);
}

bool isCookieValue(std::string_view text) {
    if (text.size() > 1 && text.front() == '"' && text.back() == '"') {
        text = text.substr(1, text.size() - 2);
    }
    return std::ranges::all_of(text, [](char c) {
        return c > 0x20 && c < 0x7F && std::string_view("\",;\\").find(c) == std::string_view::npos;
    });
}

bool isCookieAttributeValue(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c >= 0x20 && c < 0x7F && c != ';'; });
}

std::optional<char> escapeAt(std::string_view text, std::size_t index) {
    const std::string_view digits = text.substr(index + 1, 2);
    unsigned char byte = 0;
    const char* const end = digits.data() + digits.size();
    if (digits.size() < 2 || std::from_chars(digits.data(), end, byte, 16).ptr != end) {
        return std::nullopt;
    }
    return static_cast<char>(byte);
}

std::string_view takeElement(std::string_view& list) {
    const std::size_t comma = (std::min)(list.find(','), list.size());
    const std::string_view element = list.substr(0, comma);
    list.remove_prefix((std::min)(comma + 1, list.size()));
    return withoutBlanks(element);
}

} // namespace ql::impl
