// URLs, beside liburiparser, which follows RFC 3986 to the letter. Where the library is stricter on purpose, as
// docs/reliability.md lists, that is taken out of the comparison by name.

#include "Check.h"
#include "frame/Utf8.h"
#include "reliability/Choices.h"
#include "vireo/support/HttpUrl.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <uriparser/Uri.h>

namespace {

using namespace vireofuzz;
using namespace vireotest;

constexpr std::uint64_t MaxLength = 4096;

/// What the other parser makes of a text.
struct Parts {
    std::string scheme;
    std::optional<std::string> userInfo;
    std::optional<std::string> host;
    std::string port;
    std::string path;
    std::optional<std::string> query;
    std::string fragment;
};

std::optional<std::string> textOf(const UriTextRangeA& range) {
    return range.first == nullptr ? std::nullopt
                                  : std::optional<std::string>(std::string(range.first, range.afterLast));
}

std::optional<Parts> parseOtherwise(const std::string& text) {
    UriUriA uri;
    const char* errorPosition = nullptr;
    if (uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), &errorPosition) != URI_SUCCESS) {
        return std::nullopt;
    }
    Parts parts;
    parts.scheme = textOf(uri.scheme).value_or("");
    parts.userInfo = textOf(uri.userInfo);
    parts.host = textOf(uri.hostText);
    parts.port = textOf(uri.portText).value_or("");
    for (const UriPathSegmentA* segment = uri.pathHead; segment != nullptr; segment = segment->next) {
        parts.path += "/" + textOf(segment->text).value_or("");
    }
    parts.query = textOf(uri.query);
    parts.fragment = textOf(uri.fragment).value_or("");
    uriFreeUriMembersA(&uri);
    return parts;
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    return text;
}

/// The escapes of an encoded text, decoded by the other library.
std::string decoded(std::string text) {
    text.push_back('\0');
    char* const end = const_cast<char*>(uriUnescapeInPlaceExA(text.data(), URI_FALSE, URI_BR_DONT_TOUCH));
    return {text.data(), end};
}

bool isUtf8(const std::string& encoded) {
    return ql::impl::findInvalidUtf8(decoded(encoded)) == std::string_view::npos;
}

/// The rules that the library has beyond RFC 3986.
bool meetsFurtherRules(const std::string& text, const Parts& parts) {
    const std::string scheme = lower(parts.scheme);
    if (scheme != "http" && scheme != "https") {
        return false;
    }
    if (!parts.host || parts.host->empty() || parts.userInfo) {
        return false;
    }
    std::string port = parts.port;
    port.erase(0, std::min(port.find_first_not_of('0'), port.size()));
    if (port.size() > 5 || (!port.empty() && std::stoi(port) > 65535)) {
        return false;
    }
    const std::size_t authorityEnd = text.find_first_of("/?#", parts.scheme.size() + 3);
    if (authorityEnd != std::string::npos && text.size() - authorityEnd > MaxLength) {
        return false;
    }
    // The path may decode to anything that is UTF-8; that of uriUnescapeInPlaceExA() ends at %00.
    return isUtf8(parts.path) && isUtf8(parts.query.value_or("")) && isUtf8(parts.fragment);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Choices input(data, size);
    // Most inputs are targets, as the intake makes URLs of them.
    std::string text = input.takeNumber(3) != 0 ? "http://127.0.0.1:80" : "";
    text += input.takeRest();

    ql::http::HttpUrl url;
    std::string error;
    const bool isValid = url.fromEncodedUtf8String(text, &error, true, MaxLength);
    check(isValid == url.isValid() && isValid == error.empty(), "the result contradicts the error text");
    check(std::all_of(error.begin(), error.end(), [](char c) { return c >= ' ' && c <= '~'; }),
          "the error text is not printable");

    const std::optional<Parts> parts = parseOtherwise(text);
    check(!isValid || parts.has_value(), "a URL is taken that RFC 3986 refuses");
    const bool isExpected = parts && meetsFurtherRules(text, *parts);
    check(isValid == isExpected, "a URL is taken or refused against the rules");
    if (!isValid) {
        check(url.toString().empty() && url.getHost().empty() && url.getDecodedPath().empty(),
              "a refused URL has parts");
        return 0;
    }
    check(url.toString() == text, "another text");
    check(url.getScheme() == lower(parts->scheme), "another scheme");
    check(url.getHost() == lower(*parts->host), "another host");
    check(url.getPort() == (parts->port.empty() ? 0 : std::stoi(parts->port)), "another port");
    check(url.getPath() == parts->path, "another path");
    check(url.hasQuery() == parts->query.has_value() && url.getQuery() == parts->query.value_or(""), "another query");
    check(url.getFragment() == parts->fragment, "another fragment");
    check(url.getDecodedPath() == decoded(parts->path), "another decoded path");
    return 0;
}
