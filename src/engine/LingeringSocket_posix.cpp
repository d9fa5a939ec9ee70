#include "engine/LingeringSocket.h"

#include "websocket/SocketPort.h"

#include <NativeSockets.h>

#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace ql::impl {

LingeringSocket::LingeringSocket(std::uint64_t socket) noexcept
    : socket_(static_cast<std::uint64_t>(::fcntl(static_cast<int>(socket), F_DUPFD_CLOEXEC, 0))) {
    if (isOpen()) {
        ::shutdown(static_cast<int>(socket_), SHUT_WR);
    }
}

LingeringSocket::~LingeringSocket() {
    if (isOpen()) {
        ::close(static_cast<int>(socket_));
    }
}

LingeringSocket::LingeringSocket(LingeringSocket&& other) noexcept
    : socket_(std::exchange(other.socket_, InvalidSocket)) {}

LingeringSocket& LingeringSocket::operator=(LingeringSocket&& other) noexcept {
    std::swap(socket_, other.socket_);
    return *this;
}

bool LingeringSocket::isOpen() const {
    return socket_ != InvalidSocket;
}

} // namespace ql::impl
