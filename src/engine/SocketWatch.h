// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace ql::impl {

/// Tells of sockets whose peers have ended their sending or reset the connection; of bytes only where it is asked to.
/// It reads nothing.
class SocketWatch {
public:
    struct News {
        std::uint64_t key;
        bool isReset; ///< else the peer has ended its sending, or it is this side that has ended the connection
    };
    /// What one wait tells at most; the rest is for the next.
    using NewsBuffer = std::array<News, 64>;

    SocketWatch();
    ~SocketWatch();
    SocketWatch(const SocketWatch&) = delete;
    SocketWatch& operator=(const SocketWatch&) = delete;

    /// Before anything is added.
    /// @throws std::system_error when the system has no descriptor for it.
    void open();

    // Any thread.

    /// @param key tells the socket in its news, also in news that is on its way when the socket is removed. Anything
    /// but the highest number.
    /// @return false when the system cannot watch it.
    bool add(std::uint64_t socket, std::uint64_t key) noexcept;
    /// The same of a socket that has bytes, too: again and again, until it is removed. Only where engines learn of
    /// bytes by edges.
    bool addForBytes(std::uint64_t socket, std::uint64_t key) noexcept;
    /// Before the socket is closed.
    void remove(std::uint64_t socket) noexcept;
    /// Ends the wait, or the next one.
    void wake() noexcept;

    /// Waits for news; of one thread. A socket may be told of again and again.
    std::span<const News> wait(NewsBuffer& buffer, int timeoutMs);

private:
    struct Native;
    const std::unique_ptr<Native> native_;
};

} // namespace ql::impl
