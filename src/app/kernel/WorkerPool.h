// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/ClientWaits.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlWaitCondition.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>

namespace vireo::impl {

/// The threads that run handlers. Tasks wait in one queue, the first come first. So many threads as there are workers
/// run tasks at once, not counting those that wait for a client: another thread takes the place of such a one.
///
/// At most one thread that is woken is on its way at a time. When it takes a task and leaves others, it wakes the next:
/// so short tasks are taken by a thread that is awake, rather than each by one that is woken for it. A thread that has
/// run out of tasks offers its core a few times to who brings one, before it sleeps: under load that spares both the
/// wake-up.
class WorkerPool final : public ClientWaits {
public:
    using Task = std::function<void()>;

    struct Limits {
        /// How many tasks run at once, besides those that wait for a client.
        unsigned int workers = 8;
        /// How many tasks may wait.
        std::size_t queue = 1024;
        /// How many threads may wait for clients.
        unsigned int extra = 512;
        /// How often stop() says what it waits for.
        int stopLineMs = 10000;
    };

    struct Counts {
        std::uint64_t busy = 0; ///< tasks that run, those that wait for a client among them
        std::uint64_t threads = 0;
        std::uint64_t queued = 0;
        std::uint64_t refused = 0; ///< since the begin
    };

    /// Starts the workers.
    /// @throws std::system_error
    explicit WorkerPool(const Limits& limits);
    /// stop().
    ~WorkerPool() override;
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Any thread.
    /// @param label for stop(); the task keeps its text.
    /// @return false when the queue is full, or after stop(): the task is left as it is.
    bool push(Task&& task, std::string_view label) QL_EXCLUDES(mutex_);
    /// Waits until all tasks have run, those in the queue too, and joins the threads; what takes long the log names.
    /// Not on one of them.
    void stop() QL_EXCLUDES(mutex_);
    Counts counts() const QL_EXCLUDES(mutex_);

    // ---- ClientWaits: on threads of the pool, in a task ----

    void begin() noexcept override QL_EXCLUDES(mutex_);
    void end() noexcept override QL_EXCLUDES(mutex_);

private:
    class Worker;
    struct Entry {
        Task task;
        std::string_view label;
    };

    /// @return whether the caller is to wake a thread, once it has let go of the lock.
    bool claimIdle() QL_REQUIRES(mutex_);
    void addThread() QL_REQUIRES(mutex_);
    /// Adds a thread where a task waits that none of those there are is free for, but for those that wait for clients.
    void addThreadIfNeeded() QL_REQUIRES(mutex_);
    void runTasks(Worker& self) QL_EXCLUDES(mutex_);
    /// Looks for a task a few times, then sleeps until one has come or the pool stops.
    void awaitTask() QL_REQUIRES(mutex_);
    std::string labelOf(const Worker& worker) const QL_EXCLUDES(mutex_);

    const Limits limits_;
    mutable qlMutex mutex_;
    qlWaitCondition taskCame_;
    std::deque<Entry> tasks_ QL_GUARDED_BY(mutex_);
    std::list<std::unique_ptr<Worker>> threads_ QL_GUARDED_BY(mutex_);
    /// Threads that have ended their work, to be joined.
    std::list<std::unique_ptr<Worker>> ended_ QL_GUARDED_BY(mutex_);
    /// Threads that look for a task before they sleep: nobody is woken for so many.
    std::size_t looking_ QL_GUARDED_BY(mutex_) = 0;
    /// Threads that wait for a task, and for which no wake-up is on its way.
    std::size_t idle_ QL_GUARDED_BY(mutex_) = 0;
    /// Tasks that were taken and are not through.
    std::size_t running_ QL_GUARDED_BY(mutex_) = 0;
    /// Those of them that wait for a client.
    std::size_t waiting_ QL_GUARDED_BY(mutex_) = 0;
    std::uint64_t refused_ QL_GUARDED_BY(mutex_) = 0;
    /// A wake-up is on its way.
    bool isWaking_ QL_GUARDED_BY(mutex_) = false;
    bool isStopping_ QL_GUARDED_BY(mutex_) = false;
};

} // namespace vireo::impl
