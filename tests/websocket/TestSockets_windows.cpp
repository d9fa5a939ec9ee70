#include "websocket/TestSockets.h"

#include "frame/SocketSystem.h"
#include "vireo/support/SystemError.h"

#include <NativeSockets.h>
#include <gtest/gtest.h>

#include <limits>

namespace wstest {

namespace {

/// Before the first socket call of any test, those on no socket among them. Never undone: the process ends with it.
const bool socketSystemStarted = ql::impl::startSocketSystem();

SOCKET native(std::uint64_t socket) {
    return static_cast<SOCKET>(socket);
}

template <typename Value>
void setOption(SOCKET socket, int level, int name, const Value& value) {
    ::setsockopt(socket, level, name, reinterpret_cast<const char*>(&value), sizeof value);
}

SOCKET connectClient(const sockaddr_in& address) {
    const SOCKET client = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ADD_FAILURE() << "no connection: " << ql::SystemError(::WSAGetLastError()).toString();
    }
    const DWORD patienceMs = 60000;
    setOption(client, SOL_SOCKET, SO_RCVTIMEO, patienceMs);
    setOption(client, SOL_SOCKET, SO_SNDTIMEO, patienceMs);
    const BOOL on = TRUE;
    setOption(client, IPPROTO_TCP, TCP_NODELAY, on);
    return client;
}

/// One listening socket for all pairs of the process.
class Listener {
public:
    Listener() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int size = sizeof address;
        if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(socket_, 128) != 0 ||
            ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address_), &size) != 0) {
            ADD_FAILURE() << "no listening socket: " << ql::SystemError(::WSAGetLastError()).toString();
        }
    }
    ~Listener() { ::closesocket(socket_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void connect(SocketPair& pair) {
        const SOCKET client = connectClient(address_);
        const SOCKET server = ::accept(socket_, nullptr, nullptr);
        if (server == INVALID_SOCKET) {
            ADD_FAILURE() << "no socket pair: " << ql::SystemError(::WSAGetLastError()).toString();
        }
        pair.client = client;
        pair.server = server;
    }

private:
    const SOCKET socket_ = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address_{};
};

int errorCode(SocketError error) {
    switch (error) {
    case SocketError::WouldBlock:
        return WSAEWOULDBLOCK;
    case SocketError::Interrupted:
        return WSAEINTR;
    case SocketError::ConnectionReset:
        return WSAECONNRESET;
    case SocketError::InvalidArgument:
        return WSAEINVAL;
    }
    return 0;
}

int clampSize(std::size_t size) {
    constexpr std::size_t Most = std::numeric_limits<int>::max();
    return static_cast<int>(size < Most ? size : Most);
}

} // namespace

SocketPair::SocketPair() {
    static Listener listener;
    listener.connect(*this);
}

void SocketPair::resetClient() {
    const linger atOnce{1, 0};
    setOption(native(client), SOL_SOCKET, SO_LINGER, atOnce);
    closeClient();
}

std::uint64_t connectTo(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return connectClient(address);
}

bool sendAll(std::uint64_t socket, const Bytes& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const int count = ::send(native(socket), reinterpret_cast<const char*>(bytes.data()) + sent,
                                 clampSize(bytes.size() - sent), 0);
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
        const int count =
            ::recv(native(socket), reinterpret_cast<char*>(bytes.data()) + received, clampSize(size - received), 0);
        if (count <= 0) {
            break;
        }
        received += static_cast<std::size_t>(count);
    }
    bytes.resize(received);
    return bytes;
}

bool atEnd(std::uint64_t socket) {
    char byte = 0;
    const int count = ::recv(native(socket), &byte, 1, 0);
    return count == 0 || (count < 0 && ::WSAGetLastError() == WSAECONNRESET);
}

void shutdownSending(std::uint64_t socket) {
    ::shutdown(native(socket), SD_SEND);
}

void closeSocket(std::uint64_t socket) {
    ::closesocket(native(socket));
}

void shrinkBuffers(std::uint64_t socket) {
    const int smallest = 1;
    setOption(native(socket), SOL_SOCKET, SO_SNDBUF, smallest);
    setOption(native(socket), SOL_SOCKET, SO_RCVBUF, smallest);
}

bool hasSendDelay(std::uint64_t socket) {
    BOOL noDelay = FALSE;
    int size = sizeof noDelay;
    ::getsockopt(native(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char*>(&noDelay), &size);
    return noDelay == FALSE;
}

bool isEndOfSendingAHangUp() {
    return true;
}

bool allowSockets(std::size_t) {
    return socketSystemStarted;
}

void setLastError(SocketError error) {
    ::WSASetLastError(errorCode(error));
}

std::string errorText(SocketError error) {
    return ql::SystemError(errorCode(error)).toString();
}

std::vector<PollEntry> readPollEntries(const void* entries, std::size_t count) {
    const WSAPOLLFD* first = static_cast<const WSAPOLLFD*>(entries);
    std::vector<PollEntry> result;
    for (std::size_t i = 0; i < count; ++i) {
        result.push_back({first[i].fd, first[i].events});
    }
    return result;
}

void setPollEvent(void* entries, std::size_t index, PollEvent event) {
    SHORT& seen = static_cast<WSAPOLLFD*>(entries)[index].revents;
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
