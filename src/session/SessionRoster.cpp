#include "session/SessionRoster.h"

#include "session/SessionCore.h"

namespace ql::impl {

bool SessionRoster::add(const std::shared_ptr<SessionCore>& session) {
    bool isLeaving = false;
    {
        const qlMutexLocker lock(mutex_);
        if (isCut_) {
            return false;
        }
        sessions_.emplace(session.get(), session);
        isLeaving = isLeaving_;
    }
    session->enter(*this);
    if (isLeaving) {
        session->sayGoodbye();
    }
    return true;
}

void SessionRoster::goodbye() noexcept {
    {
        const qlMutexLocker lock(mutex_);
        isLeaving_ = true;
    }
    for (auto session = after(nullptr); session; session = after(session.get())) {
        session->sayGoodbye();
    }
}

void SessionRoster::cut(TaskPool& pool) noexcept {
    {
        const qlMutexLocker lock(mutex_);
        isCut_ = true;
    }
    for (auto session = after(nullptr); session; session = after(session.get())) {
        session->cut(pool);
    }
}

bool SessionRoster::isEmpty() const {
    const qlMutexLocker lock(mutex_);
    return sessions_.empty();
}

void SessionRoster::remove(const SessionCore& session) noexcept {
    const qlMutexLocker lock(mutex_);
    sessions_.erase(&session);
}

std::shared_ptr<SessionCore> SessionRoster::after(const SessionCore* session) const {
    const qlMutexLocker lock(mutex_);
    const auto next = sessions_.upper_bound(session);
    return next == sessions_.end() ? nullptr : next->second;
}

} // namespace ql::impl
