// SPDX-License-Identifier: MIT
#pragma once

#include "session/OutgoingQueue.h"
#include "websocket/FrameHeader.h"
#include "websocket/SocketPort.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

namespace ql::impl {

/// Sends frames over a socket, in order; what the socket does not take waits in the queue. Never blocks. One thread at
/// a time.
class FrameSender {
public:
    enum class Kind { Message, Piece };

    void begin(std::uint64_t socket) { socket_ = socket; }
    /// Nothing is sent any more.
    void end() noexcept;

    OutgoingQueue& queue() { return queue_; }
    const OutgoingQueue& queue() const { return queue_; }

    /// What was sent cannot be gone on with.
    void breakOff() noexcept;
    /// Nothing waits and nothing can be sent any more.
    bool isBroken() const { return isBroken_; }
    /// Whether something could be sent now, as far as is known.
    bool isReady() const { return socket_ != InvalidSocket && !isFull_ && !isBroken_; }
    /// Since when the socket is full, and takes nothing of what waits.
    std::optional<std::int64_t> fullSinceMs() const;
    /// Whether a full socket has taken something since this was asked last.
    bool takeProgress() { return std::exchange(hasProgressed_, false); }

    /// Sends a frame behind what waits; what does not leave now is copied.
    /// @param now whether to send at all; else it is queued.
    /// @throws std::bad_alloc when nothing of it was sent. When something was, the connection is broken.
    void send(Kind kind, FrameType type, bool isFinal, std::span<const unsigned char> payload, bool now);
    /// The same for a frame that can be shared.
    void send(Kind kind, const EncodedFrame& frame, bool now);

    /// Sends what waits, if the socket is ready.
    void sendQueued() noexcept;
    /// Sends what waits: the socket may have room again.
    void retry() noexcept;

private:
    bool mayPass(Kind kind, bool now) const;
    /// Sends what waits and, in the same calls, a frame of two parts behind it. @return how much of that is on its way.
    std::size_t sendBehindQueue(std::span<const unsigned char> header, std::span<const unsigned char> payload) noexcept;
    /// @return how much has left; nothing when the socket is full or broken.
    std::uint64_t sendOnce(SocketBuffers buffers) noexcept;
    template <typename MakeFrame>
    void queueRest(Kind kind, std::size_t sent, MakeFrame makeFrame);
    void add(Kind kind, const EncodedFrame& frame, std::size_t sent);

    OutgoingQueue queue_;
    std::uint64_t socket_ = InvalidSocket;
    std::int64_t fullSinceMs_ = 0;
    bool isFull_ = false;
    bool isBroken_ = false;
    bool hasProgressed_ = false;
};

} // namespace ql::impl
