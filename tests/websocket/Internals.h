#pragma once

#include "vireo/WebSocket.h"
#include "vireo/WebSocketThread.h"
#include "vireo/WebSocketWorkerThread.h"
#include "websocket/Fakes.h"
#include "websocket/Frames.h"
#include "websocket/WebSocketState.h"
#include "websocket/pool/PoolState.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace wstest {

/// A number that the system has given to nobody, for connections whose system calls a test answers.
constexpr std::uint64_t SomeSocket = 12345;

struct Message {
    Bytes payload;
    bool isBinary = false;

    friend bool operator==(const Message&, const Message&) = default;
};

/// Keeps what it receives. Without a socket of its own it serves the codec's tests.
class RecordingSocket : public ql::http::WebSocket {
public:
    using WebSocket::WebSocket;
    RecordingSocket() : WebSocket(SomeSocket, nullptr) {}
    explicit RecordingSocket(WebSocket&& accepted) : WebSocket(std::move(accepted)) {}

    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
        messages.push_back({message, isBinary});
    }

    std::vector<Message> messages;
};

// What the tests of connections look at behind the public interface.

/// Bytes received and not yet parsed.
inline ql::impl::BlockQueue& incoming(ql::http::WebSocket& socket) {
    return ql::impl::WebSocketState::of(socket).incoming;
}

/// Bytes not yet sent.
inline ql::impl::BlockQueue& outgoing(ql::http::WebSocket& socket) {
    return ql::impl::WebSocketState::of(socket).outgoing;
}

inline bool isMessageOpen(ql::http::WebSocket& socket) {
    return ql::impl::WebSocketState::of(socket).message.isOpen();
}

/// Puts bytes into the read queue as receiving them would.
inline void feed(ql::http::WebSocket& socket, const Bytes& bytes) {
    incoming(socket).append(bytes);
}

/// All that is in a queue, which stays as it is.
inline Bytes bytesOf(const ql::impl::BlockQueue& queue) {
    Bytes bytes(static_cast<std::size_t>(queue.size()));
    queue.peek(bytes);
    return bytes;
}

inline Bytes queued(ql::http::WebSocket& socket) {
    return bytesOf(outgoing(socket));
}

enum class Status { Failed, FrameComplete, NeedMoreData };

/// Lets the connection parse what it has, one frame at most. Its socket has nothing more to give.
inline Status tryToReadFrame(ql::http::WebSocket& socket) {
    FakeSystem silent;
    silent.receive = [](std::uint64_t, ql::impl::SocketBuffers) {
        setLastError(SocketError::WouldBlock);
        return std::int64_t{-1};
    };
    const std::uint64_t before = incoming(socket).size();
    socket.setReadEnabled(true);
    if (!socket.readDataIfAvailable()) {
        return Status::Failed;
    }
    return incoming(socket).size() < before ? Status::FrameComplete : Status::NeedMoreData;
}

/// What a pool's threads share, at one moment.
struct PoolLook {
    explicit PoolLook(ql::http::WebSocketThread& pool) : PoolLook(ql::impl::PoolState::of(pool)) {}

    std::size_t workers;
    std::size_t idle; ///< polled or about to be
    std::size_t polled;
    std::size_t ready;
    bool pollThreadWaits;

private:
    explicit PoolLook(ql::impl::PoolState& pool) {
        const qlMutexLocker lock(pool.mutex);
        workers = pool.workers.size();
        idle = pool.pollSet.size() + pool.polledCount;
        polled = pool.polledCount;
        ready = pool.readyQueue.size();
        pollThreadWaits = pool.pollThreadWaiting;
    }
};

} // namespace wstest
