// SPDX-License-Identifier: MIT
#pragma once

#include "session/pool/PoolTask.h"
#include "session/pool/Readiness.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <memory>
#include <thread>
#include <vector>

namespace ql::http {
class WebSocketPool;
} // namespace ql::http

namespace ql::impl {

class TaskPoolState;

/// Serves any number of tasks with a few threads: each has its turn when its socket has news, its timer expires or
/// somebody schedules it, in the order in which that happened. A turn that takes its time holds its thread only.
///
/// Any thread, unless said otherwise.
class TaskPool {
public:
    /// That of an application's pool.
    static TaskPool& of(http::WebSocketPool& pool);

    /// Starts the threads.
    /// @throws std::system_error when the system has no threads or descriptors to give, std::bad_alloc.
    explicit TaskPool(unsigned threads, std::unique_ptr<Readiness> readiness = makeReadiness());

    /// stop(). On a thread of the pool, which cannot wait for itself, nothing is waited for: the threads end on their
    /// own after the turns that they are in, and the last one abandons the tasks.
    ~TaskPool();
    TaskPool(const TaskPool&) = delete;
    TaskPool& operator=(const TaskPool&) = delete;

    /// Serves the task from now on, and keeps it as long. A task comes into a pool once in its life.
    /// @return false when the pool is stopped; nothing has changed then.
    /// @throws std::system_error when the system cannot watch the socket, std::bad_alloc; nothing has changed then.
    bool add(std::shared_ptr<PoolTask> task);

    /// Takes a task out whoever serves the others, so that the caller can end it: its socket isn't watched any more,
    /// and neither left() nor abandon() is called.
    /// @return false when it is in a turn at this moment, or not in the pool: nothing has changed then.
    bool remove(PoolTask& task) noexcept;

    /// Ends the threads after the turns that they are in; all tasks that are left then are abandoned. Returns when all
    /// that has happened, on a thread of the pool at once. Calls may repeat.
    void stop() noexcept;

    /// Whether the calling thread is one of any TaskPool.
    static bool IsPoolThread() noexcept;

private:
    void startThread() QL_REQUIRES(threadsMutex_);

    const std::shared_ptr<TaskPoolState> state_;
    /// Held while the threads are joined; none of them takes it.
    qlMutex threadsMutex_;
    std::vector<std::thread> threads_ QL_GUARDED_BY(threadsMutex_);
};

} // namespace ql::impl
