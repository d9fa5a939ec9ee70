// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <map>
#include <memory>

namespace ql::impl {

class SessionCore;
class TaskPool;

/// The sessions of one run of a server, which ends them before its engine stops. Any thread.
class SessionRoster {
public:
    /// Before the session comes into the pool, once it has begun.
    /// @return false after cut(): the caller abandons the session.
    /// @throws std::bad_alloc; it is not in then.
    bool add(const std::shared_ptr<SessionCore>& session) QL_EXCLUDES(mutex_);

    /// Tells the peers of all sessions, those that are added later included, that the server goes away.
    void goodbye() noexcept QL_EXCLUDES(mutex_);

    /// Ends all sessions without waiting for their peers: those that are in a callback when it returns, the others here
    /// and now. Calls may repeat.
    /// @param pool the one they are in, or are about to come into.
    void cut(TaskPool& pool) noexcept QL_EXCLUDES(mutex_);

    /// Whether every session has gone: its last callback has returned, and its socket is closed.
    bool isEmpty() const QL_EXCLUDES(mutex_);

    /// By a session that has gone, as its last act.
    void remove(const SessionCore& session) noexcept QL_EXCLUDES(mutex_);

private:
    /// The next one by address. Going from one to the next needs no memory, and no lock while something is done with
    /// one.
    std::shared_ptr<SessionCore> after(const SessionCore* session) const QL_EXCLUDES(mutex_);

    mutable qlMutex mutex_;
    std::map<const SessionCore*, std::shared_ptr<SessionCore>> sessions_ QL_GUARDED_BY(mutex_);
    bool isLeaving_ QL_GUARDED_BY(mutex_) = false;
    bool isCut_ QL_GUARDED_BY(mutex_) = false;
};

} // namespace ql::impl
