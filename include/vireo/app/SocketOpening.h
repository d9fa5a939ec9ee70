// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Socket.h"
#include "vireo/app/export.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ql::http {
class WebSocketOptions;
}

namespace vireo {

namespace impl {
struct OpeningState;
struct SocketHandlers;
} // namespace impl

/// What happens when something comes on a WebSocket: `opening.accept().onText([](vireo::Socket& socket,
/// std::string_view text) { socket.send(text); });`
///
/// The handlers of one WebSocket are called one at a time: onOpen first, onClose last and once. They run on the threads
/// of the WebSockets (2 unless App::webSocketOptions() says otherwise), so that one that waits holds up others. One
/// that throws closes its connection with 1011, and a line is logged. Set again, the last counts; without one, nothing
/// happens. What they hold goes with the connection. Texts and bytes live as long as the call; the Request of the
/// opening as long as the WebSocket, so that a handler may capture it by reference.
///
/// Set them before the handler of the route returns.
class VIREO_APP_API SocketEvents {
public:
    /// For the library.
    explicit SocketEvents(impl::SocketHandlers& handlers);
    ~SocketEvents(); // NOLINT(performance-trivially-destructible): what it holds may grow
    SocketEvents(const SocketEvents&) = delete;
    SocketEvents& operator=(const SocketEvents&) = delete;

    /// The client is there; from here on something can be sent.
    SocketEvents& onOpen(std::function<void(Socket&)> handler);
    /// A text message, which is valid UTF-8.
    SocketEvents& onText(std::function<void(Socket&, std::string_view)> handler);
    /// A binary message.
    SocketEvents& onBinary(std::function<void(Socket&, std::span<const unsigned char>)> handler);
    /// Something can be sent again, after a message was refused as Full, or half of the queue was taken.
    SocketEvents& onDrained(std::function<void(Socket&)> handler);
    /// The connection has ended, with this code and reason: the client's or, where it said nothing, those of this side;
    /// 1005 without a code, 1006 when it was lost.
    SocketEvents& onClose(std::function<void(Socket&, std::uint16_t, std::string_view)> handler);

private:
    impl::SocketHandlers& handlers_;
};

/// A client's wish for a WebSocket, which the handler of the route accepts or refuses; the last counts, and neither is
/// answered with a logged 500. Lives as long as the call, which is the daemon thread's: return quickly.
///
/// Pages of other origins are refused before, with a 403, unless App::webSocketOptions() names them: a browser sends
/// its cookies along for any page that it shows.
class VIREO_APP_API SocketOpening {
public:
    /// For the library.
    explicit SocketOpening(impl::OpeningState& state);
    ~SocketOpening(); // NOLINT(performance-trivially-destructible): what it holds may grow
    SocketOpening(const SocketOpening&) = delete;
    SocketOpening& operator=(const SocketOpening&) = delete;

    /// The client gets its WebSocket, and these handlers what comes on it. They live as long as the WebSocket.
    SocketEvents& accept();
    /// The client gets an error.
    /// @param status 300 to 599; otherwise std::invalid_argument is thrown.
    /// @param text the body, with a line feed behind it; empty: the status's reason phrase.
    void refuse(int status, std::string text = {});

    /// Which page asks, as "https://example.org"; empty for a client that is no browser.
    const std::string& origin() const;
    /// Whether that page was loaded from here: from Request::host(), and by https where Request::scheme() says so, of
    /// which a trusted proxy tells.
    bool isSameOrigin() const;
    /// The subprotocols that the client offers, the one that it likes best first.
    const std::vector<std::string>& subprotocols() const;

    /// What is said with accept(): the subprotocol, one of subprotocols().
    /// Throws std::invalid_argument for another one.
    void subprotocol(std::string name);
    /// Adds a header to the answer.
    /// Throws std::invalid_argument for what is no field of HTTP, and for those that the library sets.
    void header(std::string_view name, std::string_view value);
    /// Other options than App::webSocketOptions() for this WebSocket, but for threads, pool and allowed origins.
    void options(const ql::http::WebSocketOptions& options);

private:
    impl::OpeningState& state_;
};

} // namespace vireo
