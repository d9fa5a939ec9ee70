#include "websocket/pool/PollSet.h"

#include <NativeSockets.h>

#include <vector>

namespace ql::impl {

namespace {

using Entry = NativePollEntry;
using Events = decltype(Entry::events);

constexpr Events ReadEvents = POLLRDNORM | POLLRDBAND;
constexpr Events ReadAndWriteEvents = ReadEvents | POLLWRNORM;
constexpr Events WriteEvents = POLLWRNORM;
constexpr Events BrokenEvents = POLLERR | POLLHUP;

Entry makeEntry(std::uint64_t socket, bool forWriting) {
    Entry entry{};
    entry.fd = static_cast<decltype(Entry::fd)>(socket);
    entry.events = forWriting ? ReadAndWriteEvents : ReadEvents;
    return entry;
}

} // namespace

/// Made by the first reserve(). The signal, where it is open, stands behind the sockets during a wait, and only then.
struct PollSet::Native {
    std::vector<Entry> entries;
};

PollSet::PollSet(const WakeSignal& signal) : signal_(signal) {}

PollSet::~PollSet() = default;

void PollSet::reserve(std::size_t count) {
    if (!native_) {
        native_ = std::make_unique<Native>();
    }
    native_->entries.reserve(count + 1);
}

void PollSet::add(std::uint64_t socket, bool forWriting) {
    native_->entries.push_back(makeEntry(socket, forWriting));
}

void PollSet::setForWriting(std::size_t index, bool forWriting) {
    native_->entries[index].events = forWriting ? ReadAndWriteEvents : ReadEvents;
}

void PollSet::setForWritingOnly(std::size_t index) {
    native_->entries[index].events = WriteEvents;
}

void PollSet::renumber(std::size_t from, std::size_t to) {
    native_->entries[to] = native_->entries[from];
}

void PollSet::cutOff(std::size_t count) {
    native_->entries.resize(count);
}

int PollSet::wait(int timeoutMs) {
    std::vector<Entry>& entries = native_->entries;
    const bool hasSignal = signal_.getSocket() != InvalidSocket;
    if (hasSignal) {
        entries.push_back(makeEntry(signal_.getSocket(), false));
    }
    int count = pollSockets(entries.data(), entries.size(), timeoutMs);
    if (hasSignal) {
        if (count > 0 && entries.back().revents != 0) {
            signal_.lower();
            --count;
        }
        entries.pop_back();
    }
    return count;
}

SocketEvents PollSet::getEvents(std::size_t index) const {
    const Events seen = native_->entries[index].revents;
    return {(seen & BrokenEvents) != 0, (seen & ReadEvents) != 0, (seen & WriteEvents) != 0};
}

std::size_t PollSet::findNews(std::size_t index) const {
    const std::vector<Entry>& entries = native_->entries;
    while (index < entries.size() && entries[index].revents == 0) {
        ++index;
    }
    return index;
}

} // namespace ql::impl
