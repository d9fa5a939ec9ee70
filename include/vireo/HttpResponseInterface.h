// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace ql {

/// Describes one response: status, headers, cookies, length. The application derives from it and hands it out
/// through HttpBaseRequest::getResponse().
///
/// The library asks on a daemon thread, once per response, after the application has released the response (see
/// HttpResponseDevice::releaseResponse) and before it is queued: from the release on, until the request is
/// scheduler-done, the description must neither change nor go away. No lock is held. What an operation throws is
/// logged and the request is answered with 500.
class VIREO_API HttpResponseInterface {
public:
    /// From a lookup key of the application's choice, whose order is the order on the wire, to the header's name as
    /// it is to be sent and its value.
    using Headers = std::map<std::string, std::pair<std::string, std::string>>;

    /// From cookie name to cookie value.
    using Cookies = std::map<std::string, std::string>;

    HttpResponseInterface();
    /// Copies nothing: there is no state here.
    HttpResponseInterface(const HttpResponseInterface&);
    /// Assigns nothing.
    HttpResponseInterface& operator=(const HttpResponseInterface&);
    virtual ~HttpResponseInterface();

    /// One "Set-cookie" header per entry, name=value, sent unchanged: the value holds whatever attributes the cookie
    /// wants, and its encoding is the application's: http::SetCookie makes one. An entry with a CR or LF is dropped and
    /// logged.
    virtual const Cookies& getCookies() const = 0;

    /// One header per entry. Names and values must be legal field names and values (RFC 9110 section 5); an entry
    /// with a CR or LF is dropped and logged. Content-Length and Transfer-Encoding are the library's, but see
    /// http::ServerOptions::setStrictHttp().
    virtual const Headers& getHeaders() const = 0;

    /// The HTTP status, 200 to 599.
    virtual std::uint32_t getStatusCode() const = 0;

    /// The body's length in bytes when it is streamed; negative when unknown, which HTTP/1.1 sends chunked. Not
    /// consulted for a body that was finished before its release and is below 512 MiB: its length is known.
    virtual std::int64_t getContentLength() const = 0;

    /// The reason phrase, for the application's own log: the library never asks, the engine sends the standard one.
    virtual std::string getReasonPhrase() const = 0;
};

} // namespace ql
