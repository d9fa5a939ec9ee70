#include "vireo/support/HttpHeaders.h"

#include <string_view>
#include <utility>

namespace ql::http {
namespace {

constexpr std::string_view WhiteSpace = " \t";

bool isForbiddenControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t') || byte == 0x7F;
}

/// Appends the element without the white space around it; drops an empty one.
void appendElement(std::list<std::string>& elements, std::string_view element) {
    const std::size_t first = element.find_first_not_of(WhiteSpace);
    if (first != std::string_view::npos) {
        elements.emplace_back(element.substr(first, element.find_last_not_of(WhiteSpace) - first + 1));
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
    std::list<std::string>& filed = map_[name];
    filed.insert(filed.end(), values.begin(), values.end());
}

bool HttpHeaders::ParseMultiValueHeader(const char* value, std::list<std::string>& values) {
    const std::string_view text(value == nullptr ? "" : value);
    std::list<std::string> elements;
    bool quoted = false;
    bool escaped = false;
    std::size_t elementStart = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
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
