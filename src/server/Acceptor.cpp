#include "server/Acceptor.h"

#include "frame/ExceptionLog.h"
#include "vireo/support/SystemError.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"
#include "websocket/SocketPort.h"

#include <algorithm>
#include <utility>

namespace ql::impl {

namespace {

constexpr const char* LogTag = "httpserver";

/// How long nobody is accepted when the system has no descriptor left; polled on, the listener would have news at once.
/// No connection's end cuts it short: the engine tells of that before it gives the descriptor back.
constexpr std::int64_t PauseMs = 100;
/// Where descriptors come and go one by one, there is a wall behind each: how long no line tells of another one.
constexpr std::int64_t WallLogMs = 60000;
/// How long connections that have begun may take to be there, once no new ones begin.
constexpr std::int64_t HandshakeMs = 100;
constexpr int RefusalsMs = 50;
/// A poll fails where memory is short, and on Windows where there is nothing to poll, not even what ends it.
constexpr unsigned long PollFailedMs = 10;
/// How long a wish can go unnoticed where the thread cannot be woken.
constexpr int UnwokenMs = 200;

} // namespace

Acceptor::Acceptor(std::vector<std::unique_ptr<Listener>> listeners, std::uint32_t backlog, Take take)
    : backlog_(backlog), take_(std::move(take)), listeners_(std::move(listeners)) {
    waker_.open();
    polled_.reserve(listeners_.size());
}

Acceptor::~Acceptor() {
    ask(Wish::Stop);
    waitThread(NoTimeLimit);
}

void Acceptor::close() {
    Wish expected = Wish::Accept;
    if (wish_.compare_exchange_strong(expected, Wish::Close)) {
        waker_.wake();
    }
}

void Acceptor::ask(Wish wish) {
    wish_ = wish;
    waker_.wake();
}

void Acceptor::run() {
    while (turn()) {
    }
}

bool Acceptor::turn() {
    waker_.beginWait();
    const Wish wish = wish_;
    const std::int64_t beginMs = qlSystemUtils::GetTimeBaseMs();
    if (wish == Wish::Stop) {
        return false;
    }
    if (wish == Wish::Close && !isClosing_) {
        beginToClose(beginMs);
    }
    wait(beginMs);
    waker_.endWait();

    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    refusals_.look(nowMs);
    if (!listeners_.empty() && !isPaused(nowMs)) {
        acceptWaiting();
        if (failedTries_ != 0 && !isPaused(nowMs)) {
            endWall(nowMs);
        }
        if (isClosing_ && nowMs >= closeMs_ && !isPaused(nowMs)) {
            listeners_.clear();
            isClosed_ = true;
        }
    }
    return !listeners_.empty() || !refusals_.isEmpty();
}

void Acceptor::beginToClose(std::int64_t nowMs) {
    isClosing_ = true;
    closeMs_ = nowMs + HandshakeMs;
    for (const std::unique_ptr<Listener>& listener : listeners_) {
        listener->refuseNew();
    }
}

void Acceptor::wait(std::int64_t nowMs) {
    polled_.cutOff(0);
    if (!isPaused(nowMs)) {
        for (const std::unique_ptr<Listener>& listener : listeners_) {
            polled_.add(listener->socket(), false);
        }
    }
    if (polled_.wait(waitTimeMs(nowMs)) < 0) {
        msleep(PollFailedMs);
    }
}

int Acceptor::waitTimeMs(std::int64_t nowMs) const {
    constexpr int NoLimit = -1;
    int timeMs = waker_.signal().getSocket() == InvalidSocket ? UnwokenMs : NoLimit;
    const auto atMost = [&timeMs](std::int64_t ms) {
        const int limit = static_cast<int>(std::max<std::int64_t>(ms, 0));
        timeMs = timeMs == NoLimit ? limit : std::min(timeMs, limit);
    };
    if (isPaused(nowMs)) {
        atMost(pausedUntilMs_ - nowMs);
    } else if (isClosing_ && !listeners_.empty()) {
        atMost(closeMs_ - nowMs);
    }
    if (!refusals_.isEmpty()) {
        atMost(RefusalsMs);
    }
    return timeMs;
}

void Acceptor::acceptWaiting() {
    for (std::size_t number = 0; number < listeners_.size(); ++number) {
        acceptWaitingAt(number);
    }
}

void Acceptor::acceptWaitingAt(std::size_t number) {
    // No more than can have waited, so that wishes and refused clients have their turn, too.
    for (std::uint64_t left = std::uint64_t{backlog_} + 1; left > 0; --left) {
        AcceptedSocket accepted;
        accepted.listener = number;
        switch (listeners_[number]->accept(accepted)) {
        case Listener::Outcome::Accepted:
            take(accepted);
            break;
        case Listener::Outcome::NoneWaiting:
            return;
        case Listener::Outcome::TryAgain:
            break;
        case Listener::Outcome::Failed:
            pause();
            return;
        }
    }
}

void Acceptor::take(const AcceptedSocket& accepted) noexcept {
    try {
        if (!take_(accepted)) {
            refusals_.add(accepted.socket, qlSystemUtils::GetTimeBaseMs());
        }
    } catch (...) {
        logCurrentException("a new connection", LogTag);
        closeSocket(accepted.socket);
    }
}

void Acceptor::pause() noexcept {
    const int error = lastSocketError();
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    pausedUntilMs_ = nowMs + PauseMs;
    if (failedTries_++ == 0) {
        wallSinceMs_ = nowMs;
    }
    if (isWallLogged_ || nowMs < nextWallLogMs_) {
        return;
    }
    try {
        qlLogObject(qlLogType::Failure, LogTag) << "Cannot accept connections : " << SystemError(error).toString();
        isWallLogged_ = true;
        nextWallLogMs_ = nowMs + WallLogMs;
    } catch (...) {
        logCurrentException("a pause in accepting", LogTag);
    }
}

void Acceptor::endWall(std::int64_t nowMs) noexcept {
    const std::uint64_t tries = std::exchange(failedTries_, 0);
    if (!std::exchange(isWallLogged_, false)) {
        return;
    }
    try {
        qlLogObject(qlLogType::Failure, LogTag)
            << "Connections are accepted again : " << tries << " failed in " << nowMs - wallSinceMs_ << " ms";
    } catch (...) {
        logCurrentException("the end of a pause in accepting", LogTag);
    }
}

} // namespace ql::impl
