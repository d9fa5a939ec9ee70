#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "request/StrictHead.h"
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
    if (!parseErrorFlag_) {
        state_->parseErrorKind = ParseErrorKind::Other;
    }
    parseErrorFlag_ = true;
    if (parseError_.empty()) {
        parseError_ = std::move(message);
    }
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
    std::string key = name;
    const std::size_t valueLength = std::strlen(value);
    if (key.size() + valueLength > impl::MaxFieldBytes) {
        impl::RequestAccess::setParseError(*this, ParseErrorKind::HeaderValue, name, "header too long");
        return;
    }
    if (rejectText(ParseErrorKind::HeaderName, "header name", key, key)) {
        return;
    }
    qlStringUtils::toLower(key);
    Values values;
    if (!http::HttpHeaders::ParseMultiValueHeader(value, values)) {
        impl::RequestAccess::setParseError(*this, ParseErrorKind::HeaderValue, name,
                                           "fail to parse header '" + key + "'");
        return;
    }
    const std::uint64_t lineBytes = key.size() + valueLength;
    headers_.addHeaderValues(std::move(key), std::move(values));
    impl::RequestAccess::countHeaderLine(*this, lineBytes);
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
    impl::RequestAccess::fileCookie(*this, std::move(key), std::move(text));
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

const HttpBaseRequest::Values* HttpBaseRequest::getHeader(const char* name) const {
    return headers_.find(name);
}

const HttpBaseRequest::Values* HttpBaseRequest::getCookie(const char* name) const {
    const auto found = cookies_.find(name);
    return found == cookies_.end() ? nullptr : &found->second;
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
    request.setParseError(std::move(message));
}

void RequestAccess::fileCookie(HttpBaseRequest& request, std::string&& name, std::string&& value) {
    const std::uint64_t bytes = name.size() + CookieOverhead + value.size();
    file(request.cookies_, std::move(name), std::move(value));
    request.headerReceivedBytes_ += bytes;
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

void RequestAccess::setTarget(HttpBaseRequest& request, std::string&& target, std::string_view uri,
                              std::size_t maxBytes) {
    std::string error;
    std::string absolute;
    absolute.reserve(PlaceholderOrigin.size() + uri.size());
    absolute.append(PlaceholderOrigin).append(uri);
    request.parsedUrl_.fromEncodedUtf8String(std::move(absolute), &error, true, maxBytes);
    if (!request.parsedUrl_.isValid()) {
        request.originalUrl_ = InvalidUri;
        setParseError(request, HttpBaseRequest::ParseErrorKind::Target, {}, "fail to parse request URI, " + error);
        return;
    }
    request.originalUrl_ = std::move(target);
    target.clear();
}

} // namespace impl

} // namespace ql
