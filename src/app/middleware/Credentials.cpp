#include "app/middleware/Credentials.h"

#include "app/middleware/Base64Text.h"
#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"

namespace vireo::impl {

namespace {

/// What follows the scheme and its blanks; none for another scheme.
std::optional<std::string_view> afterScheme(std::string_view authorization, std::string_view scheme) {
    const std::size_t blank = authorization.find(' ');
    if (blank == std::string_view::npos || !ql::impl::isSameWord(authorization.substr(0, blank), scheme)) {
        return std::nullopt;
    }
    return ql::impl::withoutBlanks(authorization.substr(blank));
}

} // namespace

std::optional<BasicCredentials> parseBasic(std::string_view authorization) {
    const std::optional<std::string_view> text = afterScheme(authorization, "Basic");
    const std::optional<std::string> plain = text ? decodeBase64(*text) : std::nullopt;
    const std::size_t colon = plain ? plain->find(':') : std::string::npos;
    // RFC 7617 section 2 has no control characters in them; and a log that shows a name must not be forged by it.
    if (colon == std::string::npos || !ql::impl::isFieldValue(*plain)) {
        return std::nullopt;
    }
    return BasicCredentials{plain->substr(0, colon), plain->substr(colon + 1)};
}

std::optional<std::string_view> parseBearer(std::string_view authorization) {
    const std::optional<std::string_view> token = afterScheme(authorization, "Bearer");
    return token && !token->empty() && token->find_first_of(" \t,") == std::string_view::npos ? token : std::nullopt;
}

std::string quoted(std::string_view text) {
    if (!ql::impl::isFieldValue(text)) {
        ql::impl::throwInvalidArgument("a realm has no control characters");
    }
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted += '"';
}

} // namespace vireo::impl
