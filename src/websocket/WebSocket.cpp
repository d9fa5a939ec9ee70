#include "vireo/WebSocket.h"

#include "vireo/support/qlThread.h"
#include "websocket/SocketPort.h"
#include "websocket/UpgradeHandle.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace ql::http {

namespace {

/// Payload bytes of every frame but the last of a message.
constexpr std::uint64_t FragmentSize = 131000;

std::string makeFixedReply() {
    std::string reply;
    for (int i = 0; i < 32751; ++i) {
        reply += "response";
    }
    return reply;
}

} // namespace

WebSocket::WebSocket(std::uint64_t socket, void* upgradeHandle) : upgradeHandle_(upgradeHandle), socket_(socket) {
    impl::prepareSocket(socket_);
}

WebSocket::WebSocket(WebSocket&& accepted) noexcept : upgradeHandle_(nullptr), socket_(impl::InvalidSocket) {
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
    static const std::string reply = makeFixedReply();
    writeMessage(reply.data(), reply.size(), true);
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
    for (;;) {
        if (readEnd_ == blockSize_) {
            readBlocks_.emplace_back(static_cast<std::size_t>(blockSize_));
            readEnd_ = 0;
        }
        const std::int64_t received =
            impl::receiveFromSocket(socket_, readBlocks_.back().data() + readEnd_, blockSize_ - readEnd_);
        if (received < 0) {
            if (!impl::isWouldBlock(impl::lastSocketError())) {
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

        readEnd_ += static_cast<std::uint64_t>(received);
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

bool WebSocket::sendDataIfAvailable() {
    qlMutexLocker lock(mutex_);
    while (!writeBlocks_.empty()) {
        const std::int64_t sent = impl::sendToSocket(socket_, writeBlocks_.front().data() + writeOffset_,
                                                     firstWriteBlockLimit() - writeOffset_);
        if (sent < 0) {
            return impl::isWouldBlock(impl::lastSocketError());
        }
        removeWrittenBytes(static_cast<std::uint64_t>(sent));
    }
    return true;
}

void WebSocket::writeMessage(const void* data, std::uint64_t size, bool isBinary) {
    bool isServingThread = false;
    {
        qlMutexLocker lock(mutex_);
        isServingThread = currentThread_ == qlThread::CurrentThreadId();
        appendMessage(static_cast<const unsigned char*>(data), size, isBinary);
    }
    if (isServingThread) {
        // A failure shows again in the worker's own next send.
        sendDataIfAvailable();
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
            writeBlocks_.emplace_back(static_cast<std::size_t>(blockSize_));
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
    const std::uint64_t limit = firstWriteBlockLimit();
    writeOffset_ += count;
    if (writeOffset_ == limit) {
        writeBlocks_.pop_front();
        writeOffset_ = 0;
        if (writeBlocks_.empty()) {
            writeEnd_ = blockSize_;
            writePending_ = false;
        }
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
