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

/// The bytes that mean something inside a field value: controls, quotes, backslashes and commas.
constexpr std::array<bool, 256> SpecialBytes = [] {
    std::array<bool, 256> special{};
    for (std::size_t byte = 0; byte < 0x20; ++byte) {
        special[byte] = true;
    }
    for (const char c : {'\x7F', '"', '\\', ','}) {
        special[static_cast<unsigned char>(c)] = true;
    }
    return special;
}();

bool isWhiteSpace(char c) {
    return c == ' ' || c == '\t';
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
    bool quoted = false;
    bool escaped = false;
    std::size_t elementStart = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (!escaped && !SpecialBytes[static_cast<unsigned char>(c)]) {
            continue;
        }
        if (isForbiddenControl(c)) {
            return false;
        }
        if (escaped) {
            escaped = false;
        } else if (quoted && c == '\\') {
            escaped = true;
        } else if (c == '"') {
            quoted = !quoted;
        } else if (c == ',' && !quoted) {
            appendElement(elements, text.substr(elementStart, i - elementStart));
            elementStart = i + 1;
        }
    }
    if (quoted) {
        return false;
    }
    appendElement(elements, text.substr(elementStart));
    if (elements.empty()) {
        elements.emplace_back();
    }
    values.splice(values.end(), elements);
    return true;
}

} // namespace ql::http
