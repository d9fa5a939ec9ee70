#include "websocket/WebSocketState.h"

namespace ql::impl {

WebSocketState::WebSocketState(http::WebSocket& socket)
    : incoming(socket.readBlocks_, socket.readOffset_, socket.readEnd_),
      message(socket.message_, socket.isBinary_),
      outgoing(socket.writeBlocks_, socket.writeOffset_, socket.writeEnd_),
      socket_(socket) {}

void WebSocketState::setPollWaker(const std::shared_ptr<PollWaker>& waker) {
    qlMutexLocker lock(socket_.mutex_);
    if (pollWaker != waker) {
        pollWaker = waker;
    }
}

bool WebSocketState::serve() {
    socket_.assignCurrentThread();
    isInTurn = true;
    const bool sent = socket_.sendDataIfAvailable();
    const bool read = socket_.readDataIfAvailable();
    isInTurn = false;
    socket_.clearCurrentThread();
    return sent && read;
}

} // namespace ql::impl
