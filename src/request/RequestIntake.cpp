#include "vireo/HttpBaseRequest.h"
#include "vireo/support/qlStringUtils.h"

#include <cstring>
#include <string_view>
#include <utility>

namespace ql {

namespace {

constexpr std::size_t MaxHeaderBytes = 8096;
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

/// Files all of the pair or, when memory is short, nothing: not a name without a value.
void file(HttpBaseRequest::NamedValues& map, std::string&& name, std::string&& value) {
    HttpBaseRequest::Values values;
    values.push_back(std::move(value));
    HttpBaseRequest::Values& filed = map[std::move(name)];
    filed.splice(filed.end(), values);
}

} // namespace

void HttpBaseRequest::setParseError(std::string&& message) {
    parseErrorFlag_ = true;
    if (parseError_.empty()) {
        parseError_ = std::move(message);
    }
}

bool HttpBaseRequest::rejectText(const char* what, const std::string& text) {
    const std::string_view fault = textFault(text);
    if (fault.empty()) {
        return false;
    }
    std::string message = what;
    message += fault;
    setParseError(std::move(message));
    return true;
}

void HttpBaseRequest::addHeader(const char* name, const char* value) {
    std::string key = name;
    const std::size_t valueLength = std::strlen(value);
    if (key.size() + valueLength > MaxHeaderBytes) {
        setParseError("header too long");
        return;
    }
    if (rejectText("header name", key)) {
        return;
    }
    qlStringUtils::toLower(key);
    Values values;
    if (!http::HttpHeaders::ParseMultiValueHeader(value, values)) {
        setParseError("fail to parse header '" + key + "'");
        return;
    }
    const std::uint64_t lineBytes = key.size() + HeaderLineOverhead + valueLength;
    headers_.addHeaderValues(std::move(key), std::move(values));
    headerReceivedBytes_ += lineBytes;
}

void HttpBaseRequest::addCookie(const char* name, const char* value) {
    std::string key = name;
    std::string text = value == nullptr ? "" : value;
    if (key.size() + text.size() > MaxHeaderBytes) {
        setParseError("cookie too long");
        return;
    }
    if (rejectText("cookie name", key) || rejectText("cookie data", text)) {
        return;
    }
    const std::uint64_t cookieBytes = key.size() + CookieOverhead + text.size();
    file(cookies_, std::move(key), std::move(text));
    headerReceivedBytes_ += cookieBytes;
}

void HttpBaseRequest::addQueryParameter(const char* name, const char* value) {
    std::string key = name;
    std::string text = value == nullptr ? "" : value;
    if (rejectText("query parameter name", key) || rejectText("query parameter value", text)) {
        return;
    }
    file(queryParameters_, std::move(key), std::move(text));
}

const HttpBaseRequest::Values* HttpBaseRequest::getHeader(const char* name) const {
    return headers_.find(name);
}

const HttpBaseRequest::Values* HttpBaseRequest::getCookie(const char* name) const {
    const auto found = cookies_.find(name);
    return found == cookies_.end() ? nullptr : &found->second;
}

void HttpBaseRequest::setHttpMethod(const std::string& method) {
    const auto found = sRequestTypes.find(method);
    if (found == sRequestTypes.end()) {
        setParseError("Unexpected HTTP method");
        return;
    }
    requestType_ = found->second;
}

void HttpBaseRequest::setOriginalFullUrl(std::string&& url) {
    if (url.size() > MaxTargetBytes) {
        originalUrl_ = InvalidUri;
        setParseError("URI is too long");
        return;
    }
    std::string error;
    std::string absolute;
    absolute.reserve(PlaceholderOrigin.size() + url.size());
    absolute.append(PlaceholderOrigin).append(url);
    parsedUrl_.fromEncodedUtf8String(std::move(absolute), &error, true, MaxTargetBytes);
    if (!parsedUrl_.isValid()) {
        originalUrl_ = InvalidUri;
        setParseError("fail to parse request URI, " + error);
        return;
    }
    originalUrl_ = std::move(url);
    url.clear();
}

} // namespace ql
