#include "server/Deadlines.h"

#include "engine/ConnectionTracking.h"
#include "engine/EngineTimeout.h"
#include "engine/SendProgress.h"
#include "engine/ShutReminder.h"
#include "server/ClientConnection.h"
#include "server/ConnectionTable.h"
#include "server/ExchangeCut.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace ql::impl {

namespace {

constexpr std::int64_t MaxPeriodMs = 1000;
/// How many looks the shortest deadline gets, so that it is not kept too late.
constexpr std::int64_t LooksPerDeadline = 4;

DeadlineLimits limitsOf(const http::ServerOptions& options, std::uint32_t idleTimeoutMs) {
    DeadlineLimits limits;
    limits.headMs = options.getHeadTimeoutMs();
    limits.idleMs = std::int64_t{1000} * timeoutSeconds(idleTimeoutMs);
    limits.bodyBytes = options.getBodyProgressBytes();
    limits.bodyMs = options.getBodyProgressMs();
    limits.answerMs = options.getAnswerTimeoutMs();
    limits.writeMs = options.getWriteTimeoutMs();
    return limits;
}

std::int64_t periodOf(const DeadlineLimits& limits) {
    std::int64_t least = 0;
    for (const std::int64_t ms : {limits.headMs, limits.bodyMs, limits.answerMs, limits.writeMs}) {
        if (ms != 0 && (least == 0 || ms < least)) {
            least = ms;
        }
    }
    return (std::min)(least / LooksPerDeadline, MaxPeriodMs);
}

} // namespace

Deadlines::Deadlines(const http::ServerOptions& options, std::uint32_t idleTimeoutMs, ConnectionTable& connections)
    : limits_(limitsOf(options, idleTimeoutMs)), periodMs_(periodOf(limits_)), connections_(connections) {}

void Deadlines::run(std::int64_t nowMs) {
    const auto suspects =
        connections_.those([this, nowMs](ClientConnection& client) { return isSuspect(client, nowMs); });
    for (const std::shared_ptr<ClientConnection>& client : suspects) {
        const CutReason reason = check(*client, nowMs);
        if (reason != CutReason::None && isTrackingLogged()) {
            logCut(*client, cutWord(reason));
        }
    }
}

bool Deadlines::isSuspect(ClientConnection& client, std::int64_t nowMs) const {
    const Progress now = client.marks().progress();
    if (isSending(now.stage)) {
        return limits_.writeMs != 0;
    }
    return checkDeadline(client.lastProgress(), now, nowMs, limits_) != CutReason::None;
}

CutReason Deadlines::check(ClientConnection& client, std::int64_t nowMs) const {
    const qlMutexLocker locker(client.gate());
    // Again: behind the gate a request does not end, nor another one begin, and a closed connection has no deadline.
    Progress now = client.marks().progress();
    if (isSending(now.stage)) {
        now.acknowledgedBytes = acknowledgedBytes(client.socket());
    }
    const CutReason reason = checkDeadline(client.lastProgress(), now, nowMs, limits_);
    if (reason == CutReason::None) {
        return reason;
    }
    const bool isNew = !std::exchange(client.lastProgress().isCut, true);
    if (isNew && reason == CutReason::HeadTimeout) {
        client.setHeadLate();
    }
    if (reason == CutReason::WriteTimeout) {
        dropUnsent(client.socket());
    }
    // At each look, for the engine can miss that a socket was shut: together with it there may be bytes to read.
    cutExchange(client, reason);
    if (isNew) {
        return reason;
    }
    remindOfShut(client);
    return CutReason::None;
}

} // namespace ql::impl
