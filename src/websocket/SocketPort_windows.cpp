#include "websocket/SocketPort.h"

#include <NativeSockets.h>

#include <algorithm>
#include <array>
#include <limits>
#include <thread>

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
// And a single receiving or sending call cannot be told not to block: prepareSocket() makes the socket so.
// (ReceivingFromABlockingSocketNeverBlocks, SendingToABlockingSocketNeverBlocks)

namespace ql::impl {

namespace {

SOCKET native(std::uint64_t socket) {
    return static_cast<SOCKET>(socket);
}

/// The buffers as the system takes them.
class NativeBuffers {
public:
    explicit NativeBuffers(SocketBuffers buffers) : count_(std::min(buffers.size(), parts_.size())) {
        constexpr std::uint64_t Most = std::numeric_limits<ULONG>::max();
        for (std::size_t i = 0; i < count_; ++i) {
            parts_[i].buf = reinterpret_cast<char*>(buffers[i].data);
            parts_[i].len = static_cast<ULONG>(std::min(buffers[i].size, Most));
        }
    }

    WSABUF* data() { return parts_.data(); }
    DWORD count() const { return static_cast<DWORD>(count_); }

private:
    const std::size_t count_;
    std::array<WSABUF, MostSocketBuffers> parts_;
};

std::int64_t systemReceive(std::uint64_t socket, SocketBuffers buffers) {
    NativeBuffers room(buffers);
    DWORD received = 0;
    DWORD flags = 0;
    const int result = ::WSARecv(native(socket), room.data(), room.count(), &received, &flags, nullptr, nullptr);
    return result == 0 ? static_cast<std::int64_t>(received) : -1;
}

std::int64_t systemSend(std::uint64_t socket, SocketBuffers buffers) {
    NativeBuffers bytes(buffers);
    DWORD sent = 0;
    const int result = ::WSASend(native(socket), bytes.data(), bytes.count(), &sent, 0, nullptr, nullptr);
    return result == 0 ? static_cast<std::int64_t>(sent) : -1;
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

std::int64_t receiveFromSocket(std::uint64_t socket, SocketBuffers buffers) {
    return socketFunctions.load(std::memory_order_acquire)->receive(socket, buffers);
}

std::int64_t sendToSocket(std::uint64_t socket, SocketBuffers buffers) {
    return socketFunctions.load(std::memory_order_acquire)->send(socket, buffers);
}

int lastSocketError() {
    return ::WSAGetLastError();
}

bool isWouldBlock(int error) {
    return error == WSAEWOULDBLOCK;
}

int pollSockets(void* entries, std::size_t count, int timeoutMs) {
    const int result = socketFunctions.load(std::memory_order_acquire)->poll(entries, count, timeoutMs);
    if (result >= 0 || ::WSAGetLastError() != WSAENOTSOCK) {
        return result;
    }
    for (WSAPOLLFD& entry : std::span(static_cast<WSAPOLLFD*>(entries), count)) {
        entry.revents = POLLNVAL;
    }
    return static_cast<int>(count);
}

// There are no pipes among the sockets: a datagram that a socket sends to itself does the same. It takes none from
// others, being connected.

WakeSignal::~WakeSignal() {
    if (readEnd_ != InvalidSocket) {
        ::closesocket(native(readEnd_));
    }
}

void WakeSignal::open() {
    if (readEnd_ != InvalidSocket) {
        return;
    }
    const SOCKET opened = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (opened == INVALID_SOCKET) {
        return;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr* const own = reinterpret_cast<sockaddr*>(&address);
    int size = sizeof address;
    u_long nonBlocking = 1;
    if (::bind(opened, own, size) != 0 || ::getsockname(opened, own, &size) != 0 || ::connect(opened, own, size) != 0 ||
        ::ioctlsocket(opened, static_cast<long>(FIONBIO), &nonBlocking) != 0) {
        ::closesocket(opened);
        return;
    }
    readEnd_ = static_cast<std::uint64_t>(opened);
    writeEnd_ = readEnd_;
}

void WakeSignal::raise() const {
    const char mark = 0;
    // Wine refuses it while another thread's send() has yet to return, although what that one sent may be received by
    // now. A full queue is no reason to: the datagram is dropped then, and those before it wake.
    while (::send(native(writeEnd_), &mark, sizeof mark, 0) < 0 && isWouldBlock(lastSocketError())) {
        std::this_thread::yield();
    }
}

void WakeSignal::lower() const {
    char mark = 0;
    while (::recv(native(readEnd_), &mark, sizeof mark, 0) > 0) {
    }
}

} // namespace ql::impl
