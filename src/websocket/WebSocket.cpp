#include "vireo/WebSocket.h"

#include "frame/NeverDestroyed.h"
#include "vireo/support/qlThread.h"
#include "websocket/BlockList.h"
#include "websocket/PollWaker.h"
#include "websocket/SocketPort.h"
#include "websocket/UpgradeHandle.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace ql::http {

namespace {

/// Payload bytes of every frame but the last of a message.
constexpr std::uint64_t FragmentSize = 131000;

/// With so many unparsed bytes a turn first looks whether they hold a frame: who sends small frames faster than they
/// are delivered, one a turn, fills the socket's buffer then and not the memory.
constexpr std::uint64_t ReadAheadBytes = impl::MostSocketBuffers * impl::BlockSize;

std::string makeFixedReply() {
    std::string reply;
    for (int i = 0; i < 32751; ++i) {
        reply += "response";
    }
    return reply;
}

} // namespace

WebSocket::WebSocket(std::uint64_t socket, void* upgradeHandle)
    : blockSize_(impl::BlockSize), upgradeHandle_(upgradeHandle), socket_(socket) {
    impl::prepareSocket(socket_);
}

WebSocket::WebSocket(WebSocket&& accepted) noexcept
    : blockSize_(impl::BlockSize), upgradeHandle_(nullptr), socket_(impl::InvalidSocket) {
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
    writePending_ = accepted.writePending_.exchange(false);
}

WebSocket::~WebSocket() = default;

void WebSocket::onMessageReceived(std::vector<unsigned char>& /*message*/, bool /*isBinary*/) {
    static impl::NeverDestroyed<const std::string> reply(makeFixedReply());
    writeMessage(reply->data(), reply->size(), true);
}

void WebSocket::markForDeletion() {
    if (upgradeHandle_ != nullptr) {
        impl::closeUpgradedConnection(upgradeHandle_);
    }
    upgradeHandle_ = nullptr;
    socket_ = impl::InvalidSocket;
}

void WebSocket::setReadEnabled(bool enabled) {
    if (enabled) {
        readEnabled_ = true;
    }
}

bool WebSocket::readDataIfAvailable() {
    if (!readEnabled_) {
        return true;
    }
    if (bufferedBytes() >= ReadAheadBytes) {
        const ReadFrameStatus status = tryToReadFrame();
        if (status != ReadFrameStatus::NeedMoreData) {
            return status == ReadFrameStatus::FrameComplete && socket_ != impl::InvalidSocket;
        }
    }
    for (;;) {
        // Most messages are small. What fills a block without being a whole frame is received by many at once.
        const std::size_t blockCount = readEnd_ == blockSize_ && !readBlocks_.empty() ? impl::MostSocketBuffers : 1;
        bool wouldBlock = false;
        const std::int64_t received = receiveBlocks(blockCount, wouldBlock);
        if (received < 0) {
            if (!wouldBlock) {
                return false;
            }
            readEnabled_ = false;
            const ReadFrameStatus status = tryToReadFrame();
            if (status == ReadFrameStatus::FrameComplete && bufferedBytes() > 0) {
                // More frames may lie here, and the socket will not announce what it has already handed over.
                readEnabled_ = true;
            }
            releaseConsumedBlocks();
            return status != ReadFrameStatus::Failed && socket_ != impl::InvalidSocket;
        }

        switch (tryToReadFrame()) {
        case ReadFrameStatus::Failed:
            return false;
        case ReadFrameStatus::FrameComplete:
            // onMessageReceived() may have closed the connection.
            return socket_ != impl::InvalidSocket;
        case ReadFrameStatus::NeedMoreData:
            if (received == 0) {
                // The peer has closed, and the rest of a frame will never come.
                return false;
            }
            break;
        }
    }
}

std::int64_t WebSocket::receiveBlocks(std::size_t blockCount, bool& wouldBlock) {
    std::array<impl::SocketBuffer, impl::MostSocketBuffers> buffers;
    std::size_t count = 0;
    if (readEnd_ < blockSize_) {
        buffers[count++] = {readBlocks_.back().data() + readEnd_, blockSize_ - readEnd_};
    }
    impl::BlockList fresh;
    while (count < blockCount) {
        impl::appendBlock(fresh);
        buffers[count++] = {fresh.back().data(), blockSize_};
    }
    const std::int64_t received = impl::receiveFromSocket(socket_, impl::SocketBuffers(buffers.data(), count));
    wouldBlock = received < 0 && impl::isWouldBlock(impl::lastSocketError());

    for (std::uint64_t left = received > 0 ? static_cast<std::uint64_t>(received) : 0; left > 0;) {
        if (readEnd_ == blockSize_) {
            readBlocks_.splice(readBlocks_.end(), fresh, fresh.begin());
            readEnd_ = 0;
        }
        const std::uint64_t part = std::min(left, blockSize_ - readEnd_);
        readEnd_ += part;
        left -= part;
    }
    impl::releaseBlocks(fresh);
    return received;
}

bool WebSocket::sendDataIfAvailable() {
    qlMutexLocker lock(mutex_);
    return sendQueued();
}

bool WebSocket::sendQueued() {
    while (!writeBlocks_.empty()) {
        std::array<impl::SocketBuffer, impl::MostSocketBuffers> buffers;
        std::size_t count = 0;
        std::uint64_t offset = writeOffset_;
        for (auto block = writeBlocks_.begin(); block != writeBlocks_.end() && count < buffers.size(); ++block) {
            const bool isLast = &*block == &writeBlocks_.back();
            buffers[count++] = {block->data() + offset, (isLast ? writeEnd_ : blockSize_) - offset};
            offset = 0;
        }
        const std::int64_t sent = impl::sendToSocket(socket_, impl::SocketBuffers(buffers.data(), count));
        if (sent < 0) {
            return impl::isWouldBlock(impl::lastSocketError());
        }
        removeWrittenBytes(static_cast<std::uint64_t>(sent));
    }
    return true;
}

void WebSocket::writeMessage(const void* data, std::uint64_t size, bool isBinary) {
    std::shared_ptr<impl::PollWaker> pollWaker;
    {
        qlMutexLocker lock(mutex_);
        const bool isFirst = writeBlocks_.empty();
        appendMessage(static_cast<const unsigned char*>(data), size, isBinary);
        if (currentThread_ == qlThread::CurrentThreadId()) {
            // A failure shows again in the worker's own next send.
            sendQueued();
        }
        if (isFirst && !writeBlocks_.empty()) {
            pollWaker = pollWaker_;
        }
    }
    // Also for the serving thread: it may have given the connection to the pool with its mark on.
    if (pollWaker) {
        pollWaker->noteWrite();
    }
}

void WebSocket::setPollWaker(const std::shared_ptr<impl::PollWaker>& pollWaker) {
    qlMutexLocker lock(mutex_);
    if (pollWaker_ != pollWaker) {
        pollWaker_ = pollWaker;
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
    const unsigned char* source = static_cast<const unsigned char*>(data);
    while (size > 0) {
        if (writeEnd_ == blockSize_) {
            impl::appendBlock(writeBlocks_);
            writeEnd_ = 0;
        }
        const std::uint64_t part = std::min(size, blockSize_ - writeEnd_);
        std::memcpy(writeBlocks_.back().data() + writeEnd_, source, static_cast<std::size_t>(part));
        writeEnd_ += part;
        source += part;
        size -= part;
    }
}

void WebSocket::removeWrittenBytes(std::uint64_t count) {
    while (count > 0) {
        const std::uint64_t limit = firstWriteBlockLimit();
        const std::uint64_t part = std::min(count, limit - writeOffset_);
        writeOffset_ += part;
        count -= part;
        if (writeOffset_ == limit) {
            impl::releaseFirstBlock(writeBlocks_);
            writeOffset_ = 0;
        }
    }
    if (writeBlocks_.empty()) {
        writeEnd_ = blockSize_;
        writePending_ = false;
    }
}

std::uint64_t WebSocket::firstWriteBlockLimit() const {
    return writeBlocks_.size() == 1 ? writeEnd_ : blockSize_;
}

void WebSocket::appendMessage(const unsigned char* data, std::uint64_t size, bool isBinary) {
    const std::size_t oldBlocks = writeBlocks_.size();
    const std::uint64_t oldEnd = writeEnd_;
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
        writeBlocks_.resize(oldBlocks);
        writeEnd_ = oldEnd;
        throw;
    }
    writePending_ = true;
}

void WebSocket::appendFrame(const unsigned char* data, std::uint64_t size, bool isBinary, bool isFirstFrame,
                            bool isFinal) {
    unsigned char header[10];
    std::uint64_t headerLength = 0;
    WriteHeader(header, size, isBinary, isFirstFrame, isFinal, headerLength);
    writeRawData(header, headerLength);
    writeRawData(data, size);
}

} // namespace ql::http
