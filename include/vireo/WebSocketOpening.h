// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <string>
#include <vector>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {
class Opening;
}

namespace ql::http {

/// A client's wish for a WebSocket, which holds to RFC 6455, for a WebSocketAcceptor to decide about. Lives as long as
/// the call that it is given to.
class VIREO_API WebSocketOpening {
public:
    /// For the library.
    explicit WebSocketOpening(const impl::Opening& opening);
    ~WebSocketOpening(); // NOLINT(performance-trivially-destructible): what it holds may grow
    WebSocketOpening(const WebSocketOpening&) = delete;
    WebSocketOpening& operator=(const WebSocketOpening&) = delete;

    /// The path of the request's target with its escapes decoded, "/rooms/tea time": it may hold any character, so
    /// check it before it names anything. Empty when the target could not be parsed, and with
    /// ServerOptions::Filing::Lines.
    const std::string& getPath() const;

    /// The request: URL, query, headers, cookies, the client's address and its TLS peer, filed as all requests of this
    /// server are. It has no body, and nothing of it may be kept but copies. Look at HttpBaseRequest::hasParseError()
    /// if the rest of it matters.
    const HttpBaseRequest& getRequest() const;

    /// Which page asks, "https://example.org", as browsers tell; empty for a client that says nothing, which is no
    /// browser.
    const std::string& getOrigin() const;

    /// Whether the page that asks was loaded from here: the Origin's host and port are those of the request's Host, in
    /// any case of letters and with the port that the scheme has by default. On a listener with TLS the scheme must be
    /// "https"; without, "https" is as good as "http", since a reverse proxy may stand in front. False without an
    /// Origin and for "null", which documents without one of their own send.
    bool isSameOrigin() const;

    /// The subprotocols that the client offers, in its order of preference.
    const std::vector<std::string>& getSubprotocols() const;

private:
    const impl::Opening& opening_;
};

} // namespace ql::http
