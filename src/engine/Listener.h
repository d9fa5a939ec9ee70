// SPDX-License-Identifier: MIT
#pragma once

#include "engine/SocketAddress.h"
#include "engine/StartFailure.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace ql::impl {

struct ListenEndpointData;
class UnixSocketFile;

/// A connection that was accepted; whoever has it closes it.
struct AcceptedSocket {
    std::uint64_t socket = 0;
    /// The client's; an IPv4 address is one also where it came by a socket for IPv6.
    SocketAddress address;
    /// The number of the listener that it has come by.
    std::size_t listener = 0;
};

/// A socket that listens for connections. For one thread.
class Listener {
public:
    enum class Outcome {
        Accepted,
        NoneWaiting,
        TryAgain, ///< one that waited has gone
        Failed,   ///< one may wait, but the system has no descriptor or memory for it: lastSocketError()
    };

    /// @param backlog connections that may wait to be accepted.
    /// @return null when it cannot listen; then `failure` says why.
    static std::unique_ptr<Listener> Open(const ListenEndpointData& endpoint, std::uint32_t backlog,
                                          StartFailure& failure);

    /// Those that wait to be accepted are reset, but where the socket is shared.
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::uint64_t socket() const { return socket_; }
    /// The real one where 0 was asked for; 0 for a Unix socket.
    std::uint16_t port() const { return SocketAddress::OfSocket(socket_).port(); }

    /// Does not wait.
    Outcome accept(AcceptedSocket& accepted) const;

    /// Lets nobody begin a connection any more, as far as the system can: those that have begun come to be accepted.
    /// Where the socket is shared others go on with it.
    void refuseNew();

private:
    Listener() = default;

    std::uint64_t socket_ = ~std::uint64_t{0};
    bool isShared_ = false;
    /// Of a Unix socket that is not shared, until it refuses new connections; else null.
    std::shared_ptr<UnixSocketFile> file_;
};

/// Closes a socket that was accepted.
void closeSocket(std::uint64_t socket);

/// Ends the sending on a socket: the peer sees the end once it has read everything.
void endSending(std::uint64_t socket);

/// How many bytes have come on a socket that nobody has received.
std::size_t unreadBytes(std::uint64_t socket);

} // namespace ql::impl
