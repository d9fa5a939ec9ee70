#include "request/StrictHead.h"

#include "frame/HttpSyntax.h"
#include "frame/Utf8.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/HttpUrl.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <system_error>

namespace ql::impl {

namespace {

constexpr std::uint32_t BadRequest = 400;
constexpr std::uint32_t ContentTooLarge = 413;
constexpr std::uint32_t UriTooLong = 414;
constexpr std::uint32_t ExpectationFailed = 417;
constexpr std::uint32_t HeadersTooLarge = 431;
constexpr std::uint32_t NotImplemented = 501;
constexpr std::uint32_t VersionNotSupported = 505;

constexpr std::string_view Asterisk = "*";

struct Fault {
    std::uint32_t status;
    std::string_view reason;
};
using Finding = std::optional<Fault>;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isOneOf(char c, std::string_view characters) {
    return characters.find(c) != std::string_view::npos;
}

/// RFC 3986's pchar, but for escapes, and the slash.
bool isPathCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || isOneOf(c, "-._~!$&'()*+,;=:@/");
}

bool isQueryCharacter(char c) {
    return isPathCharacter(c) || c == '?';
}

/// What the URL standard of the browsers leaves as it is in a query, and what older ones do.
bool isQueryCharacterOfBrowsers(char c) {
    return isOneOf(c, "[]|{}^\"<>`\\") || static_cast<unsigned char>(c) >= 0x80;
}

bool isPath(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' ? !escapeAt(text, i) : !isPathCharacter(text[i])) {
            return false;
        }
    }
    return true;
}

/// Browsers send a percent sign as it was typed where it begins no escape.
bool isQuery(std::string_view text) {
    return std::ranges::all_of(
               text, [](char c) { return c == '%' || isQueryCharacter(c) || isQueryCharacterOfBrowsers(c); }) &&
           findInvalidUtf8(text) == std::string_view::npos;
}

/// @param text what follows an authority.
bool isPathAndQuery(std::string_view text) {
    const std::size_t end = (std::min)(text.find('?'), text.size());
    return isPath(text.substr(0, end)) && isQuery(text.substr((std::min)(end + 1, text.size())));
}

/// A host, with or without a port. RFC 3986 allows commas in names, of which there are none: what has one are two hosts
/// in one line.
bool isAuthority(std::string_view text) {
    if (text.substr(0, 1) == ":" || text.find_first_of("/?#@,") != std::string_view::npos) {
        return false;
    }
    Url url;
    return url.fromEncodedUtf8String("http://" + std::string(text), nullptr, true, 0);
}

/// What follows "http://" or "https://"; null inside without such a scheme.
std::string_view afterScheme(std::string_view target) {
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (isSameWord(target.substr(0, scheme.size()), scheme)) {
            return target.substr(scheme.size());
        }
    }
    return {};
}

/// What the origin form of a target would be, whose absolute form has this behind its authority.
std::string originForm(std::string_view pathAndQuery, std::string_view method) {
    std::string target;
    if (pathAndQuery.empty()) {
        target += method == "OPTIONS" ? Asterisk : "/";
    } else if (pathAndQuery[0] == '?') {
        target += '/';
    }
    target += pathAndQuery;
    return target;
}

Finding checkTarget(const RequestHead& head, HeadVerdict& verdict) {
    const Fault bad{BadRequest, "bad target"};
    const std::string_view target = head.target;
    if (target.size() > MaxStrictTargetBytes) {
        return Fault{UriTooLong, "the target is too long"};
    }
    if (target == Asterisk && head.method == "OPTIONS") {
        verdict.target = std::string(target);
        return std::nullopt;
    }
    if (!target.empty() && target[0] == '/') {
        if (!isPathAndQuery(target)) {
            return bad;
        }
        verdict.target = std::string(target);
        return std::nullopt;
    }
    const std::string_view absolute = afterScheme(target);
    const std::size_t authorityEnd = (std::min)(absolute.find_first_of("/?"), absolute.size());
    const std::string_view authority = absolute.substr(0, authorityEnd);
    const std::string_view rest = absolute.substr(authorityEnd);
    if (authority.empty() || !isAuthority(authority) || !isPathAndQuery(rest)) {
        return bad;
    }
    verdict.authority = authority;
    verdict.target = originForm(rest, head.method);
    return std::nullopt;
}

/// HTTP/1.x, of which later ones are served as 1.1.
Finding checkVersion(std::string_view version) {
    const bool isVersion = version.size() == 8 && version.substr(0, 5) == "HTTP/" && isDigit(version[5]) &&
                           version[6] == '.' && isDigit(version[7]);
    if (!isVersion) {
        return Fault{BadRequest, "bad version"};
    }
    if (version[5] != '1') {
        return Fault{VersionNotSupported, "the version is not supported"};
    }
    return std::nullopt;
}

/// CONNECT asks for a tunnel, which is a proxy's.
Finding checkMethod(std::string_view method, const std::vector<std::string>& ownMethods) {
    if (!isToken(method)) {
        return Fault{BadRequest, "bad method"};
    }
    const bool isOwn = std::ranges::find(ownMethods, method) != ownMethods.end();
    const bool isKnown = method != "CONNECT" && HttpBaseRequest::sRequestTypes.contains(std::string(method));
    if (!isOwn && !isKnown) {
        return Fault{NotImplemented, "the method is not implemented"};
    }
    return std::nullopt;
}

/// Looks at the one field of this name.
/// @param count how often it is there.
std::string_view find(const RequestHead& head, std::string_view name, std::size_t& count) {
    std::string_view found;
    count = 0;
    for (const auto& [fieldName, value] : head.fields) {
        if (isSameWord(fieldName, name)) {
            found = value;
            ++count;
        }
    }
    return found;
}

Finding checkFields(const RequestHead& head) {
    for (const auto& [name, value] : head.fields) {
        if (!isToken(name)) {
            return Fault{BadRequest, "bad header name"};
        }
        if (!isFieldValue(value)) {
            return Fault{BadRequest, "bad header value"};
        }
        if (name.size() + value.size() > MaxFieldBytes) {
            return Fault{HeadersTooLarge, "a header is too long"};
        }
    }
    return std::nullopt;
}

bool isOldVersion(const RequestHead& head) {
    return head.version == "HTTP/1.0";
}

Finding checkHost(const RequestHead& head) {
    std::size_t count = 0;
    const std::string_view host = withoutBlanks(find(head, "Host", count));
    if (count == 0 && !isOldVersion(head)) {
        return Fault{BadRequest, "no Host"};
    }
    if (count > 1) {
        return Fault{BadRequest, "more than one Host"};
    }
    if (!isAuthority(host)) {
        return Fault{BadRequest, "bad Host"};
    }
    return std::nullopt;
}

/// Where the body ends. Values are compared as the engine does: version 0.9.75 knows no coding with a blank behind it.
Finding checkFraming(const RequestHead& head) {
    std::size_t lengths = 0;
    std::size_t codings = 0;
    const std::string_view length = find(head, "Content-Length", lengths);
    const std::string_view coding = find(head, "Transfer-Encoding", codings);
    if (codings != 0) {
        if (lengths != 0) {
            return Fault{BadRequest, "Content-Length with Transfer-Encoding"};
        }
        if (codings > 1 || !isSameWord(coding, "chunked")) {
            return Fault{BadRequest, "bad Transfer-Encoding"};
        }
        if (isOldVersion(head)) {
            return Fault{BadRequest, "Transfer-Encoding in HTTP/1.0"};
        }
    } else if (lengths > 1) {
        return Fault{BadRequest, "more than one Content-Length"};
    } else if (lengths == 1) {
        if (length.empty() || !std::ranges::all_of(length, isDigit)) {
            return Fault{BadRequest, "bad Content-Length"};
        }
        std::int64_t bytes = 0;
        if (std::from_chars(length.data(), length.data() + length.size(), bytes).ec != std::errc()) {
            return Fault{ContentTooLarge, "the body is too large"};
        }
    }
    return std::nullopt;
}

Finding checkExpectation(const RequestHead& head) {
    for (const auto& [name, value] : head.fields) {
        if (!isSameWord(name, "Expect")) {
            continue;
        }
        std::string_view list = value;
        while (!list.empty()) {
            const std::string_view expectation = takeElement(list);
            if (!expectation.empty() && !isSameWord(expectation, "100-continue")) {
                return Fault{ExpectationFailed, "unknown expectation"};
            }
        }
    }
    return std::nullopt;
}

} // namespace

HeadVerdict checkHead(const RequestHead& head, const std::vector<std::string>& ownMethods) {
    HeadVerdict verdict;
    Finding fault = checkVersion(head.version);
    if (!fault) {
        fault = checkMethod(head.method, ownMethods);
    }
    if (!fault) {
        fault = checkTarget(head, verdict);
    }
    if (!fault) {
        fault = checkFields(head);
    }
    if (!fault) {
        fault = checkHost(head);
    }
    if (!fault) {
        fault = checkFraming(head);
    }
    if (!fault) {
        fault = checkExpectation(head);
    }
    if (fault) {
        verdict.status = fault->status;
        verdict.reason = fault->reason;
    }
    return verdict;
}

bool hasGoodHost(const RequestHead& head) {
    return !checkHost(head);
}

bool hasElement(const RequestHead& head, std::string_view name, std::string_view element) {
    return std::ranges::any_of(head.fields, [&](const HeaderLine& field) {
        std::string_view list = isSameWord(field.name, name) ? field.value : std::string_view();
        while (!list.empty()) {
            if (isSameWord(takeElement(list), element)) {
                return true;
            }
        }
        return false;
    });
}

std::string uriOfTarget(std::string_view target) {
    if (target == Asterisk) {
        return "/";
    }
    constexpr std::string_view Digits = "0123456789ABCDEF";
    std::string uri;
    uri.reserve(target.size());
    for (std::size_t i = 0; i < target.size(); ++i) {
        const char c = target[i];
        if (c == '%' ? escapeAt(target, i).has_value() : isQueryCharacter(c)) {
            uri += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            uri += {'%', Digits[byte >> 4U], Digits[byte & 0xFU]};
        }
    }
    return uri;
}

} // namespace ql::impl
