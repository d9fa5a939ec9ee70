#include "vireo/WebSocketHandle.h"

#include "frame/InvalidArgument.h"
#include "frame/Utf8.h"
#include "session/CloseCode.h"
#include "session/PayloadBytes.h"
#include "session/SessionCore.h"
#include "session/SharedMessage.h"
#include "session/WriterState.h"
#include "vireo/WebSocketMessage.h"

#include <cstddef>
#include <string>
#include <utility>

namespace ql::http {

namespace {

constexpr std::size_t MostControlBytes = 125;
constexpr std::size_t MostReasonBytes = MostControlBytes - sizeof(std::uint16_t);

void requireCloseArguments(std::uint16_t code, std::string_view reason) {
    if (!impl::CloseCode::mayBeSent(code)) {
        impl::throwInvalidArgument("no code to close a WebSocket with: " + std::to_string(code));
    }
    if (reason.size() > MostReasonBytes) {
        impl::throwInvalidArgument("the reason for closing a WebSocket is too long");
    }
    impl::requireUtf8(reason);
}

} // namespace

WebSocketHandle::WebSocketHandle() = default;
WebSocketHandle::WebSocketHandle(const WebSocketHandle& other) = default;
WebSocketHandle::WebSocketHandle(WebSocketHandle&& other) noexcept = default;
WebSocketHandle& WebSocketHandle::operator=(const WebSocketHandle& other) = default;
WebSocketHandle& WebSocketHandle::operator=(WebSocketHandle&& other) noexcept = default;
WebSocketHandle::~WebSocketHandle() = default;

WebSocketHandle::WebSocketHandle(std::shared_ptr<impl::SessionCore> core) : core_(std::move(core)) {}

WebSocketSend WebSocketHandle::sendText(std::string_view text) const {
    impl::requireUtf8(text);
    return core_ ? core_->sendMessage(true, impl::bytesOf(text)) : WebSocketSend::Closed;
}

WebSocketSend WebSocketHandle::sendBinary(std::span<const unsigned char> bytes) const {
    return core_ ? core_->sendMessage(false, bytes) : WebSocketSend::Closed;
}

WebSocketSend WebSocketHandle::send(const WebSocketMessage& message) const {
    return core_ ? core_->send(impl::SharedMessage::Of(message)) : WebSocketSend::Closed;
}

WebSocketSend WebSocketHandle::ping(std::string_view payload) const {
    if (payload.size() > MostControlBytes) {
        impl::throwInvalidArgument("a ping of a WebSocket has at most 125 bytes");
    }
    return core_ ? core_->ping(impl::bytesOf(payload)) : WebSocketSend::Closed;
}

WebSocketWriter WebSocketHandle::beginText() const {
    return impl::WriterState::Begin(core_, impl::FrameType::Text);
}

WebSocketWriter WebSocketHandle::beginBinary() const {
    return impl::WriterState::Begin(core_, impl::FrameType::Binary);
}

void WebSocketHandle::close(std::uint16_t code, std::string_view reason) const {
    requireCloseArguments(code, reason);
    if (core_) {
        core_->close(code, reason);
    }
}

std::uint64_t WebSocketHandle::queuedBytes() const {
    return core_ ? core_->queuedBytes() : 0;
}

bool WebSocketHandle::isOpen() const {
    return core_ && core_->isOpen();
}

} // namespace ql::http
