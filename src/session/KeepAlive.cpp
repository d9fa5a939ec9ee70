#include "session/KeepAlive.h"

#include "session/pool/PoolTask.h"

#include <algorithm>

namespace ql::impl {

namespace {

constexpr std::int64_t Never = TurnResult::Never;

std::int64_t after(std::int64_t sinceMs, std::uint32_t limitMs) {
    return limitMs == 0 ? Never : sinceMs + limitMs;
}

} // namespace

void KeepAlive::received(std::int64_t nowMs) {
    receivedMs_ = nowMs;
    pingedMs_ = -1;
}

KeepAlive::Times KeepAlive::times(const SessionOutput::Status& output) const {
    if (output.stage != SessionOutput::Stage::Open) {
        return {Never, Never, output.closingSinceMs + settings_->closeTimeoutMs};
    }
    Times times{Never, after(std::max(messageMs_, output.messageMs), settings_->idleTimeoutMs), Never};
    const std::uint32_t pingMs = settings_->pingIntervalMs;
    const std::uint32_t pongMs = settings_->pongTimeoutMs;
    if (pingMs != 0 && (pingedMs_ < 0 || pongMs == 0)) {
        times.pingMs = std::max(receivedMs_, pingedMs_) + pingMs;
    } else if (pingMs != 0) {
        times.loseMs = pingedMs_ + pongMs;
    }
    if (output.fullSinceMs && pongMs != 0) {
        times.loseMs = std::min(times.loseMs, *output.fullSinceMs + pingMs + pongMs);
    }
    return times;
}

KeepAlive::Step KeepAlive::step(const SessionOutput::Status& output, std::int64_t nowMs) const {
    const Times times = this->times(output);
    return nowMs >= times.loseMs    ? Step::Lose
           : nowMs >= times.closeMs ? Step::Close
           : nowMs >= times.pingMs  ? Step::Ping
                                    : Step::None;
}

std::int64_t KeepAlive::dueMs(const SessionOutput::Status& output) const {
    const Times times = this->times(output);
    return std::min({times.loseMs, times.closeMs, times.pingMs});
}

} // namespace ql::impl
