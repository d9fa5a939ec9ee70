#include "websocket/TestSockets.h"

#include "vireo/support/SystemError.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace wstest {

namespace {

int native(std::uint64_t socket) {
    return static_cast<int>(socket);
}

int connectClient(const sockaddr_in& address) {
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ADD_FAILURE() << "no connection: " << ql::SystemError(errno).toString();
    }
    const timeval patience{60, 0};
    ::setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    const int on = 1;
    ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return client;
}

/// One listening socket for all pairs of the process.
class Listener {
public:
    Listener() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(socket_, 128) != 0 ||
            ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address_), &size) != 0) {
            ADD_FAILURE() << "no listening socket: " << ql::SystemError(errno).toString();
        }
    }
    ~Listener() { ::close(socket_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void connect(SocketPair& pair) {
        pair.client = static_cast<std::uint64_t>(connectClient(address_));
        const int server = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (server < 0) {
            ADD_FAILURE() << "no socket pair: " << ql::SystemError(errno).toString();
        }
        pair.server = static_cast<std::uint64_t>(server);
    }

private:
    const int socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address_{};
};

int errorCode(SocketError error) {
    switch (error) {
    case SocketError::WouldBlock:
        return EWOULDBLOCK;
    case SocketError::Interrupted:
        return EINTR;
    case SocketError::ConnectionReset:
        return ECONNRESET;
    case SocketError::InvalidArgument:
        return EINVAL;
    }
    return 0;
}

} // namespace

SocketPair::SocketPair() {
    static Listener listener;
    listener.connect(*this);
}

void SocketPair::resetClient() {
    const linger atOnce{1, 0};
    ::setsockopt(native(client), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    closeClient();
}

std::uint64_t connectTo(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return static_cast<std::uint64_t>(connectClient(address));
}

bool sendAll(std::uint64_t socket, const Bytes& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(native(socket), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

Bytes receiveExactly(std::uint64_t socket, std::size_t size) {
    Bytes bytes(size);
    std::size_t received = 0;
    while (received < size) {
        const ssize_t count = ::recv(native(socket), bytes.data() + received, size - received, 0);
        if (count <= 0) {
            break;
        }
        received += static_cast<std::size_t>(count);
    }
    bytes.resize(received);
    return bytes;
}

bool atEnd(std::uint64_t socket) {
    unsigned char byte = 0;
    const ssize_t count = ::recv(native(socket), &byte, 1, 0);
    return count == 0 || (count < 0 && errno == ECONNRESET);
}

void shutdownSending(std::uint64_t socket) {
    ::shutdown(native(socket), SHUT_WR);
}

void closeSocket(std::uint64_t socket) {
    ::close(native(socket));
}

void shrinkBuffers(std::uint64_t socket) {
    const int smallest = 1;
    ::setsockopt(native(socket), SOL_SOCKET, SO_SNDBUF, &smallest, sizeof smallest);
    ::setsockopt(native(socket), SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest);
}

bool hasSendDelay(std::uint64_t socket) {
    int noDelay = 0;
    socklen_t size = sizeof noDelay;
    ::getsockopt(native(socket), IPPROTO_TCP, TCP_NODELAY, &noDelay, &size);
    return noDelay == 0;
}

bool isEndOfSendingAHangUp() {
    return false;
}

bool allowSockets(std::size_t count) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < count) {
        limit.rlim_cur = count;
        return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
    }
    return true;
}

void setLastError(SocketError error) {
    errno = errorCode(error);
}

std::string errorText(SocketError error) {
    return ql::SystemError(errorCode(error)).toString();
}

std::vector<PollEntry> readPollEntries(const void* entries, std::size_t count) {
    const pollfd* first = static_cast<const pollfd*>(entries);
    std::vector<PollEntry> result;
    for (std::size_t i = 0; i < count; ++i) {
        result.push_back({static_cast<std::uint64_t>(first[i].fd), first[i].events});
    }
    return result;
}

void setPollEvent(void* entries, std::size_t index, PollEvent event) {
    short& seen = static_cast<pollfd*>(entries)[index].revents;
    switch (event) {
    case PollEvent::Error:
        seen = POLLERR;
        break;
    case PollEvent::HangUp:
        seen = POLLHUP;
        break;
    case PollEvent::NotASocket:
        seen = POLLNVAL;
        break;
    }
}

int readMask() {
    return POLLRDNORM | POLLRDBAND;
}

int readAndWriteMask() {
    return POLLRDNORM | POLLRDBAND | POLLWRNORM;
}

} // namespace wstest
