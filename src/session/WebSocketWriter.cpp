#include "vireo/WebSocketWriter.h"

#include "frame/ExceptionLog.h"
#include "frame/InvalidArgument.h"
#include "session/CloseCode.h"
#include "session/PayloadBytes.h"
#include "session/WriterState.h"

#include <utility>

namespace ql::impl {

http::WebSocketWriter WriterState::Begin(std::shared_ptr<SessionCore> session, FrameType type) {
    auto state = std::make_unique<WriterState>();
    state->refusal = session ? session->openMessage() : http::WebSocketSend::Closed;
    state->isOpen = state->refusal == http::WebSocketSend::Queued;
    state->isText = type == FrameType::Text;
    state->type = type;
    state->session = std::move(session);
    return http::WebSocketWriter(std::move(state));
}

} // namespace ql::impl

namespace ql::http {

namespace {

void abandonMessage(impl::WriterState& state) noexcept {
    try {
        state.session->close(impl::CloseCode::InternalError, {});
    } catch (...) {
        impl::logCurrentException("a WebSocketWriter");
    }
}

} // namespace

WebSocketWriter::WebSocketWriter(std::unique_ptr<impl::WriterState> state) : state_(std::move(state)) {}

WebSocketWriter::WebSocketWriter(WebSocketWriter&& other) noexcept = default;

WebSocketWriter& WebSocketWriter::operator=(WebSocketWriter&& other) noexcept {
    // The other one's destructor sees to what this one was writing.
    std::swap(state_, other.state_);
    return *this;
}

WebSocketWriter::~WebSocketWriter() {
    if (state_ && state_->isOpen) {
        abandonMessage(*state_);
    }
}

WebSocketSend WebSocketWriter::write(std::span<const unsigned char> piece) {
    impl::WriterState& state = *state_;
    if (!state.isOpen || piece.empty()) {
        return state.isOpen ? WebSocketSend::Queued : state.refusal;
    }
    impl::Utf8Validator utf8 = state.utf8;
    if (state.isText && !utf8.feed(piece)) {
        impl::throwInvalidArgument("a piece of a text for a WebSocket is not UTF-8");
    }
    const WebSocketSend result = state.session->sendPiece(state.type, piece, false);
    if (result == WebSocketSend::Queued) {
        state.utf8 = utf8;
        state.type = impl::FrameType::Continuation;
    }
    return result;
}

WebSocketSend WebSocketWriter::write(std::string_view piece) {
    return write(impl::bytesOf(piece));
}

WebSocketSend WebSocketWriter::finish() {
    impl::WriterState& state = *state_;
    if (!state.isOpen) {
        return state.refusal;
    }
    if (!state.utf8.isComplete()) {
        impl::throwInvalidArgument("a text for a WebSocket ends within a character");
    }
    const WebSocketSend result = state.session->sendPiece(state.type, {}, true);
    if (result != WebSocketSend::Full) {
        state.isOpen = false;
        state.refusal = WebSocketSend::Closed;
    }
    return result;
}

} // namespace ql::http
