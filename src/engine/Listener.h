// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <NativeSockets.h>

namespace ql::impl {

/// A connection that was accepted; whoever has it closes it.
struct AcceptedSocket {
    std::uint64_t socket = 0;
    sockaddr_in address{};
};

/// A socket that listens for TCP connections over IPv4. For one thread.
class Listener {
public:
    enum class Outcome {
        Accepted,
        NoneWaiting,
        TryAgain, ///< one that waited has gone
        Failed,   ///< one may wait, but the system has no descriptor or memory for it: lastSocketError()
    };

    /// @param port 0 for one that the system finds.
    /// @param backlog connections that may wait to be accepted.
    /// @param error what the system says (SystemError) when there is no listener.
    /// @return null when it cannot listen.
    static std::unique_ptr<Listener> Open(std::uint16_t port, bool onAllInterfaces, std::uint32_t backlog, int& error);

    /// Those that wait to be accepted are reset.
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::uint64_t socket() const { return socket_; }
    /// The real one where 0 was asked for.
    std::uint16_t port() const;

    /// Does not wait.
    Outcome accept(AcceptedSocket& accepted) const;

    /// Lets nobody begin a connection any more, as far as the system can: those that have begun come to be accepted.
    void refuseNew() const;

private:
    Listener() = default;

    std::uint64_t socket_ = ~std::uint64_t{0};
};

/// Closes a socket that was accepted.
void closeSocket(std::uint64_t socket);

/// Ends the sending on a socket: the peer sees the end once it has read everything.
void endSending(std::uint64_t socket);

/// How many bytes have come on a socket that nobody has received.
std::size_t unreadBytes(std::uint64_t socket);

} // namespace ql::impl
