#include "vireo/app/Socket.h"

#include "app/sockets/SocketAccess.h"
#include "frame/NeverDestroyed.h"

namespace vireo {

namespace impl {

Socket SocketAccess::make(ql::http::WebSocketHandle handle) {
    Socket socket;
    socket.handle_ = std::make_shared<const ql::http::WebSocketHandle>(std::move(handle));
    return socket;
}

const ql::http::WebSocketHandle& SocketAccess::handle(const Socket& socket) {
    static ql::impl::NeverDestroyed<const ql::http::WebSocketHandle> none;
    return socket.handle_ ? *socket.handle_ : *none;
}

} // namespace impl

namespace {

SocketSend resultOf(ql::http::WebSocketSend sent) {
    switch (sent) {
    case ql::http::WebSocketSend::Queued:
        return SocketSend::Queued;
    case ql::http::WebSocketSend::Full:
        return SocketSend::Full;
    case ql::http::WebSocketSend::Closed:
        break;
    }
    return SocketSend::Closed;
}

} // namespace

using impl::SocketAccess;

Socket::Socket() = default;
Socket::Socket(const Socket& other) = default;
Socket& Socket::operator=(const Socket& other) = default;
Socket::~Socket() = default;

SocketSend Socket::send(std::string_view text) const {
    return resultOf(SocketAccess::handle(*this).sendText(text));
}

SocketSend Socket::sendBinary(std::span<const unsigned char> bytes) const {
    return resultOf(SocketAccess::handle(*this).sendBinary(bytes));
}

void Socket::ping() const {
    SocketAccess::handle(*this).ping();
}

void Socket::close(std::uint16_t code, std::string_view reason) const {
    SocketAccess::handle(*this).close(code, reason);
}

bool Socket::isOpen() const {
    return SocketAccess::handle(*this).isOpen();
}

std::uint64_t Socket::queuedBytes() const {
    return SocketAccess::handle(*this).queuedBytes();
}

} // namespace vireo
