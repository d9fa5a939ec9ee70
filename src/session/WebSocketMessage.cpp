#include "vireo/WebSocketMessage.h"

#include "session/PayloadBytes.h"
#include "session/SharedMessage.h"

#include <utility>

namespace ql::http {

WebSocketMessage WebSocketMessage::Text(std::string_view text) {
    impl::requireUtf8(text);
    return WebSocketMessage(std::make_shared<impl::SharedMessage>(true, impl::bytesOf(text)));
}

WebSocketMessage WebSocketMessage::Binary(std::span<const unsigned char> bytes) {
    return WebSocketMessage(std::make_shared<impl::SharedMessage>(false, bytes));
}

WebSocketMessage::WebSocketMessage(std::shared_ptr<impl::SharedMessage> shared) : shared_(std::move(shared)) {}

WebSocketMessage::WebSocketMessage(const WebSocketMessage& other) = default;
WebSocketMessage::WebSocketMessage(WebSocketMessage&& other) noexcept = default;
WebSocketMessage& WebSocketMessage::operator=(const WebSocketMessage& other) = default;
WebSocketMessage& WebSocketMessage::operator=(WebSocketMessage&& other) noexcept = default;
WebSocketMessage::~WebSocketMessage() = default;

} // namespace ql::http
