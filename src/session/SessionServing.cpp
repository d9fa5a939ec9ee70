#include "session/SessionServing.h"

#include "frame/ExceptionLog.h"
#include "session/SessionCore.h"
#include "session/pool/TaskPool.h"
#include "vireo/support/qlSystemUtils.h"

#include <utility>

namespace ql::impl {

SessionServing::SessionServing(const http::WebSocketOptions& options)
    : settings_(SessionSettings::forSessions(options)),
      givenPool_(options.getPool()),
      ownPool_(givenPool_ ? nullptr : std::make_unique<TaskPool>(settings_->threads)),
      pool_(ownPool_ ? *ownPool_ : TaskPool::of(*givenPool_)) {}

SessionServing::~SessionServing() = default;

void SessionServing::begin(SessionStart&& start) noexcept {
    const std::shared_ptr<SessionCore> core = SessionCore::Begin(std::move(start));
    try {
        if (roster_.add(core) && pool_.add(core)) {
            return;
        }
    } catch (...) {
        logCurrentException("a session of a WebSocket", "httpserver");
    }
    core->abandon();
}

void SessionServing::sayGoodbye() noexcept {
    if (!goodbyeMs_) {
        goodbyeMs_ = qlSystemUtils::GetTimeBaseMs();
        roster_.goodbye();
    }
}

bool SessionServing::areGone(std::int64_t nowMs, std::int64_t patienceMs) noexcept {
    sayGoodbye();
    if (nowMs - *goodbyeMs_ >= patienceMs || roster_.isEmpty()) {
        roster_.cut(pool_);
    }
    return roster_.isEmpty();
}

} // namespace ql::impl
