#include "websocket/SocketPort.h"

#include <NativeSockets.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/uio.h>
#include <unistd.h>

namespace ql::impl {

namespace {

int native(std::uint64_t socket) {
    return static_cast<int>(socket);
}

/// A message header over the buffers; lives as long as the object.
class Message {
public:
    explicit Message(SocketBuffers buffers) {
        header_.msg_iov = parts_.data();
        header_.msg_iovlen = std::min(buffers.size(), parts_.size());
        for (std::size_t i = 0; i < header_.msg_iovlen; ++i) {
            parts_[i] = {buffers[i].data, static_cast<std::size_t>(buffers[i].size)};
        }
    }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    msghdr* header() { return &header_; }

private:
    msghdr header_{};
    std::array<iovec, MostSocketBuffers> parts_;
};

std::int64_t systemReceive(std::uint64_t socket, SocketBuffers buffers) {
    return ::recvmsg(native(socket), Message(buffers).header(), MSG_DONTWAIT);
}

std::int64_t systemSend(std::uint64_t socket, SocketBuffers buffers) {
    return ::sendmsg(native(socket), Message(buffers).header(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

int systemPoll(void* entries, std::size_t count, int timeoutMs) {
    return ::poll(static_cast<pollfd*>(entries), static_cast<nfds_t>(count), timeoutMs);
}

} // namespace

const SocketFunctions systemSocketFunctions = {&systemReceive, &systemSend, &systemPoll};
std::atomic<const SocketFunctions*> socketFunctions{&systemSocketFunctions};

void prepareSocket(std::uint64_t socket) {
    const int on = 1;
    (void)::setsockopt(native(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

std::int64_t receiveFromSocket(std::uint64_t socket, SocketBuffers buffers) {
    std::int64_t result = 0;
    do {
        result = socketFunctions.load(std::memory_order_acquire)->receive(socket, buffers);
    } while (result < 0 && errno == EINTR);
    return result;
}

std::int64_t sendToSocket(std::uint64_t socket, SocketBuffers buffers) {
    std::int64_t result = 0;
    do {
        result = socketFunctions.load(std::memory_order_acquire)->send(socket, buffers);
    } while (result < 0 && errno == EINTR);
    return result;
}

int lastSocketError() {
    return errno;
}

bool isWouldBlock(int error) {
#if EAGAIN == EWOULDBLOCK
    return error == EWOULDBLOCK;
#else
    return error == EWOULDBLOCK || error == EAGAIN;
#endif
}

int pollSockets(void* entries, std::size_t count, int timeoutMs) {
    const int result = socketFunctions.load(std::memory_order_acquire)->poll(entries, count, timeoutMs);
    if (result >= 0 || errno != EINTR) {
        return result;
    }
    // Waiting on would give a program with a profiling timer an endless cycle, in which the set is never renewed.
    for (pollfd& entry : std::span(static_cast<pollfd*>(entries), count)) {
        entry.revents = 0;
    }
    return 0;
}

WakeSignal::~WakeSignal() {
    if (readEnd_ != InvalidSocket) {
        ::close(native(readEnd_));
        ::close(native(writeEnd_));
    }
}

void WakeSignal::open() {
    int ends[2];
    if (readEnd_ != InvalidSocket || ::pipe(ends) != 0) {
        return;
    }
    for (const int end : ends) {
        (void)::fcntl(end, F_SETFL, O_NONBLOCK);
        (void)::fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    readEnd_ = static_cast<std::uint64_t>(ends[0]);
    writeEnd_ = static_cast<std::uint64_t>(ends[1]);
}

void WakeSignal::raise() const {
    const char mark = 0;
    // A full pipe is a raised signal as well.
    [[maybe_unused]] const ssize_t written = ::write(native(writeEnd_), &mark, sizeof mark);
}

void WakeSignal::lower() const {
    std::array<char, 64> marks;
    while (::read(native(readEnd_), marks.data(), marks.size()) == static_cast<ssize_t>(marks.size())) {
    }
}

} // namespace ql::impl
