#include "session/FrameSender.h"

#include "vireo/support/qlSystemUtils.h"

#include <array>

namespace ql::impl {

void FrameSender::end() noexcept {
    socket_ = InvalidSocket;
    isFull_ = false;
    queue_.clear();
}

void FrameSender::breakOff() noexcept {
    isBroken_ = true;
    queue_.clear();
}

std::optional<std::int64_t> FrameSender::fullSinceMs() const {
    return isFull_ ? std::optional(fullSinceMs_) : std::nullopt;
}

void FrameSender::send(Kind kind, FrameType type, bool isFinal, std::span<const unsigned char> payload, bool now) {
    std::array<unsigned char, MostHeaderBytesWritten> memory;
    const std::span<const unsigned char> header =
        std::span(memory).first(writeFrameHeader(memory, type, isFinal, payload.size()));
    const std::size_t sent = mayPass(kind, now) ? sendBehindQueue(header, payload) : 0;
    if (sent < header.size() + payload.size()) {
        queueRest(kind, sent, [&] { return EncodedFrame(type, isFinal, payload); });
    }
}

void FrameSender::send(Kind kind, const EncodedFrame& frame, bool now) {
    const std::size_t sent = mayPass(kind, now) ? sendBehindQueue(frame.bytes(), {}) : 0;
    if (sent < frame.bytes().size()) {
        queueRest(kind, sent, [&]() -> const EncodedFrame& { return frame; });
    }
}

bool FrameSender::mayPass(Kind kind, bool now) const {
    return now && isReady() && !(kind == Kind::Message && queue_.isMessageOpen());
}

template <typename MakeFrame>
void FrameSender::queueRest(Kind kind, std::size_t sent, MakeFrame makeFrame) {
    if (isBroken_) {
        return;
    }
    try {
        add(kind, makeFrame(), sent);
    } catch (...) {
        if (sent == 0) {
            throw;
        }
        // The peer would take whatever comes next for the rest of this frame.
        breakOff();
    }
}

void FrameSender::add(Kind kind, const EncodedFrame& frame, std::size_t sent) {
    if (kind == Kind::Message) {
        queue_.addMessage(frame, sent);
    } else {
        queue_.addPiece(frame, sent);
    }
}

std::size_t FrameSender::sendBehindQueue(std::span<const unsigned char> header,
                                         std::span<const unsigned char> payload) noexcept {
    constexpr std::size_t Parts = 2;
    std::size_t sent = 0;
    while (sent < header.size() + payload.size()) {
        std::array<SocketBuffer, MostSocketBuffers> buffers;
        std::size_t count = queue_.gather(std::span(buffers).first(buffers.size() - Parts)).size();
        const bool isWhole = count == queue_.frames();
        const std::uint64_t waiting = queue_.sendableBytes();
        if (isWhole) {
            if (sent < header.size()) {
                buffers[count++] = bufferToSend(header.subspan(sent));
            }
            const std::size_t ofPayload = sent > header.size() ? sent - header.size() : 0;
            if (ofPayload < payload.size()) {
                buffers[count++] = bufferToSend(payload.subspan(ofPayload));
            }
        }
        const std::uint64_t left = sendOnce(std::span(buffers).first(count));
        if (left == 0) {
            break;
        }
        const std::uint64_t ofQueue = left < waiting ? left : waiting;
        queue_.skip(ofQueue);
        sent += static_cast<std::size_t>(left - ofQueue);
    }
    return sent;
}

std::uint64_t FrameSender::sendOnce(SocketBuffers buffers) noexcept {
    const std::int64_t sent = sendToSocket(socket_, buffers);
    if (sent > 0) {
        return static_cast<std::uint64_t>(sent);
    }
    if (isWouldBlock(lastSocketError())) {
        isFull_ = true;
        fullSinceMs_ = qlSystemUtils::GetTimeBaseMs();
    } else {
        breakOff();
    }
    return 0;
}

void FrameSender::sendQueued() noexcept {
    while (!queue_.isEmpty() && isReady()) {
        std::array<SocketBuffer, MostSocketBuffers> buffers;
        queue_.skip(sendOnce(queue_.gather(buffers)));
    }
}

void FrameSender::retry() noexcept {
    const bool wasFull = std::exchange(isFull_, false);
    const std::int64_t since = fullSinceMs_;
    const std::uint64_t before = queue_.bytes();
    sendQueued();
    if (wasFull && queue_.bytes() < before) {
        hasProgressed_ = true;
    } else if (wasFull && isFull_) {
        fullSinceMs_ = since;
    }
}

} // namespace ql::impl
