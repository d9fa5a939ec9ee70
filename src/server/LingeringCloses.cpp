#include "server/LingeringCloses.h"

#include "websocket/SocketPort.h"

#include <algorithm>
#include <array>
#include <utility>

namespace ql::impl {

void LingeringCloses::add(LingeringSocket&& socket, std::int64_t nowMs) {
    if (entries_.size() == MostSockets) {
        close(entries_.begin());
    }
    const auto added = entries_.try_emplace(++lastKey_, Entry{std::move(socket), nowMs + MostMs, nowMs}).first;
    sockets_.add(added->second.socket.socket(), added->first);
}

void LingeringCloses::take(const SocketWatch::News& news) {
    const auto found = entries_.find(news.key);
    // Once the client has ended, all that it has sent is there.
    if (found != entries_.end() && !drain(found->second, MostBytes)) {
        close(found);
    }
}

void LingeringCloses::takeDue(std::int64_t nowMs) {
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        Entry& due = entry->second;
        if (due.dueMs > nowMs) {
            ++entry;
        } else if (nowMs >= due.endMs || !drain(due, PieceBytes)) {
            entry = close(entry);
        } else {
            due.dueMs = std::min(nowMs + PauseMs, due.endMs);
            ++entry;
        }
    }
}

std::int64_t LingeringCloses::nextDueMs(std::int64_t laterMs) const {
    for (const auto& [key, entry] : entries_) {
        laterMs = std::min(laterMs, entry.dueMs);
    }
    return laterMs;
}

void LingeringCloses::clear() {
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        entry = close(entry);
    }
}

/// Throws away at most so much of what has come.
/// @return false when no more is to come, or to be taken.
bool LingeringCloses::drain(Entry& entry, std::uint64_t most) {
    std::array<unsigned char, 65536> bytes;
    const SocketBuffer buffer{bytes.data(), bytes.size()};
    for (std::uint64_t taken = 0; taken < most;) {
        const std::int64_t received = receiveFromSocket(entry.socket.socket(), {&buffer, 1});
        if (received < 0) {
            return isWouldBlock(lastSocketError());
        }
        taken += static_cast<std::uint64_t>(received);
        entry.bytes += static_cast<std::uint64_t>(received);
        if (received == 0 || entry.bytes >= MostBytes) {
            return false;
        }
    }
    return true;
}

LingeringCloses::Entries::iterator LingeringCloses::close(Entries::iterator entry) {
    sockets_.remove(entry->second.socket.socket());
    return entries_.erase(entry);
}

} // namespace ql::impl
