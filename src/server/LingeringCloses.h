// SPDX-License-Identifier: MIT
#pragma once

#include "engine/LingeringSocket.h"
#include "engine/SocketWatch.h"

#include <cstddef>
#include <cstdint>
#include <map>

namespace ql::impl {

/// Closes connections whose clients still send, such as a body that was refused: only when the client has ended, or had
/// time to see the answer. Until then what comes is thrown away, slowly, so that who does not look at the answer does
/// not get rid of his gigabyte. One thread's.
class LingeringCloses {
public:
    /// More than these are closed at once, the oldest first.
    static constexpr std::size_t MostSockets = 256;
    static constexpr std::int64_t MostMs = 2000;
    static constexpr std::uint64_t MostBytes = 8388608;
    /// So much is taken at a time, and after such a pause.
    static constexpr std::uint64_t PieceBytes = 262144;
    static constexpr std::int64_t PauseMs = 250;

    /// @param sockets tells of clients that have ended; polled by the same thread.
    explicit LingeringCloses(SocketWatch& sockets) : sockets_(sockets) {}

    /// Whether news is of a socket of these.
    static bool isKey(std::uint64_t key) { return (key & KeyMark) != 0; }

    /// @throws std::bad_alloc
    void add(LingeringSocket&& socket, std::int64_t nowMs);
    void take(const SocketWatch::News& news);
    void takeDue(std::int64_t nowMs);
    /// When something is due next; `laterMs` if nothing before.
    std::int64_t nextDueMs(std::int64_t laterMs) const;
    std::size_t size() const { return entries_.size(); }
    void clear();

private:
    static constexpr auto KeyMark = std::uint64_t{1} << 63U;

    struct Entry {
        LingeringSocket socket;
        std::int64_t endMs;
        std::int64_t dueMs;
        std::uint64_t bytes = 0;
    };
    using Entries = std::map<std::uint64_t, Entry>;

    static bool drain(Entry& entry, std::uint64_t most);
    Entries::iterator close(Entries::iterator entry);

    SocketWatch& sockets_;
    /// In the order in which they came.
    Entries entries_;
    std::uint64_t lastKey_ = KeyMark;
};

} // namespace ql::impl
