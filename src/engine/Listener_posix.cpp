#include "engine/Listener.h"

#include "engine/ListenEndpointData.h"
#include "engine/StartFailure.h"
#include "engine/UnixSocketFile.h"
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
using StartError = http::HttpServer::StartError;

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

/// @param socket what is opened, whether or not it comes to listen.
StartFailure openTcp(const ListenEndpointData& endpoint, int backlog, std::uint64_t& socket) {
    const bool isForBoth = endpoint.kind == Kind::DualStack;
    const std::optional<SocketAddress> address =
        isForBoth ? SocketAddress::AnyIPv6(endpoint.port) : SocketAddress::Parse(endpoint.address, endpoint.port);
    if (!address) {
        return {StartError::InvalidAddress, "no IP address"};
    }
    const int opened = ::socket(address->family(), SOCK_STREAM, 0);
    socket = static_cast<std::uint64_t>(opened);
    if (opened < 0) {
        return systemFailure(errno);
    }
    makeNonBlocking(opened);
    // Else connections of an earlier run that are not forgotten yet would keep the port.
    setOption(opened, SOL_SOCKET, SO_REUSEADDR, 1);
    if (address->family() == AF_INET6) {
        setOption(opened, IPPROTO_IPV6, IPV6_V6ONLY, isForBoth ? 0 : 1);
    }
    const bool listens = ::bind(opened, address->get(), address->size()) == 0 && ::listen(opened, backlog) == 0;
    return listens ? StartFailure{} : systemFailure(errno);
}

/// @param socket as for openTcp().
StartFailure openUnix(const ListenEndpointData& endpoint, int backlog, std::uint64_t& socket,
                      std::shared_ptr<UnixSocketFile>& file) {
    const int opened = ::socket(AF_UNIX, SOCK_STREAM, 0);
    socket = static_cast<std::uint64_t>(opened);
    if (opened < 0) {
        return systemFailure(errno);
    }
    makeNonBlocking(opened);
    StartFailure failure;
    file = UnixSocketFile::Listen(opened, endpoint.address, endpoint.mode, backlog, failure);
    return failure;
}

int optionOf(int socket, int option) {
    int value = 0;
    socklen_t size = sizeof value;
    return ::getsockopt(socket, SOL_SOCKET, option, &value, &size) == 0 ? value : 0;
}

/// @param socket as for openTcp(): a duplicate, so that the original stays its owner's.
StartFailure openInherited(const ListenEndpointData& endpoint, std::uint64_t& socket) {
    const bool isNumber = endpoint.socket <= INT_MAX;
    const int opened = isNumber ? ::fcntl(native(endpoint.socket), F_DUPFD_CLOEXEC, 0) : -1;
    socket = static_cast<std::uint64_t>(opened);
    if (opened < 0) {
        return isNumber && errno != EBADF ? systemFailure(errno)
                                          : StartFailure{StartError::InvalidAddress, "no open descriptor"};
    }
    const int family = SocketAddress::OfSocket(socket).family();
    if (optionOf(opened, SO_TYPE) != SOCK_STREAM || optionOf(opened, SO_ACCEPTCONN) == 0 ||
        (family != AF_INET && family != AF_INET6 && family != AF_UNIX)) {
        return {StartError::InvalidAddress, "no socket that listens for connections"};
    }
    makeNonBlocking(opened);
    return {};
}

} // namespace

std::unique_ptr<Listener> Listener::Open(const ListenEndpointData& endpoint, std::uint32_t backlog,
                                         StartFailure& failure) {
    const int waiting = static_cast<int>(std::min<std::uint32_t>(backlog, INT_MAX));
    // First what can fail without a trace: a socket must have somebody to close it.
    std::unique_ptr<Listener> listener(new Listener);
    switch (endpoint.kind) {
    case Kind::Tcp:
    case Kind::DualStack:
        failure = openTcp(endpoint, waiting, listener->socket_);
        break;
    case Kind::Unix:
        failure = openUnix(endpoint, waiting, listener->socket_, listener->file_);
        break;
    case Kind::Inherited:
        listener->isShared_ = true;
        failure = openInherited(endpoint, listener->socket_);
        break;
    }
    return failure.error == StartError::None ? std::move(listener) : nullptr;
}

Listener::~Listener() {
    // While it still listens: nobody can take the file for one that was left behind, and take its place.
    file_.reset();
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
    if (isShared_) {
        return;
    }
    file_.reset();
#ifdef __linux__
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
