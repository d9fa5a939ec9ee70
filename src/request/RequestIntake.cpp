#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "request/StrictHead.h"
#include "request/StrictIntake.h"
#include "streams/FeedAccess.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/qlStringUtils.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace ql {

namespace {

constexpr std::size_t MaxTargetBytes = 4096;

// What the byte estimates allow for beside name and value: separator and line end of a header line; a cookie's share
// of its "Cookie: " line as well.
constexpr std::uint64_t HeaderLineOverhead = 3;
constexpr std::uint64_t CookieOverhead = 11;

/// What stands before a request target so that it can be parsed as an absolute URL; no real host plays a part.
constexpr std::string_view PlaceholderOrigin = "http://127.0.0.1:80";
/// What stands for a target that could not be parsed.
constexpr const char* InvalidUri = "Invalid URI";

/// What is wrong with a text, as the end of a message that began with what the text is; empty when nothing is.
std::string_view textFault(const std::string& text) {
    // Printable ASCII is UTF-8 as well, so that good text is looked at once.
    if (!qlStringUtils::ContainsAsciiNonPrintableChar(text)) {
        return {};
    }
    return qlStringUtils::IsUtf8(text) ? " contains ASCII forbidden characters" : " is non utf8";
}

void file(HttpBaseRequest::NamedValues& map, std::string&& name, std::string&& value) {
    HttpBaseRequest::Values values;
    values.push_back(std::move(value));
    HttpBaseRequest::Values& filed = map[std::move(name)];
    filed.splice(filed.end(), values);
}

/// A name as it can be shown.
std::string printable(std::string_view name) {
    std::string text(name);
    std::ranges::replace_if(
        text, [](char c) { return c < 0x20 || c > 0x7E; }, '?');
    return text;
}

} // namespace

void HttpBaseRequest::setParseError(std::string&& message) {
    // What the head has of them comes first.
    impl::parseKeptHead(*this);
    impl::RequestAccess::setParseError(*this, ParseErrorKind::Other, {}, std::move(message));
}

bool HttpBaseRequest::rejectText(ParseErrorKind kind, const char* what, const std::string& text,
                                 const std::string& name) {
    const std::string_view fault = textFault(text);
    if (fault.empty()) {
        return false;
    }
    std::string message = what;
    message += fault;
    impl::RequestAccess::setParseError(*this, kind, name, std::move(message));
    return true;
}

void HttpBaseRequest::addHeader(const char* name, const char* value) {
    if (impl::RequestAccess::fileHeader(*this, name, value)) {
        impl::RequestAccess::countHeaderLine(*this, std::strlen(name) + std::strlen(value));
    }
}

void HttpBaseRequest::addCookie(const char* name, const char* value) {
    std::string key = name;
    std::string text = value == nullptr ? "" : value;
    if (key.size() + text.size() > impl::MaxFieldBytes) {
        impl::RequestAccess::setParseError(*this, ParseErrorKind::Cookie, key, "cookie too long");
        return;
    }
    if (rejectText(ParseErrorKind::Cookie, "cookie name", key, key) ||
        rejectText(ParseErrorKind::Cookie, "cookie data", text, key)) {
        return;
    }
    const std::uint64_t bytes = key.size() + text.size();
    impl::RequestAccess::fileCookie(*this, std::move(key), std::move(text));
    impl::RequestAccess::countCookie(*this, bytes);
}

void HttpBaseRequest::addQueryParameter(const char* name, const char* value) {
    std::string key = name;
    std::string text = value == nullptr ? "" : value;
    if (rejectText(ParseErrorKind::Query, "query parameter name", key, key) ||
        rejectText(ParseErrorKind::Query, "query parameter value", text, key)) {
        return;
    }
    impl::RequestAccess::fileQueryParameter(*this, std::move(key), std::move(text));
}

void HttpBaseRequest::setHttpMethod(const std::string& method) {
    state_->methodToken = method;
    const auto found = sRequestTypes.find(method);
    if (found == sRequestTypes.end()) {
        impl::RequestAccess::setParseError(*this, ParseErrorKind::Method, {}, "Unexpected HTTP method");
        return;
    }
    requestType_ = found->second;
}

void HttpBaseRequest::setOriginalFullUrl(std::string&& url) {
    if (url.size() > MaxTargetBytes) {
        originalUrl_ = InvalidUri;
        impl::RequestAccess::setParseError(*this, ParseErrorKind::Target, {}, "URI is too long");
        return;
    }
    const std::string_view uri = url;
    impl::RequestAccess::setTarget(*this, std::move(url), uri, MaxTargetBytes);
}

namespace impl {

void RequestAccess::setParseError(HttpBaseRequest& request, HttpBaseRequest::ParseErrorKind kind, std::string_view name,
                                  std::string&& message) {
    if (!request.parseErrorFlag_) {
        RequestState& state = *request.state_;
        state.parseErrorField = printable(name);
        state.parseErrorKind = kind;
        request.parseErrorFlag_ = true;
    }
    if (request.parseError_.empty()) {
        request.parseError_ = std::move(message);
    }
}

HttpReceiveDevice* RequestAccess::feedOfBody(HttpBaseRequest& request) noexcept {
    const RequestState& state = *request.state_;
    return state.hasNoBody ? nullptr : state.feed.load(std::memory_order_acquire);
}

void RequestAccess::prepareFeed(HttpBaseRequest& request, std::uint64_t windowBytes, bool comesBody) {
    RequestState& state = *request.state_;
    state.uploadWindowBytes = windowBytes;
    if (state.feed.load(std::memory_order_relaxed) != nullptr) {
        // Of a class whose constructor has asked for it.
        FeedAccess::setWindow(*request.feedDevice_, windowBytes);
    } else if (comesBody) {
        (void)request.editFeedDevice();
    } else {
        state.hasNoBody = true;
    }
}

void RequestAccess::setMemoryError(HttpBaseRequest& request) {
    // So short a text takes no memory.
    setParseError(request, HttpBaseRequest::ParseErrorKind::Memory, {}, "out of memory");
}

bool RequestAccess::fileHeader(HttpBaseRequest& request, const char* name, const char* value) {
    using ParseErrorKind = HttpBaseRequest::ParseErrorKind;
    std::string key = name;
    if (key.size() + std::strlen(value) > MaxFieldBytes) {
        setParseError(request, ParseErrorKind::HeaderValue, name, "header too long");
        return false;
    }
    if (request.rejectText(ParseErrorKind::HeaderName, "header name", key, key)) {
        return false;
    }
    qlStringUtils::toLower(key);
    HttpBaseRequest::Values values;
    if (!http::HttpHeaders::ParseMultiValueHeader(value, values)) {
        setParseError(request, ParseErrorKind::HeaderValue, name, "fail to parse header '" + key + "'");
        return false;
    }
    request.headers_.addHeaderValues(std::move(key), std::move(values));
    return true;
}

void RequestAccess::fileCookie(HttpBaseRequest& request, std::string&& name, std::string&& value) {
    file(request.cookies_, std::move(name), std::move(value));
}

void RequestAccess::fileQueryParameter(HttpBaseRequest& request, std::string&& name, std::string&& value) {
    file(request.queryParameters_, std::move(name), std::move(value));
}

void RequestAccess::setMethod(HttpBaseRequest& request, std::string_view token) {
    request.state_->methodToken = token;
    const auto found = HttpBaseRequest::sRequestTypes.find(request.state_->methodToken);
    request.requestType_ =
        found == HttpBaseRequest::sRequestTypes.end() ? HttpBaseRequest::RequestType::Unknown : found->second;
}

void RequestAccess::countHeaderLine(HttpBaseRequest& request, std::uint64_t bytes) {
    request.headerReceivedBytes_ += bytes + HeaderLineOverhead;
}

void RequestAccess::countCookie(HttpBaseRequest& request, std::uint64_t bytes) {
    request.headerReceivedBytes_ += bytes + CookieOverhead;
}

void RequestAccess::setTarget(HttpBaseRequest& request, std::string&& target, std::string_view uri,
                              std::size_t maxBytes) {
    if (!parseTarget(request, uri, maxBytes)) {
        request.originalUrl_ = InvalidUri;
        return;
    }
    request.originalUrl_ = std::move(target);
    target.clear();
}

bool RequestAccess::parseTarget(HttpBaseRequest& request, std::string_view uri, std::size_t maxBytes) {
    std::string error;
    std::string absolute;
    absolute.reserve(PlaceholderOrigin.size() + uri.size());
    absolute.append(PlaceholderOrigin).append(uri);
    request.parsedUrl_.fromEncodedUtf8String(std::move(absolute), &error, true, maxBytes);
    if (!request.parsedUrl_.isValid()) {
        setParseError(request, HttpBaseRequest::ParseErrorKind::Target, {}, "fail to parse request URI, " + error);
        return false;
    }
    return true;
}

} // namespace impl

} // namespace ql
