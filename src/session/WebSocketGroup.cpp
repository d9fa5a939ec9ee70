#include "vireo/WebSocketGroup.h"

#include "session/GroupState.h"
#include "session/SessionCore.h"
#include "session/SharedMessage.h"

namespace ql::http {

WebSocketGroup::WebSocketGroup() : state_(std::make_unique<impl::GroupState>()) {}

WebSocketGroup::~WebSocketGroup() = default;

bool WebSocketGroup::add(const WebSocketHandle& member) {
    return state_->add(impl::SessionCore::Of(member));
}

bool WebSocketGroup::remove(const WebSocketHandle& member) {
    return state_->remove(impl::SessionCore::Of(member));
}

std::size_t WebSocketGroup::size() const {
    return state_->size();
}

std::size_t WebSocketGroup::sendText(std::string_view text, const WebSocketHandle& except) {
    return send(WebSocketMessage::Text(text), except);
}

std::size_t WebSocketGroup::sendBinary(std::span<const unsigned char> bytes, const WebSocketHandle& except) {
    return send(WebSocketMessage::Binary(bytes), except);
}

std::size_t WebSocketGroup::send(const WebSocketMessage& message, const WebSocketHandle& except) {
    return state_->send(impl::SharedMessage::Of(message), impl::SessionCore::Of(except));
}

} // namespace ql::http
