#include "session/SessionReceiver.h"

#include "websocket/SocketPort.h"

#include <utility>

namespace ql::impl {

SessionReceiver::Result SessionReceiver::receive(const Turn& turn, std::uint64_t socket, FrameSink& sink) {
    if (const auto result = decodeRest(sink)) {
        return *result;
    }
    for (std::size_t taken = 0; mayHaveInput_;) {
        if (taken >= PoolTask::TurnBytes) {
            return Result::Stopped;
        }
        const std::span<unsigned char> direct = decoder_.directRoom();
        const std::span<unsigned char> room = direct.empty() ? turn.buffer() : direct;
        const SocketBuffer buffer{room.data(), room.size()};
        const std::int64_t count = receiveFromSocket(socket, {&buffer, 1});
        if (count < 0 && isWouldBlock(lastSocketError())) {
            mayHaveInput_ = false;
            break;
        }
        if (count <= 0) {
            return Result::Lost;
        }
        const auto received = static_cast<std::size_t>(count);
        hasReceived_ = true;
        taken += received;
        // Less than there was room for is all there was. Where the peer has ended its sending, nobody tells of that
        // twice.
        mayHaveInput_ = received == room.size() || turn.hasInputEnded();
        const auto result =
            direct.empty() ? decodeFresh(room.first(received), sink) : take(decoder_.received(received, sink));
        if (result) {
            return *result;
        }
    }
    return Result::Drained;
}

bool SessionReceiver::takeSign() {
    return std::exchange(hasReceived_, false);
}

std::optional<SessionReceiver::Result> SessionReceiver::decodeRest(FrameSink& sink) {
    if (!hasStopped_ && rest_.empty()) {
        return std::nullopt;
    }
    input_ = std::span(rest_).subspan(restAt_);
    const auto result = take(decoder_.feed(input_, sink));
    restAt_ = rest_.size() - input_.size();
    input_ = {};
    if (restAt_ == rest_.size()) {
        std::vector<unsigned char>().swap(rest_);
        restAt_ = 0;
    }
    return result;
}

std::optional<SessionReceiver::Result> SessionReceiver::decodeFresh(std::span<unsigned char> bytes, FrameSink& sink) {
    input_ = bytes;
    const auto result = take(decoder_.feed(input_, sink));
    rest_.assign(input_.begin(), input_.end());
    input_ = {};
    return result;
}

std::optional<SessionReceiver::Result> SessionReceiver::take(FrameDecoder::Result result) {
    hasStopped_ = result == FrameDecoder::Result::Stopped;
    switch (result) {
    case FrameDecoder::Result::NeedsMore:
        return std::nullopt;
    case FrameDecoder::Result::Stopped:
        return Result::Stopped;
    case FrameDecoder::Result::Closed:
        return Result::Closed;
    case FrameDecoder::Result::Failed:
        return Result::Failed;
    }
    return Result::Failed;
}

} // namespace ql::impl
