#include "server/Exchange.h"

#include "streams/PollingWait.h"
#include "vireo/HttpBaseRequest.h"

#include <thread>
#include <utility>

namespace ql::impl {

namespace {

/// How often wait() looks before it suspends a connection: for some ten microseconds where a core is free.
constexpr int MaxLooks = 40;

/// The exchange that has waited last of those of this thread. Only compared.
thread_local const Exchange* lastToWait = nullptr;

bool isReleased(HttpBaseRequest& request) {
    using ResponseState = HttpResponseDevice::ResponseState;
    return request.editInternalResponseDevice().getResponseState() != ResponseState::NotReady;
}

} // namespace

std::atomic<void (*)()> Exchange::pauseOfLooks{[] { std::this_thread::yield(); }};

Exchange::Exchange(EngineConnection connection, std::uint64_t socket, std::uint64_t bodyBytes, DeadlineMarks& marks)
    : suspension_(connection), socket_(socket), marks_(marks), bodyLeft_(bodyBytes) {
    marks_.enter(Stage::Held);
}

void Exchange::setPhase(Phase phase) {
    phase_.store(phase, std::memory_order_release);
    switch (phase) {
    case Phase::Head:
        break;
    case Phase::Body:
        marks_.enter(Stage::Body);
        break;
    case Phase::Ended:
        hasWholeBody_ = true;
        marks_.enter(Stage::Answer);
        break;
    case Phase::Answered:
        marks_.enter(Stage::Sending);
        break;
    }
}

void Exchange::countBody(std::size_t size) {
    receivedBytes_ += size;
    if (bodyLeft_ != UnknownLength) {
        bodyLeft_ -= size;
    }
    marks_.countBody(size);
    if (marks_.progress().stage == Stage::Held) {
        marks_.enter(Stage::Body);
    }
}

Exchange::Suspension::Outcome Exchange::suspend() {
    switch (phase()) {
    case Phase::Head:
    case Phase::Body:
        marks_.enter(Stage::Held);
        break;
    case Phase::Ended:
        break;
    case Phase::Answered:
        marks_.enter(Stage::Application);
        break;
    }
    return suspension_.suspend();
}

void Exchange::progress() {
    if (phase() == Phase::Answered) {
        marks_.enter(Stage::Streaming);
    }
}

void Exchange::wait(HttpBaseRequest& request, std::int64_t nowMs) {
    // A connection that was suspended right after the engine has read from it is read again when it is resumed, before
    // anything else. That would lose the request of a client that has ended its sending. Called again, the engine has
    // forgotten that it wanted to read. It also spares a fast worker's request the suspension.
    if (!std::exchange(hasWaited_, true)) {
        lastToWait = this;
        return;
    }
    // Nobody else's request has come to wait meanwhile, so this thread has nothing else to do: an answer that comes now
    // spares two threads a wake-up each.
    if (std::exchange(lastToWait, nullptr) == this) {
        for (int looks = 0; looks < MaxLooks; ++looks) {
            if (isReleased(request)) {
                return;
            }
            pauseOfLooks.load(std::memory_order_relaxed)();
        }
    }
    if (suspend() == Suspension::Outcome::Finished) {
        // The server stops. Until then the engine calls again and again.
        PollingWait::ofThisThread().wait(request, nowMs);
    }
}

} // namespace ql::impl
