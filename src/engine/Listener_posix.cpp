#include "engine/Listener.h"

#include "engine/ListenEndpointData.h"
#include "engine/StartFailure.h"
#include "vireo/support/SystemError.h"
#include "websocket/SocketPort.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#ifdef __linux__
#    include <linux/filter.h>
#endif

namespace ql::impl {

namespace {

using Kind = ListenEndpointData::Kind;

int native(std::uint64_t socket) {
    return static_cast<int>(socket);
}

void makeNonBlocking(int socket) {
    (void)::fcntl(socket, F_SETFL, O_NONBLOCK);
    (void)::fcntl(socket, F_SETFD, FD_CLOEXEC);
}

void setOption(int socket, int level, int option, int value) {
    (void)::setsockopt(socket, level, option, &value, sizeof value);
}

/// @return 0, or what the system says.
int listenAt(int socket, const SocketAddress& address, bool isForBoth, std::uint32_t backlog) {
    // Else connections of an earlier run that are not forgotten yet would keep the port.
    setOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
    if (address.family() == AF_INET6) {
        setOption(socket, IPPROTO_IPV6, IPV6_V6ONLY, isForBoth ? 0 : 1);
    }
    const bool listens = ::bind(socket, address.get(), address.size()) == 0 &&
                         ::listen(socket, static_cast<int>(std::min<std::uint32_t>(backlog, INT_MAX))) == 0;
    return listens ? 0 : errno;
}

} // namespace

std::unique_ptr<Listener> Listener::Open(const ListenEndpointData& endpoint, std::uint32_t backlog,
                                         StartFailure& failure) {
    const bool isForBoth = endpoint.kind == Kind::DualStack;
    const std::optional<SocketAddress> address =
        isForBoth ? SocketAddress::AnyIPv6(endpoint.port) : SocketAddress::Parse(endpoint.address, endpoint.port);
    if (!address) {
        failure = {http::HttpServer::StartError::InvalidAddress, "no IP address"};
        return nullptr;
    }
    // First what can fail without a trace: a socket must have somebody to close it.
    std::unique_ptr<Listener> listener(new Listener);
    const int opened = ::socket(address->family(), SOCK_STREAM, 0);
    listener->socket_ = static_cast<std::uint64_t>(opened);
    if (opened < 0) {
        failure = systemFailure(errno);
        return nullptr;
    }
    makeNonBlocking(opened);
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
    const int socket = ::accept(native(socket_), address, accepted.address.editSize());
    if (socket >= 0) {
        makeNonBlocking(socket);
        accepted.socket = static_cast<std::uint64_t>(socket);
        accepted.address.unmap();
        return Outcome::Accepted;
    }
    if (isWouldBlock(errno)) {
        return Outcome::NoneWaiting;
    }
    switch (errno) {
    case EINTR:
    case ECONNABORTED:
    case EPROTO:
    case EPERM:
    // Errors of the network that the connection has already.
    case ENETDOWN:
    case ENETUNREACH:
    case EHOSTUNREACH:
    case ETIMEDOUT:
        return Outcome::TryAgain;
    default:
        return Outcome::Failed;
    }
}

void Listener::refuseNew() {
#ifdef __linux__
    if (isShared_) {
        return;
    }
    // Drops the first packet of each new connection, which its client sends again later, and lets the others through:
    // a listener that is closed would reset who has connected and is not accepted yet.
    constexpr std::uint32_t FlagsOffset = 13;
    constexpr std::uint32_t SynFlag = 2;
    constexpr std::uint32_t AckFlag = 16;
    std::array<sock_filter, 5> program{{
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, FlagsOffset),
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, SynFlag | AckFlag),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SynFlag, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0),
        BPF_STMT(BPF_RET | BPF_K, UINT_MAX),
    }};
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    (void)::setsockopt(native(socket_), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
#endif
}

void closeSocket(std::uint64_t socket) {
    ::close(native(socket));
}

void endSending(std::uint64_t socket) {
    ::shutdown(native(socket), SHUT_WR);
}

std::size_t unreadBytes(std::uint64_t socket) {
    int count = 0;
    return ::ioctl(native(socket), FIONREAD, &count) == 0 && count > 0 ? static_cast<std::size_t>(count) : 0;
}

} // namespace ql::impl
