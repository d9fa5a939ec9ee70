#pragma once

#include "vireo/WebSocket.h"
#include "vireo/WebSocketThread.h"
#include "vireo/WebSocketWorkerThread.h"
#include "websocket/Frames.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace ql::http {

/// The tests' way to what is private.
struct WebSocketTestPeer {
    using Status = WebSocket::ReadFrameStatus;

    /// Puts bytes into the read queue as receiving them would.
    static void feed(WebSocket& socket, const wstest::Bytes& bytes) {
        std::size_t at = 0;
        while (at < bytes.size()) {
            if (socket.readEnd_ == socket.blockSize_) {
                socket.readBlocks_.emplace_back(static_cast<std::size_t>(socket.blockSize_));
                socket.readEnd_ = 0;
            }
            const std::size_t count =
                std::min(bytes.size() - at, static_cast<std::size_t>(socket.blockSize_ - socket.readEnd_));
            std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), count,
                        socket.readBlocks_.back().begin() + static_cast<std::ptrdiff_t>(socket.readEnd_));
            socket.readEnd_ += count;
            at += count;
        }
    }

    static Status tryToReadFrame(WebSocket& socket) { return socket.tryToReadFrame(); }
    static void skipBytes(WebSocket& socket, std::uint64_t count) { socket.skipBytes(count); }
    static wstest::Bytes peek(const WebSocket& socket, std::size_t count) {
        wstest::Bytes out(count, 0xEE);
        socket.readNoSeek(out.data(), count);
        return out;
    }
    static std::uint64_t buffered(const WebSocket& socket) { return socket.bufferedBytes(); }
    static std::size_t readBlocks(const WebSocket& socket) { return socket.readBlocks_.size(); }
    static std::uint64_t readOffset(const WebSocket& socket) { return socket.readOffset_; }
    static std::uint64_t readEnd(const WebSocket& socket) { return socket.readEnd_; }
    static const wstest::Bytes& message(const WebSocket& socket) { return socket.message_; }
    static bool isBinary(const WebSocket& socket) { return socket.isBinary_; }
    static void* upgradeHandle(const WebSocket& socket) { return socket.upgradeHandle_; }

    static std::size_t writeBlocks(WebSocket& socket) {
        qlMutexLocker lock(socket.mutex_);
        return socket.writeBlocks_.size();
    }
    static std::uint64_t writeEnd(WebSocket& socket) {
        qlMutexLocker lock(socket.mutex_);
        return socket.writeEnd_;
    }
    static std::uint64_t writeOffset(WebSocket& socket) {
        qlMutexLocker lock(socket.mutex_);
        return socket.writeOffset_;
    }
    /// What waits to be sent.
    static wstest::Bytes queued(WebSocket& socket) {
        qlMutexLocker lock(socket.mutex_);
        wstest::Bytes all;
        std::size_t index = 0;
        for (const wstest::Bytes& block : socket.writeBlocks_) {
            const bool last = ++index == socket.writeBlocks_.size();
            const std::uint64_t begin = index == 1 ? socket.writeOffset_ : 0;
            const std::uint64_t end = last ? socket.writeEnd_ : socket.blockSize_;
            all.insert(all.end(), block.begin() + static_cast<std::ptrdiff_t>(begin),
                       block.begin() + static_cast<std::ptrdiff_t>(end));
        }
        return all;
    }

    struct Header {
        bool complete = false;
        wstest::MaskKey maskKey{};
        std::uint64_t payloadLength = 0;
        std::uint64_t headerLength = 0;
        bool invalid = false;
        bool isBinary = false;
        bool fin = false;
    };
    static Header parseHeader(const wstest::Bytes& data, std::uint64_t size, bool firstFragment,
                              bool isBinaryBefore = false) {
        Header header;
        header.isBinary = isBinaryBefore;
        header.complete =
            WebSocket::GetLength(data.data(), size, firstFragment, header.maskKey.data(), header.payloadLength,
                                 header.headerLength, header.invalid, header.isBinary, header.fin);
        return header;
    }
    static wstest::Bytes writeHeader(std::uint64_t length, bool isBinary, bool isFirstFrame, bool isFinal) {
        wstest::Bytes out(10, 0xEE);
        std::uint64_t headerLength = 0;
        WebSocket::WriteHeader(out.data(), length, isBinary, isFirstFrame, isFinal, headerLength);
        out.resize(static_cast<std::size_t>(headerLength));
        return out;
    }

    static qlMutex& mutexOf(WebSocket& socket) { return socket.mutex_; }

    static std::size_t workers(WebSocketThread& pool) {
        qlMutexLocker lock(pool.mutex_);
        return pool.workers_.size();
    }
    static std::size_t idle(WebSocketThread& pool) {
        qlMutexLocker lock(pool.mutex_);
        return pool.pollSet_.size() + pool.polledCount_;
    }
    static std::size_t polled(WebSocketThread& pool) {
        qlMutexLocker lock(pool.mutex_);
        return pool.polledCount_;
    }
    static std::size_t ready(WebSocketThread& pool) {
        qlMutexLocker lock(pool.mutex_);
        return pool.readyQueue_.size();
    }
    static bool pollThreadWaits(WebSocketThread& pool) {
        qlMutexLocker lock(pool.mutex_);
        return pool.pollThreadWaiting_;
    }
};

} // namespace ql::http

namespace wstest {

using Peer = ql::http::WebSocketTestPeer;
using Status = Peer::Status;

struct Message {
    Bytes payload;
    bool isBinary = false;

    friend bool operator==(const Message&, const Message&) = default;
};

/// Keeps what it receives. Without a socket of its own it serves the codec's tests.
class RecordingSocket : public ql::http::WebSocket {
public:
    using WebSocket::WebSocket;
    RecordingSocket() : WebSocket(~std::uint64_t{0}, nullptr) {}
    explicit RecordingSocket(WebSocket&& accepted) : WebSocket(std::move(accepted)) {}

    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
        messages.push_back({message, isBinary});
    }

    std::vector<Message> messages;
};

} // namespace wstest
