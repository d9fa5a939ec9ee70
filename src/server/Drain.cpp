#include "server/Drain.h"

#include "engine/Listener.h"
#include "server/Acceptor.h"
#include "server/Admissions.h"
#include "server/ClientConnection.h"
#include "server/EventServing.h"
#include "session/SessionServing.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace ql::impl {

namespace {

/// How long nothing may have happened before it is believed that nothing will: a daemon thread may have received a
/// request and not have come to its handler.
constexpr std::int64_t QuietMs = 100;
/// How long whoever has just connected may take to send something.
constexpr std::int64_t FirstRequestMs = 1000;

bool isExpected(ClientConnection& client, std::int64_t nowMs) {
    const qlMutexLocker locker(client.gate());
    return client.isOpen() &&
           ((!client.hasServed() && nowMs < client.startTime + FirstRequestMs) || unreadBytes(client.socket()) != 0);
}

} // namespace

Drain::Drain(EventServing& serving, Admissions& admissions, Acceptor& acceptor, SessionServing* sessions,
             std::int64_t nowMs)
    : serving_(serving),
      admissions_(admissions),
      acceptor_(acceptor),
      sessions_(sessions),
      graceEndMs_(nowMs + serving.options.getDrainGraceMs()),
      endedBefore_(ended()) {}

bool Drain::isOver(std::int64_t nowMs, std::int64_t deadlineMs) {
    step_ = nowMs >= deadlineMs ? Step::Over : next(nowMs);
    return step_ == Step::Over;
}

Drain::Step Drain::next(std::int64_t nowMs) {
    switch (step_) {
    case Step::Accepting:
        if (nowMs < graceEndMs_) {
            return Step::Accepting;
        }
        close();
        return Step::Closing;
    case Step::Closing:
        if (!acceptor_.isClosed()) {
            return Step::Closing;
        }
        quietSinceMs_ = nowMs;
        return Step::Emptying;
    case Step::Emptying:
        return isQuiet(nowMs) ? Step::Over : Step::Emptying;
    case Step::Over:
        break;
    }
    return Step::Over;
}

void Drain::close() {
    acceptor_.close();
    serving_.webSockets.sayGoodbye();
    if (sessions_ != nullptr) {
        sessions_->sayGoodbye();
    }
}

bool Drain::isQuiet(std::int64_t nowMs) {
    if (isBusy(nowMs)) {
        quietSinceMs_ = nowMs;
    }
    return nowMs - quietSinceMs_ >= QuietMs;
}

bool Drain::isBusy(std::int64_t nowMs) {
    const Admissions::Counts admitted = admissions_.counts();
    const ConnectionTable::ExchangeCounts exchanges = serving_.connections.exchangeCounts();
    const std::uint64_t begun = exchanges.living + exchanges.ended;
    const bool hasBegun = begun != begunBefore_;
    begunBefore_ = begun;
    if (hasBegun || exchanges.living != 0 || admitted.waiting != 0 || admitted.upgraded != 0 ||
        serving_.watch.isLingering()) {
        return true;
    }
    return std::ranges::any_of(serving_.connections.all(), [nowMs](const std::shared_ptr<ClientConnection>& client) {
        return isExpected(*client, nowMs);
    });
}

std::uint64_t Drain::ended() const {
    return serving_.connections.exchangeCounts().ended + admissions_.counts().upgradesEnded;
}

Drain::Result Drain::result() const {
    const Admissions::Counts admitted = admissions_.counts();
    return {ended() - endedBefore_,
            serving_.connections.exchangeCounts().living + admitted.upgraded + admitted.waiting};
}

} // namespace ql::impl
