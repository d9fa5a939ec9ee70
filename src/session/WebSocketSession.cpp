#include "vireo/WebSocketSession.h"

#include "session/SessionCore.h"

#include <memory>

namespace ql::http {

WebSocketSession::WebSocketSession() : core_(std::make_shared<impl::SessionCore>()) {}

WebSocketSession::~WebSocketSession() {
    core_->forgetSession();
}

void WebSocketSession::onOpen() {}

void WebSocketSession::onText(std::string_view /*text*/) {}

void WebSocketSession::onBinary(std::span<const unsigned char> /*bytes*/) {}

void WebSocketSession::onPiece(std::span<const unsigned char> /*piece*/, bool /*isText*/, bool /*isLast*/) {}

void WebSocketSession::onPong(std::span<const unsigned char> /*payload*/) {}

void WebSocketSession::onDrained() {}

void WebSocketSession::onClose(std::uint16_t /*code*/, std::string_view /*reason*/, bool /*isClean*/) {}

void WebSocketSession::reserved1() {}

void WebSocketSession::reserved2() {}

void WebSocketSession::reserved3() {}

void WebSocketSession::reserved4() {}

WebSocketHandle WebSocketSession::getHandle() const {
    return WebSocketHandle(core_);
}

WebSocketSend WebSocketSession::sendText(std::string_view text) const {
    return getHandle().sendText(text);
}

WebSocketSend WebSocketSession::sendBinary(std::span<const unsigned char> bytes) const {
    return getHandle().sendBinary(bytes);
}

WebSocketSend WebSocketSession::send(const WebSocketMessage& message) const {
    return getHandle().send(message);
}

WebSocketSend WebSocketSession::ping(std::string_view payload) const {
    return getHandle().ping(payload);
}

WebSocketWriter WebSocketSession::beginText() const {
    return getHandle().beginText();
}

WebSocketWriter WebSocketSession::beginBinary() const {
    return getHandle().beginBinary();
}

void WebSocketSession::close(std::uint16_t code, std::string_view reason) const {
    getHandle().close(code, reason);
}

std::uint64_t WebSocketSession::queuedBytes() const {
    return getHandle().queuedBytes();
}

} // namespace ql::http
