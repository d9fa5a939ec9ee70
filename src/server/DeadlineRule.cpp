#include "server/DeadlineRule.h"

namespace ql::impl {

namespace {

/// What a connection is cut for when it stays where it is for `ms`; 0 for ever.
struct Deadline {
    CutReason reason;
    std::int64_t ms;
};

Deadline deadlineOf(const Progress& progress, const DeadlineLimits& limits) {
    switch (progress.stage) {
    case Stage::FirstHead:
        return {CutReason::HeadTimeout, limits.headMs};
    case Stage::NextHead:
        // Nobody sees a head before its first line is whole. Who may be idle for ever may as well send for ever.
        return {CutReason::HeadTimeout, limits.headMs == 0 || limits.idleMs == 0 ? 0 : limits.idleMs + limits.headMs};
    case Stage::Application:
        return {CutReason::None, 0};
    case Stage::Body:
        return {CutReason::BodyTimeout, limits.bodyMs};
    case Stage::Held:
    case Stage::Answer:
        return {CutReason::AnswerTimeout, limits.answerMs};
    case Stage::Sending:
        // Without the acknowledged bytes an answer in one piece would have to be taken as a whole.
        return {CutReason::WriteTimeout, progress.acknowledgedBytes ? limits.writeMs : 0};
    case Stage::Streaming:
        return {CutReason::WriteTimeout, limits.writeMs};
    }
    return {CutReason::None, 0};
}

bool hasMovedOn(const Progress& before, const Progress& now, const DeadlineLimits& limits) {
    if (now.step != before.step) {
        return true;
    }
    if (now.stage == Stage::Body) {
        return now.bodyBytes - before.bodyBytes >= limits.bodyBytes;
    }
    return isSending(now.stage) && now.acknowledgedBytes != before.acknowledgedBytes;
}

} // namespace

CutReason checkDeadline(LastProgress& last, const Progress& now, std::int64_t nowMs, const DeadlineLimits& limits) {
    if (hasMovedOn(last.progress, now, limits)) {
        last.progress = now;
        last.sinceMs = nowMs;
        return CutReason::None;
    }
    const Deadline deadline = deadlineOf(now, limits);
    return deadline.ms != 0 && nowMs - last.sinceMs >= deadline.ms ? deadline.reason : CutReason::None;
}

} // namespace ql::impl
