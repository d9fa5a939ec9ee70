#include "engine/Listener.h"

#include "engine/ListenAddress.h"
#include "websocket/SocketPort.h"

#include <algorithm>
#include <climits>

namespace ql::impl {

namespace {

SOCKET native(std::uint64_t socket) {
    return static_cast<SOCKET>(socket);
}

bool makeNonBlocking(SOCKET socket) {
    u_long nonBlocking = 1;
    return ::ioctlsocket(socket, static_cast<long>(FIONBIO), &nonBlocking) == 0;
}

bool listenOn(SOCKET socket, std::uint16_t port, bool onAllInterfaces, std::uint32_t backlog) {
    const sockaddr_in address = listenAddress(port, onAllInterfaces);
    const BOOL on = TRUE;
    // Else another program could take the port as well.
    (void)::setsockopt(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&on), sizeof on);
    return makeNonBlocking(socket) &&
           ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
           ::listen(socket, static_cast<int>(std::min<std::uint32_t>(backlog, INT_MAX))) == 0;
}

} // namespace

std::unique_ptr<Listener> Listener::Open(std::uint16_t port, bool onAllInterfaces, std::uint32_t backlog, int& error) {
    // First what can fail without a trace: a socket must have somebody to close it.
    std::unique_ptr<Listener> listener(new Listener);
    const SOCKET opened = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    listener->socket_ = static_cast<std::uint64_t>(opened);
    if (opened == INVALID_SOCKET) {
        error = ::WSAGetLastError();
        return nullptr;
    }
    if (!listenOn(opened, port, onAllInterfaces, backlog)) {
        error = ::WSAGetLastError();
        return nullptr;
    }
    return listener;
}

Listener::~Listener() {
    closeSocket(socket_);
}

std::uint16_t Listener::port() const {
    sockaddr_in address{};
    int size = sizeof address;
    (void)::getsockname(native(socket_), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

Listener::Outcome Listener::accept(AcceptedSocket& accepted) const {
    int size = sizeof accepted.address;
    const SOCKET socket = ::accept(native(socket_), reinterpret_cast<sockaddr*>(&accepted.address), &size);
    if (socket != INVALID_SOCKET) {
        makeNonBlocking(socket);
        accepted.socket = static_cast<std::uint64_t>(socket);
        return Outcome::Accepted;
    }
    switch (::WSAGetLastError()) {
    case WSAEWOULDBLOCK:
        return Outcome::NoneWaiting;
    case WSAECONNRESET:
    case WSAENOTCONN: // of Wine, for the same
        return Outcome::TryAgain;
    default:
        return Outcome::Failed;
    }
}

// The system has no such filter.
void Listener::refuseNew() const {}

void closeSocket(std::uint64_t socket) {
    ::closesocket(native(socket));
}

void endSending(std::uint64_t socket) {
    ::shutdown(native(socket), SD_SEND);
}

std::size_t unreadBytes(std::uint64_t socket) {
    u_long count = 0;
    return ::ioctlsocket(native(socket), static_cast<long>(FIONREAD), &count) == 0 ? count : 0;
}

} // namespace ql::impl
