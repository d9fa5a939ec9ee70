#include "vireo/support/HttpHeaders.h"

#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

namespace ql::http {
namespace {

bool isForbiddenControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t') || byte == 0x7F;
}

/// The bytes that mean something inside a field value: controls, quotes and commas.
constexpr std::array<bool, 256> SpecialBytes = [] {
    std::array<bool, 256> special{};
    for (std::size_t byte = 0; byte < 0x20; ++byte) {
        special[byte] = true;
    }
    for (const char c : {'\x7F', '"', ','}) {
        special[static_cast<unsigned char>(c)] = true;
    }
    return special;
}();

bool isWhiteSpace(char c) {
    return c == ' ' || c == '\t';
}

/// The index of the quote that closes the quoted string; npos when none does.
/// @param open the index of the quote that opens it.
std::size_t findClosingQuote(std::string_view text, std::size_t open) {
    for (std::size_t i = open + 1; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            return i;
        }
    }
    return std::string_view::npos;
}

/// Appends the element without the white space around it; drops an empty one.
void appendElement(std::list<std::string>& elements, std::string_view element) {
    while (!element.empty() && isWhiteSpace(element.front())) {
        element.remove_prefix(1);
    }
    while (!element.empty() && isWhiteSpace(element.back())) {
        element.remove_suffix(1);
    }
    if (!element.empty()) {
        elements.emplace_back(element);
    }
}

} // namespace

HttpHeaders::HttpHeaders() = default;
HttpHeaders::~HttpHeaders() = default;
HttpHeaders::HttpHeaders(const HttpHeaders&) = default;
HttpHeaders::HttpHeaders(HttpHeaders&&) noexcept = default;
HttpHeaders& HttpHeaders::operator=(const HttpHeaders&) = default;
HttpHeaders& HttpHeaders::operator=(HttpHeaders&&) noexcept = default;

const std::list<std::string>* HttpHeaders::find(const std::string& name) const {
    const auto found = map_.find(name);
    return found == map_.end() ? nullptr : &found->second;
}

void HttpHeaders::addHeaderValues(const std::string& name, const std::list<std::string>& values) {
    addHeaderValues(std::string(name), std::list<std::string>(values));
}

void HttpHeaders::addHeaderValues(std::string&& name, std::list<std::string>&& values) {
    std::list<std::string>& filed = map_[std::move(name)];
    filed.splice(filed.end(), values);
}

bool HttpHeaders::ParseMultiValueHeader(const char* value, std::list<std::string>& values) {
    const std::string_view text(value == nullptr ? "" : value);
    std::list<std::string> elements;
    // A quote that none closes is an ordinary character. So are all that follow it then: what closes one of them would
    // have closed it as well.
    bool mayOpen = true;
    std::size_t quotedEnd = 0;
    std::size_t elementStart = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (!SpecialBytes[static_cast<unsigned char>(c)]) {
            continue;
        }
        if (isForbiddenControl(c)) {
            return false;
        }
        if (i < quotedEnd) {
            continue;
        }
        if (c == '"' && mayOpen) {
            const std::size_t close = findClosingQuote(text, i);
            if (close == std::string_view::npos) {
                mayOpen = false;
            } else {
                quotedEnd = close + 1;
            }
        } else if (c == ',') {
            appendElement(elements, text.substr(elementStart, i - elementStart));
            elementStart = i + 1;
        }
    }
    appendElement(elements, text.substr(elementStart));
    if (elements.empty()) {
        elements.emplace_back();
    }
    values.splice(values.end(), elements);
    return true;
}

} // namespace ql::http
