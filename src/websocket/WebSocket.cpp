#include "vireo/WebSocket.h"

#include "engine/UpgradeHandle.h"
#include "frame/NeverDestroyed.h"
#include "vireo/support/qlThread.h"
#include "websocket/BlockQueue.h"
#include "websocket/FrameHeader.h"
#include "websocket/SocketPort.h"
#include "websocket/WebSocketState.h"

#include <array>
#include <cstddef>
#include <span>
#include <utility>

namespace ql::http {

namespace {

/// Payload bytes of every frame but the last of a message.
constexpr std::uint64_t FragmentSize = 131000;

/// With so many unparsed bytes a turn first looks whether they hold a frame: who sends small frames faster than they
/// are delivered, one a turn, fills the socket's buffer then and not the memory.
constexpr std::uint64_t ReadAheadBytes = impl::MostSocketBuffers * impl::BlockSize;

/// What became of a receive.
struct Received {
    std::int64_t count;
    bool wouldBlock;
};

/// Receives once, to the end of the queue.
Received receiveInto(impl::BlockQueue& queue, std::uint64_t socket) {
    // Most messages are small. What fills a block without being a whole frame is received by many at once.
    impl::BlockQueue::Room room(queue, queue.endsWithFullBlock() ? impl::MostSocketBuffers : 1);
    const std::int64_t count = impl::receiveFromSocket(socket, room.buffers());
    if (count < 0) {
        return {count, impl::isWouldBlock(impl::lastSocketError())};
    }
    room.keep(static_cast<std::uint64_t>(count));
    return {count, false};
}

std::string makeFixedReply() {
    std::string reply;
    for (int i = 0; i < 32751; ++i) {
        reply += "response";
    }
    return reply;
}

} // namespace

WebSocket::WebSocket(std::uint64_t socket, void* upgradeHandle)
    : blockSize_(impl::BlockSize),
      upgradeHandle_(upgradeHandle),
      socket_(socket),
      state_(std::make_unique<impl::WebSocketState>(*this)) {
    impl::prepareSocket(socket_);
}

// NOLINTNEXTLINE(performance-noexcept-move-constructor): it allocates
WebSocket::WebSocket(WebSocket&& accepted)
    : blockSize_(impl::BlockSize),
      upgradeHandle_(nullptr),
      socket_(impl::InvalidSocket),
      state_(std::make_unique<impl::WebSocketState>(*this)) {
    qlMutexLocker lock(accepted.mutex_);
    std::swap(writeOffset_, accepted.writeOffset_);
    std::swap(writeEnd_, accepted.writeEnd_);
    std::swap(readOffset_, accepted.readOffset_);
    std::swap(readEnd_, accepted.readEnd_);
    std::swap(upgradeHandle_, accepted.upgradeHandle_);
    message_.swap(accepted.message_);
    writeBlocks_.swap(accepted.writeBlocks_);
    readBlocks_.swap(accepted.readBlocks_);
    std::swap(socket_, accepted.socket_);
    std::swap(isBinary_, accepted.isBinary_);
    readEnabled_ = accepted.readEnabled_.exchange(false);
    state_->message.continueFrom(accepted.state_->message);
    state_->writePending = accepted.state_->writePending.exchange(false);
    std::swap(state_->isLeaving, accepted.state_->isLeaving);
    state_->connection = accepted.state_->connection;
    lock.unlock();
    state_->takeLink(*accepted.state_);
}

WebSocket::~WebSocket() = default;

void WebSocket::onMessageReceived(std::vector<unsigned char>& /*message*/, bool /*isBinary*/) {
    static impl::NeverDestroyed<const std::string> reply(makeFixedReply());
    writeMessage(reply->data(), reply->size(), true);
}

void WebSocket::markForDeletion() {
    if (upgradeHandle_ != nullptr) {
        state_->tellOfClose();
        impl::closeUpgradedConnection(upgradeHandle_, state_->connection);
    }
    upgradeHandle_ = nullptr;
    socket_ = impl::InvalidSocket;
}

void WebSocket::setReadEnabled(bool enabled) {
    if (enabled) {
        readEnabled_ = true;
    }
}

bool WebSocket::hasReadPending() const {
    return readEnabled_.load(std::memory_order_relaxed);
}

bool WebSocket::hasWritePending() const {
    return state_->isWritePending();
}

bool WebSocket::readDataIfAvailable() {
    if (!readEnabled_) {
        return true;
    }
    impl::BlockQueue& incoming = state_->incoming;
    if (incoming.size() >= ReadAheadBytes) {
        const ReadFrameStatus status = tryToReadFrame();
        if (status != ReadFrameStatus::NeedMoreData) {
            return status == ReadFrameStatus::FrameComplete && socket_ != impl::InvalidSocket;
        }
    }
    for (;;) {
        const Received received = receiveInto(incoming, socket_);
        if (received.count < 0) {
            if (!received.wouldBlock) {
                return false;
            }
            readEnabled_ = false;
            const ReadFrameStatus status = tryToReadFrame();
            if (status == ReadFrameStatus::FrameComplete && !incoming.isEmpty()) {
                // More frames may lie here, and the socket will not announce what it has already handed over.
                readEnabled_ = true;
            }
            incoming.releaseIfEmpty();
            return status != ReadFrameStatus::Failed && socket_ != impl::InvalidSocket;
        }

        switch (tryToReadFrame()) {
        case ReadFrameStatus::Failed:
            return false;
        case ReadFrameStatus::FrameComplete:
            // onMessageReceived() may have closed the connection.
            return socket_ != impl::InvalidSocket;
        case ReadFrameStatus::NeedMoreData:
            if (received.count == 0) {
                // The peer has closed, and the rest of a frame will never come.
                return false;
            }
            break;
        }
    }
}

bool WebSocket::sendDataIfAvailable() {
    qlMutexLocker lock(mutex_);
    return sendQueued();
}

bool WebSocket::sendQueued() {
    while (!state_->outgoing.isEmpty()) {
        std::array<impl::SocketBuffer, impl::MostSocketBuffers> buffers;
        const std::int64_t sent = impl::sendToSocket(socket_, state_->outgoing.gather(buffers));
        if (sent < 0) {
            return impl::isWouldBlock(impl::lastSocketError());
        }
        removeWrittenBytes(static_cast<std::uint64_t>(sent));
    }
    return true;
}

void WebSocket::writeMessage(const void* data, std::uint64_t size, bool isBinary) {
    std::shared_ptr<impl::PoolListener> pollWaker;
    {
        qlMutexLocker lock(mutex_);
        if (state_->isLeaving) {
            return;
        }
        const bool isFirst = state_->outgoing.isEmpty();
        appendMessage(static_cast<const unsigned char*>(data), size, isBinary);
        const bool isServingThread = currentThread_ == qlThread::CurrentThreadId();
        if (isServingThread) {
            // A failure shows again in the worker's own next send.
            sendQueued();
        }
        // Outside a worker's turn, the serving thread may have given the connection to the pool with its mark on.
        const bool isSeenAnyway = isServingThread && state_->isInTurn;
        if (isFirst && !isSeenAnyway && !state_->outgoing.isEmpty()) {
            pollWaker = state_->pollWaker;
        }
    }
    if (pollWaker) {
        pollWaker->noteWrite();
    }
}

void WebSocket::assignCurrentThread() {
    qlMutexLocker lock(mutex_);
    currentThread_ = qlThread::CurrentThreadId();
}

void WebSocket::clearCurrentThread() {
    qlMutexLocker lock(mutex_);
    currentThread_.clear();
}

void WebSocket::writeRawData(const void* data, std::uint64_t size) {
    state_->outgoing.append(std::span(static_cast<const unsigned char*>(data), static_cast<std::size_t>(size)));
}

void WebSocket::removeWrittenBytes(std::uint64_t count) {
    state_->outgoing.skip(count);
    state_->outgoing.releaseIfEmpty();
    state_->writePending = !state_->outgoing.isEmpty();
}

void WebSocket::appendMessage(const unsigned char* data, std::uint64_t size, bool isBinary) {
    const std::uint64_t queuedBefore = state_->outgoing.size();
    try {
        bool isFirstFrame = true;
        while (size > FragmentSize) {
            appendFrame(data, FragmentSize, isBinary, isFirstFrame, false);
            data += FragmentSize;
            size -= FragmentSize;
            isFirstFrame = false;
        }
        appendFrame(data, size, isBinary, isFirstFrame, true);
    } catch (...) {
        // Half a message would make the peer take the next one for its rest.
        state_->outgoing.cutTo(queuedBefore);
        throw;
    }
    state_->writePending = true;
}

void WebSocket::appendFrame(const unsigned char* data, std::uint64_t size, bool isBinary, bool isFirstFrame,
                            bool isFinal) {
    unsigned char header[impl::MostHeaderBytesWritten];
    std::uint64_t headerLength = 0;
    WriteHeader(header, size, isBinary, isFirstFrame, isFinal, headerLength);
    writeRawData(header, headerLength);
    writeRawData(data, size);
}

} // namespace ql::http
