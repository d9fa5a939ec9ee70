#include "support/RawSocket.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace vireotest {

namespace {

int fd(std::uintptr_t handle) {
    return static_cast<int>(handle);
}

struct Address {
    sockaddr_storage storage{};
    socklen_t size = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

template <typename Native>
Address addressFrom(const Native& native) {
    Address address;
    std::memcpy(&address.storage, &native, sizeof native);
    address.size = sizeof native;
    return address;
}

Address addressOfFile(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return addressFrom(address);
}

Address addressOf(const std::string& host, std::uint16_t port) {
    if (host.find('/') != std::string::npos) {
        return addressOfFile(host);
    }
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = htons(port);
    if (inet_pton(AF_INET, host.c_str(), &ipv4.sin_addr) == 1) {
        return addressFrom(ipv4);
    }
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(port);
    if (inet_pton(AF_INET6, host.c_str(), &ipv6.sin6_addr) == 1) {
        return addressFrom(ipv6);
    }
    throw std::invalid_argument("not an address: " + host);
}

/// @return false when the deadline passes first.
bool waitFor(int socket, short events, Deadline deadline) {
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        pollfd entry{socket, events, 0};
        if (::poll(&entry, 1, static_cast<int>(left.count())) > 0) {
            return true;
        }
    }
}

bool wouldBlock() {
    return errno == EAGAIN || errno == EINTR;
}

void setFlag(int socket, int level, int option) {
    const int on = 1;
    ::setsockopt(socket, level, option, &on, sizeof on);
}

} // namespace

RawSocket::~RawSocket() {
    close();
}

RawSocket::RawSocket(RawSocket&& other) noexcept : handle_(std::exchange(other.handle_, Closed)) {}

RawSocket& RawSocket::operator=(RawSocket&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
}

RawSocket RawSocket::Connect(const std::string& host, std::uint16_t port, int receiveBufferBytes) {
    const Address address = addressOf(host, port);
    const int socket = ::socket(address.get()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        throw std::runtime_error("no socket");
    }
    setFlag(socket, IPPROTO_TCP, TCP_NODELAY);
    if (receiveBufferBytes != 0) {
        ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
        // What the peer's system keeps for this one grows with the segments, which are large on the loopback interface.
        const int segmentBytes = 1400;
        ::setsockopt(socket, IPPROTO_TCP, TCP_MAXSEG, &segmentBytes, sizeof segmentBytes);
    }
    RawSocket connected(static_cast<std::uintptr_t>(socket));
    if (::connect(socket, address.get(), address.size) != 0) {
        return {};
    }
    ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
    return connected;
}

RawSocket::Result RawSocket::send(const char* data, std::size_t size, Deadline deadline) {
    while (isOpen()) {
        const ssize_t sent = ::send(fd(handle_), data, size, MSG_NOSIGNAL);
        if (sent >= 0) {
            return {Status::Done, static_cast<std::size_t>(sent)};
        }
        if (!wouldBlock()) {
            break;
        }
        if (!waitFor(fd(handle_), POLLOUT, deadline)) {
            return {Status::TimedOut, 0};
        }
    }
    return {Status::Broken, 0};
}

RawSocket::Result RawSocket::receive(char* data, std::size_t size, Deadline deadline) {
    while (isOpen()) {
        const ssize_t received = ::recv(fd(handle_), data, size, 0);
        if (received >= 0) {
            return {received == 0 ? Status::End : Status::Done, static_cast<std::size_t>(received)};
        }
        if (!wouldBlock()) {
            break;
        }
        if (!waitFor(fd(handle_), POLLIN, deadline)) {
            return {Status::TimedOut, 0};
        }
    }
    return {Status::Broken, 0};
}

void RawSocket::endSending() {
    ::shutdown(fd(handle_), SHUT_WR);
}

void RawSocket::reset() {
    const linger atOnce{1, 0};
    ::setsockopt(fd(handle_), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close();
}

void RawSocket::close() {
    if (isOpen()) {
        ::close(fd(std::exchange(handle_, Closed)));
    }
}

bool hasIPv6() {
    const Address address = addressOf("::1", 0);
    const int socket = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isThere = ::bind(socket, address.get(), address.size) == 0;
    ::close(socket);
    return isThere;
}

bool isPortFree(std::uint16_t port) {
    const Address address = addressOf("127.0.0.1", port);
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // As the engine does: connections of an earlier listener that linger on the port don't matter.
    setFlag(socket, SOL_SOCKET, SO_REUSEADDR);
    const bool isFree = ::bind(socket, address.get(), address.size) == 0 && ::listen(socket, 1) == 0;
    ::close(socket);
    return isFree;
}

bool isEndOfSendingAHangUp() {
    return false;
}

bool allowDescriptors(std::size_t count) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < count) {
        limit.rlim_cur = count;
        return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
    }
    return true;
}

unsigned long currentProcessId() {
    return static_cast<unsigned long>(::getpid());
}

std::uint64_t residentMemoryBytes() {
    // The second number counts resident pages.
    std::ifstream statm("/proc/self/statm");
    std::uint64_t total = 0;
    std::uint64_t resident = 0;
    if (!(statm >> total >> resident)) {
        throw std::runtime_error("no memory statistics");
    }
    return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::size_t openHandles() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

void letBrokenPipesKill() {
    std::signal(SIGPIPE, SIG_DFL);
}

} // namespace vireotest
