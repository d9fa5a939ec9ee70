// SPDX-License-Identifier: MIT
#pragma once

#include "websocket/SocketPort.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace ql::impl {

/// What was seen on one socket.
struct SocketEvents {
    bool broken;   ///< error or hang-up
    bool readable; ///< something to read, or the peer has closed
    bool writable; ///< room to write; only where it was asked for
};

/// The sockets of one poll call, numbered from 0. For one thread.
class PollSet {
public:
    /// @param signal ends wait() early. It is lowered then, and counts as no socket.
    explicit PollSet(const WakeSignal& signal);
    ~PollSet();
    PollSet(const PollSet&) = delete;
    PollSet& operator=(const PollSet&) = delete;

    /// Makes room for `count` sockets. @throws std::bad_alloc
    void reserve(std::size_t count);
    /// Adds a socket to watch for reading, and for writing if wanted. reserve() must have made room for it; then it
    /// doesn't throw.
    void add(std::uint64_t socket, bool forWriting);
    /// Whether to watch the socket for writing as well.
    void setForWriting(std::size_t index, bool forWriting);
    /// To watch the socket for nothing else.
    void setForWritingOnly(std::size_t index);
    /// Gives the socket at `from` the smaller number `to`, in place of the one there. What stood at `from` is to be
    /// overwritten or cut off.
    void renumber(std::size_t from, std::size_t to);
    /// Removes the sockets from number `count` on.
    void cutOff(std::size_t count);
    /// Waits until something happens on a socket, the signal is raised, or the time is over.
    /// @return how many sockets have news, those that are no socket at all among them; 0 when the time is over or the
    /// wait was interrupted; negative on failure (lastSocketError()).
    int wait(int timeoutMs);
    /// What the last wait() saw on a socket. Of something that is no socket: nothing.
    SocketEvents getEvents(std::size_t index) const;
    /// The first socket from `index` on that has news, or the number of sockets.
    std::size_t findNews(std::size_t index) const;

private:
    struct Native;
    const WakeSignal& signal_;
    std::unique_ptr<Native> native_;
};

} // namespace ql::impl
