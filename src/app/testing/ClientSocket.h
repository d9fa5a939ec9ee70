// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace vireo::impl {

using Deadline = std::chrono::steady_clock::time_point;

/// One TCP connection of a client, which waits for what it does until a deadline. For one thread.
class ClientSocket {
public:
    enum class Outcome {
        Done,     ///< some bytes went through
        Ended,    ///< the peer has finished, or the connection is broken or closed
        TimedOut, ///< nothing happened before the deadline
        Spoken,   ///< of send(): the peer takes nothing more for now, and has sent something
    };
    struct Result {
        Outcome outcome;
        std::size_t bytes;
    };

    /// Tries the addresses of the host one after the other; closed where none of them is reached.
    /// @param host an address or a name.
    static ClientSocket Connect(const std::string& host, const std::string& port, Deadline deadline);

    ClientSocket() = default;
    ~ClientSocket();
    ClientSocket(ClientSocket&& other) noexcept;
    ClientSocket& operator=(ClientSocket&& other) noexcept;

    bool isOpen() const { return handle_ != Closed; }

    /// Sends as much as goes at once, or once there is room.
    Result send(std::string_view bytes, Deadline deadline);
    /// Receives what is there, at least one byte.
    Result receive(std::span<char> room, Deadline deadline);
    /// True where the peer has neither sent anything nor ended.
    bool isQuiet() const;

    void close();
    /// Closes with a reset.
    void reset();

private:
    static constexpr std::uintptr_t Closed = ~std::uintptr_t{0};

    explicit ClientSocket(std::uintptr_t handle) : handle_(handle) {}

    std::uintptr_t handle_ = Closed;
};

} // namespace vireo::impl
