#include "websocket/WebSocketState.h"

#include "websocket/FrameHeader.h"

#include <array>
#include <cstddef>
#include <span>
#include <utility>

namespace ql::impl {

namespace {

/// The reason that a server gives which goes down (RFC 6455, section 7.4.1).
constexpr std::array<unsigned char, 2> GoingAway = {1001 >> 8, 1001 & 0xFF};

} // namespace

WebSocketState::WebSocketState(http::WebSocket& socket)
    : incoming(socket.readBlocks_, socket.readOffset_, socket.readEnd_),
      message(socket.message_, socket.isBinary_),
      outgoing(socket.writeBlocks_, socket.writeOffset_, socket.writeEnd_),
      socket_(socket) {}

WebSocketState::~WebSocketState() {
    if (link_) {
        link_->setState(nullptr);
    }
}

void WebSocketState::setLink(std::shared_ptr<WebSocketLink> link) {
    link_ = std::move(link);
    if (link_) {
        link_->setState(this);
    }
}

void WebSocketState::sayGoodbye() {
    std::array<unsigned char, MostHeaderBytesWritten> header;
    const std::size_t headerBytes = writeFrameHeader(header, FrameType::Close, true, GoingAway.size());
    std::shared_ptr<PoolListener> waker;
    {
        const qlMutexLocker lock(socket_.mutex_);
        if (isLeaving) {
            return;
        }
        const std::uint64_t queuedBefore = outgoing.size();
        try {
            outgoing.append(std::span(header).first(headerBytes));
            outgoing.append(GoingAway);
        } catch (...) {
            outgoing.cutTo(queuedBefore);
            throw;
        }
        isLeaving = true;
        writePending = true;
        waker = pollWaker;
    }
    if (waker) {
        waker->noteWrite();
    }
}

void WebSocketState::tellOfClose() {
    std::shared_ptr<PoolListener> waker;
    {
        const qlMutexLocker lock(socket_.mutex_);
        waker = pollWaker;
    }
    if (waker) {
        waker->noteClose();
    }
}

void WebSocketState::setPollWaker(const std::shared_ptr<PoolListener>& waker) {
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
