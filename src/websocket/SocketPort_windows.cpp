#include "websocket/SocketPort.h"

#include <NativeSockets.h>

#include <algorithm>
#include <limits>
#include <vector>

// Where WSAPoll() is not poll():
// - The peer has ended its sending and everything was read: POLLHUP, where poll() says that the socket is readable. So
//   the pool closes such a connection at once, and elsewhere after a worker has received 0 bytes. Windows may report
//   the hang-up together with bytes that still wait. (PeerThatSendsNoMoreMakesASocketReadableOrBroken)
// - Nothing in the set is a socket: it fails, where poll() marks each entry. (WhatIsNoSocketHasNoEvents,
//   WhatIsNoSocketStaysInThePollSetWithoutSpinning)
// - INVALID_SOCKET: marked POLLNVAL, where poll() ignores negative numbers. (WhatIsNoSocketHasNoEvents)
// - The set is empty: it fails, where poll() waits. The pool polls no empty set.
//   (AddingWakesThePollThreadFromAnEmptySet)
// - POLLPRI among the events asked for makes it fail. The port doesn't ask for it.
//   (PollsForReadingAndForWritingOnlyWithAWritePending)
// - No signal interrupts it, nor any other socket call.
// And a single recv() or send() cannot be told not to block: prepareSocket() makes the socket so.
// (ReceivingFromABlockingSocketNeverBlocks, SendingToABlockingSocketNeverBlocks)

namespace ql::impl {

namespace {

constexpr SHORT ReadEvents = POLLRDNORM | POLLRDBAND;
constexpr SHORT WriteEvents = POLLWRNORM;
constexpr SHORT BrokenEvents = POLLERR | POLLHUP;

SOCKET native(std::uint64_t socket) {
    return static_cast<SOCKET>(socket);
}

int clampSize(std::uint64_t size) {
    constexpr std::uint64_t Most = std::numeric_limits<int>::max();
    return static_cast<int>(std::min(size, Most));
}

std::int64_t systemReceive(std::uint64_t socket, void* data, std::uint64_t size) {
    return ::recv(native(socket), static_cast<char*>(data), clampSize(size), 0);
}

std::int64_t systemSend(std::uint64_t socket, const void* data, std::uint64_t size) {
    return ::send(native(socket), static_cast<const char*>(data), clampSize(size), 0);
}

int systemPoll(void* entries, std::size_t count, int timeoutMs) {
    return ::WSAPoll(static_cast<WSAPOLLFD*>(entries), static_cast<ULONG>(count), timeoutMs);
}

} // namespace

const SocketFunctions systemSocketFunctions = {&systemReceive, &systemSend, &systemPoll};
std::atomic<const SocketFunctions*> socketFunctions{&systemSocketFunctions};

void prepareSocket(std::uint64_t socket) {
    u_long nonBlocking = 1;
    (void)::ioctlsocket(native(socket), static_cast<long>(FIONBIO), &nonBlocking);
    const BOOL on = TRUE;
    (void)::setsockopt(native(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
}

std::int64_t receiveFromSocket(std::uint64_t socket, void* data, std::uint64_t size) {
    return socketFunctions.load(std::memory_order_acquire)->receive(socket, data, size);
}

std::int64_t sendToSocket(std::uint64_t socket, const void* data, std::uint64_t size) {
    return socketFunctions.load(std::memory_order_acquire)->send(socket, data, size);
}

int lastSocketError() {
    return ::WSAGetLastError();
}

bool isWouldBlock(int error) {
    return error == WSAEWOULDBLOCK;
}

struct PollSet::Native {
    std::vector<WSAPOLLFD> entries;
};

PollSet::PollSet() = default;
PollSet::~PollSet() = default;

void PollSet::reserve(std::size_t count) {
    if (!native_) {
        native_ = std::make_unique<Native>();
    }
    native_->entries.reserve(count);
}

void PollSet::clear() {
    if (native_) {
        native_->entries.clear();
    }
}

void PollSet::add(std::uint64_t socket, bool forWriting) {
    WSAPOLLFD entry{};
    entry.fd = native(socket);
    entry.events = forWriting ? static_cast<SHORT>(ReadEvents | WriteEvents) : ReadEvents;
    native_->entries.push_back(entry);
}

int PollSet::wait(int timeoutMs) {
    std::vector<WSAPOLLFD>& entries = native_->entries;
    const int count = socketFunctions.load(std::memory_order_acquire)->poll(entries.data(), entries.size(), timeoutMs);
    if (count >= 0 || ::WSAGetLastError() != WSAENOTSOCK) {
        return count;
    }
    // WSAPoll() fails when nothing in the set is a socket; poll() marks each entry so.
    for (WSAPOLLFD& entry : entries) {
        entry.revents = POLLNVAL;
    }
    return static_cast<int>(entries.size());
}

SocketEvents PollSet::getEvents(std::size_t index) const {
    const SHORT seen = native_->entries[index].revents;
    return {(seen & BrokenEvents) != 0, (seen & ReadEvents) != 0, (seen & WriteEvents) != 0};
}

} // namespace ql::impl
