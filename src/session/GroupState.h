// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace ql::impl {

class SessionCore;
class SharedMessage;

/// The members of a WebSocketGroup. Any thread.
///
/// Who sends goes through the list as it was when he began, without the lock: no member holds up those who come and go.
/// A list that somebody goes through is not changed any more; who comes or goes makes another.
class GroupState {
public:
    using Member = std::shared_ptr<SessionCore>;

    /// @return false when it is not open, or in already. @throws std::bad_alloc; it is not in then.
    bool add(const Member& member) QL_EXCLUDES(mutex_);
    /// @return false when it is not in. @throws std::bad_alloc; it is in then.
    bool remove(const Member& member) QL_EXCLUDES(mutex_);
    /// How many are open.
    std::size_t size() const QL_EXCLUDES(mutex_);

    /// @param except may be null.
    /// @return how many have taken it.
    std::size_t send(SharedMessage& message, const Member& except) QL_EXCLUDES(mutex_);

private:
    using Members = std::vector<Member>;
    class Reading;

    /// A list that nobody goes through.
    Members& changeable() QL_REQUIRES(mutex_);
    void forgetClosed() noexcept QL_EXCLUDES(mutex_);

    mutable qlMutex mutex_;
    std::shared_ptr<Members> members_ QL_GUARDED_BY(mutex_) = std::make_shared<Members>();
    /// How many go through it.
    std::size_t readers_ QL_GUARDED_BY(mutex_) = 0;
};

} // namespace ql::impl
