#include "websocket/SocketPort.h"

#include <NativeSockets.h>

#include <cerrno>
#include <netinet/tcp.h>
#include <poll.h>
#include <vector>

namespace ql::impl {

namespace {

constexpr short ReadEvents = POLLRDNORM | POLLRDBAND;
constexpr short WriteEvents = POLLWRNORM;
constexpr short BrokenEvents = POLLERR | POLLHUP;

int native(std::uint64_t socket) {
    return static_cast<int>(socket);
}

std::int64_t systemReceive(std::uint64_t socket, void* data, std::uint64_t size) {
    return ::recv(native(socket), data, size, MSG_DONTWAIT);
}

std::int64_t systemSend(std::uint64_t socket, const void* data, std::uint64_t size) {
    return ::send(native(socket), data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
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

std::int64_t receiveFromSocket(std::uint64_t socket, void* data, std::uint64_t size) {
    std::int64_t result = 0;
    do {
        result = socketFunctions.load(std::memory_order_acquire)->receive(socket, data, size);
    } while (result < 0 && errno == EINTR);
    return result;
}

std::int64_t sendToSocket(std::uint64_t socket, const void* data, std::uint64_t size) {
    std::int64_t result = 0;
    do {
        result = socketFunctions.load(std::memory_order_acquire)->send(socket, data, size);
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

struct PollSet::Native {
    std::vector<pollfd> entries;
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
    pollfd entry{};
    entry.fd = native(socket);
    entry.events = forWriting ? static_cast<short>(ReadEvents | WriteEvents) : ReadEvents;
    native_->entries.push_back(entry);
}

int PollSet::wait(int timeoutMs) {
    std::vector<pollfd>& entries = native_->entries;
    const int count = socketFunctions.load(std::memory_order_acquire)->poll(entries.data(), entries.size(), timeoutMs);
    if (count >= 0 || errno != EINTR) {
        return count;
    }
    // Waiting on would give a program with a profiling timer an endless cycle, in which the set is never renewed.
    for (pollfd& entry : entries) {
        entry.revents = 0;
    }
    return 0;
}

SocketEvents PollSet::getEvents(std::size_t index) const {
    const short seen = native_->entries[index].revents;
    return {(seen & BrokenEvents) != 0, (seen & ReadEvents) != 0, (seen & WriteEvents) != 0};
}

} // namespace ql::impl
