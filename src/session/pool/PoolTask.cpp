#include "session/pool/PoolTask.h"

#include "session/pool/TaskPoolState.h"

namespace ql::impl {

PoolTask::~PoolTask() = default;

void PoolTask::schedule() noexcept {
    if (state_.note(Wished)) {
        pool_->enqueue(*this);
    }
}

void PoolTask::letGoOfSocket() noexcept {
    pool_->forget(*this);
}

} // namespace ql::impl
