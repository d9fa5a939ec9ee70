#include "request/StrictIntake.h"

#include "frame/ExceptionLog.h"
#include "frame/HttpSyntax.h"
#include "frame/Utf8.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"

#include <algorithm>
#include <string>
#include <utility>

namespace ql::impl {

namespace {

using ParseErrorKind = HttpBaseRequest::ParseErrorKind;

/// Each byte of a target may become an escape of three.
constexpr std::size_t MaxUriBytes = 3 * MaxStrictTargetBytes;

/// Takes what stands in front of the next separator.
/// @param list what is left of it.
std::string_view takeUntil(std::string_view& list, char separator) {
    const std::size_t end = (std::min)(list.find(separator), list.size());
    const std::string_view taken = list.substr(0, end);
    list.remove_prefix((std::min)(end + 1, list.size()));
    return taken;
}

/// What a form's text stands for (the URL standard, application/x-www-form-urlencoded).
std::string decodeForm(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (const auto escaped = text[i] == '%' ? escapeAt(text, i) : std::nullopt) {
            decoded += *escaped;
            i += 2;
        } else {
            decoded += text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}

/// Nothing can be said of it that holds for every reader: text has no NUL.
bool isText(std::string_view text) {
    return text.find('\0') == std::string_view::npos && findInvalidUtf8(text) == std::string_view::npos;
}

void fileQuery(HttpBaseRequest& request, std::string_view query) {
    while (!query.empty()) {
        const std::string_view argument = takeUntil(query, '&');
        if (argument.empty()) {
            continue;
        }
        std::string_view value = argument;
        const std::string_view rawName = takeUntil(value, '=');
        std::string name = decodeForm(rawName);
        std::string text = decodeForm(value);
        if (isText(name) && isText(text)) {
            RequestAccess::fileQueryParameter(request, std::move(name), std::move(text));
        } else {
            RequestAccess::setParseError(request, ParseErrorKind::Query, rawName, "query parameter is no UTF-8 text");
        }
    }
}

std::string_view withoutQuotes(std::string_view text) {
    const bool isQuoted = text.size() > 1 && text.front() == '"' && text.back() == '"';
    return isQuoted ? text.substr(1, text.size() - 2) : text;
}

/// RFC 6265 section 5.4, from the other side.
/// @param isCounted it counts as received: not what was counted when it came.
void fileCookies(HttpBaseRequest& request, std::string_view cookies, bool isCounted) {
    while (!cookies.empty()) {
        std::string_view value = takeUntil(cookies, ';');
        const bool hasValue = value.find('=') != std::string_view::npos;
        const std::string_view name = withoutBlanks(takeUntil(value, '='));
        const std::string_view text = withoutQuotes(withoutBlanks(value));
        if (hasValue && !name.empty() && isText(name) && isText(text)) {
            RequestAccess::fileCookie(request, std::string(name), std::string(text));
            if (isCounted) {
                RequestAccess::countCookie(request, name.size() + text.size());
            }
        }
    }
}

/// With its cookies, where it has some.
void fileField(HttpBaseRequest& request, std::string_view name, std::string_view value, bool isCounted) {
    if (RequestAccess::fileHeader(request, std::string(name).c_str(), std::string(value).c_str()) && isCounted) {
        RequestAccess::countHeaderLine(request, name.size() + value.size());
    }
    if (isSameWord(name, "Cookie")) {
        fileCookies(request, value, isCounted);
    }
}

void fileQueryOf(HttpBaseRequest& request, std::string_view target) {
    (void)takeUntil(target, '?');
    fileQuery(request, target);
}

} // namespace

void fileStrictHead(HttpBaseRequest& request, StrictHead&& strict) {
    auto& [head, verdict] = strict;
    for (const auto& [name, value] : head.fields) {
        if (!verdict.authority || !isSameWord(name, "Host")) {
            fileField(request, name, value, true);
        }
    }
    if (verdict.authority) {
        fileField(request, "Host", *verdict.authority, true);
    }
    RequestAccess::setMethod(request, head.method);
    fileQueryOf(request, verdict.target);
    std::string uri = uriOfTarget(verdict.target);
    RequestAccess::setTarget(request, std::move(verdict.target), uri, MaxUriBytes);
}

void parseKeptHead(HttpBaseRequest& request) noexcept {
    RequestState& state = RequestAccess::state(request);
    if (!state.isHeadUnparsed.load(std::memory_order_acquire)) {
        return;
    }
    qlMutexLocker locker(state.makingMutex);
    if (!state.isHeadUnparsed.load(std::memory_order_relaxed)) {
        return;
    }
    try {
        for (const HeaderLine& line : state.lines) {
            fileField(request, line.name, line.value, false);
        }
        const std::string& target = request.getOriginalRequestUrl();
        fileQueryOf(request, target);
        (void)RequestAccess::parseTarget(request, uriOfTarget(target), MaxUriBytes);
        state.isHeadUnparsed.store(false, std::memory_order_release);
    } catch (...) {
        RequestAccess::setMemoryError(request);
        state.isHeadUnparsed.store(false, std::memory_order_release);
        // A log of the application's may want to know what is parsed.
        locker.unlock();
        logCurrentException("request intake", "httpserver");
    }
}

} // namespace ql::impl
