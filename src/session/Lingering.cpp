#include "session/Lingering.h"

#include "engine/Listener.h"
#include "engine/SendProgress.h"
#include "vireo/support/qlSystemUtils.h"

#include <algorithm>
#include <cstddef>

namespace ql::impl {

namespace {

/// Where the engine stands between: how long a connection is read from after it was failed, so that the peer gets to
/// see why, and how often is looked whether the peer has everything.
///@{
constexpr std::int64_t BetweenMs = 200;
constexpr std::int64_t ArrivalMs = 5;
///@}

} // namespace

void Lingering::begin(bool isClean, std::int64_t untilMs) {
    isClean_ = isClean;
    untilMs_ = untilMs;
}

TurnResult Lingering::serve(const Turn& turn, SessionOutput& output, std::uint64_t socket, std::uint64_t between) {
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    const SessionOutput::Status status = output.flush();
    const bool isStuck = status.isBroken || status.stage == SessionOutput::Stage::Ended || nowMs >= untilMs_;
    if (!isStuck && status.isEmpty && !hasSaidAll_) {
        hasSaidAll_ = true;
        if (between == InvalidSocket) {
            endSending(socket);
        }
    }
    const bool hasMore = !hasInputEnded_ && discardInput(turn, socket);
    const bool looksForArrival = hasSaidAll_ && between != InvalidSocket && !isArrivalSeen_;
    if (looksForArrival && hasArrived(socket, between)) {
        // The engine tells the peer of the end only when it closes, so there is none of the peer's to wait for.
        isArrivalSeen_ = true;
        untilMs_ = isClean_ ? nowMs : std::min(untilMs_, nowMs + BetweenMs);
    }
    TurnResult result;
    if (isStuck || nowMs >= untilMs_ || (hasSaidAll_ && hasInputEnded_)) {
        result.next = TurnResult::Next::Leave;
        return result;
    }
    result.next = hasMore ? TurnResult::Next::Again : TurnResult::Next::Wait;
    result.wantsToRead = !hasInputEnded_;
    result.wantsToWrite = !status.isEmpty;
    result.dueMs = looksForArrival && !isArrivalSeen_ ? std::min(untilMs_, nowMs + ArrivalMs) : untilMs_;
    return result;
}

bool Lingering::hasArrived(std::uint64_t socket, std::uint64_t between) const {
    return hasSaidAll_ && hasEverythingArrived(socket) && hasEverythingArrived(between);
}

bool Lingering::discardInput(const Turn& turn, std::uint64_t socket) {
    const SocketBuffer buffer{turn.buffer().data(), turn.buffer().size()};
    for (std::size_t taken = 0; taken < PoolTask::TurnBytes;) {
        const std::int64_t count = receiveFromSocket(socket, {&buffer, 1});
        if (count < 0 && isWouldBlock(lastSocketError())) {
            return false;
        }
        if (count <= 0) {
            hasInputEnded_ = true;
            return false;
        }
        taken += static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace ql::impl
