// SPDX-License-Identifier: MIT
#pragma once

#include "websocket/SocketPort.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>

namespace ql::impl {

/// A socket that is watched. By who serves it, who alone touches it.
struct WatchedSocket {
    std::uint64_t socket = InvalidSocket;
    /// Names it in its news. The lower half is a small number that no other has at the same time; the upper half
    /// differs from that of whoever had the number before.
    std::uint64_t id = 0;
    bool forReading = true;
    bool forWriting = false;
};

/// What the system tells of sockets, to any number of threads that wait at once.
///
/// News of a socket come once. After them it may stay unwatched until it is rearmed, as its server does after a turn
/// upon which it waits; by then the server has read, or written, until the socket would block, and what comes from then
/// on is news again. News of a socket that was forgotten may still be on their way: known by their id.
///
/// Any thread.
class Readiness {
public:
    struct News {
        std::uint64_t id = 0;
        bool input = false; ///< something to read
        bool room = false;  ///< room to write
        bool ended = false; ///< the peer has ended its sending, or the connection is broken: to be read to its end
    };
    /// Why a wait ended, beside news.
    struct WaitResult {
        std::size_t count = 0; ///< of the news
        bool woken = false;    ///< by wake()
        bool alarm = false;    ///< the time of setAlarm() has come
    };
    static constexpr std::size_t MostNews = 64;
    static constexpr auto NoAlarm = std::numeric_limits<std::int64_t>::max();

    Readiness() = default;
    virtual ~Readiness() = default;
    Readiness(const Readiness&) = delete;
    Readiness& operator=(const Readiness&) = delete;

    /// Watches a socket for reading, until forget().
    /// @throws std::system_error when the system cannot, std::bad_alloc; it is not watched then.
    virtual void watch(WatchedSocket& watched) = 0;
    /// Says for what to watch it from now on.
    virtual void rearm(WatchedSocket& watched, bool forReading, bool forWriting) noexcept = 0;
    /// Before the socket is closed.
    virtual void forget(const WatchedSocket& watched) noexcept = 0;

    /// Waits for news, wake() or the alarm.
    /// @param news room for one at least; no more than MostNews are told at once.
    /// @param blocking false: only looks what is there.
    virtual WaitResult wait(std::span<News> news, bool blocking) = 0;
    /// Ends one wait, or the next.
    virtual void wake() noexcept = 0;
    /// Ends one wait, or the next, once so many milliseconds are over; NoAlarm never. Takes the place of the one
    /// before.
    virtual void setAlarm(std::int64_t inMs) noexcept = 0;
};

/// The best that the system has.
/// @throws std::system_error when it has no descriptors for it.
std::unique_ptr<Readiness> makeReadiness();

} // namespace ql::impl
