#include "engine/Listener.h"

#include "engine/ListenEndpointData.h"
#include "engine/StartFailure.h"
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

void setOption(SOCKET socket, int level, int option, DWORD value) {
    (void)::setsockopt(socket, level, option, reinterpret_cast<const char*>(&value), sizeof value);
}

/// @return 0, or what the system says.
int listenAt(SOCKET socket, const SocketAddress& address, bool isForBoth, std::uint32_t backlog) {
    // Else another program could take the port as well.
    setOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
    if (address.family() == AF_INET6) {
        setOption(socket, IPPROTO_IPV6, IPV6_V6ONLY, isForBoth ? 0 : 1);
    }
    const bool listens = makeNonBlocking(socket) && ::bind(socket, address.get(), address.size()) == 0 &&
                         ::listen(socket, static_cast<int>(std::min<std::uint32_t>(backlog, INT_MAX))) == 0;
    return listens ? 0 : ::WSAGetLastError();
}

} // namespace

std::unique_ptr<Listener> Listener::Open(const ListenEndpointData& endpoint, std::uint32_t backlog,
                                         StartFailure& failure) {
    using Kind = ListenEndpointData::Kind;
    using StartError = http::HttpServer::StartError;
    if (endpoint.kind == Kind::Unix || endpoint.kind == Kind::Inherited) {
        failure = {StartError::InvalidAddress, "not on this system"};
        return nullptr;
    }
    const bool isForBoth = endpoint.kind == Kind::DualStack;
    const std::optional<SocketAddress> address =
        isForBoth ? SocketAddress::AnyIPv6(endpoint.port) : SocketAddress::Parse(endpoint.address, endpoint.port);
    if (!address) {
        failure = {StartError::InvalidAddress, "no IP address"};
        return nullptr;
    }
    // First what can fail without a trace: a socket must have somebody to close it.
    std::unique_ptr<Listener> listener(new Listener);
    const SOCKET opened = ::socket(address->family(), SOCK_STREAM, IPPROTO_TCP);
    listener->socket_ = static_cast<std::uint64_t>(opened);
    if (opened == INVALID_SOCKET) {
        failure = systemFailure(::WSAGetLastError());
        return nullptr;
    }
    if (const int error = listenAt(opened, *address, isForBoth, backlog); error != 0) {
        failure = systemFailure(error);
        return nullptr;
    }
    return listener;
}

Listener::~Listener() {
    closeSocket(socket_);
}

Listener::Outcome Listener::accept(AcceptedSocket& accepted) const {
    sockaddr* const address = accepted.address.edit();
    const SOCKET socket = ::accept(native(socket_), address, accepted.address.editSize());
    if (socket != INVALID_SOCKET) {
        makeNonBlocking(socket);
        accepted.socket = static_cast<std::uint64_t>(socket);
        accepted.address.unmap();
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
void Listener::refuseNew() {}

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
