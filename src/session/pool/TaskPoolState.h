// SPDX-License-Identifier: MIT
#pragma once

#include "session/pool/PoolTask.h"
#include "session/pool/Readiness.h"
#include "session/pool/ReadyList.h"
#include "session/pool/TimerHeap.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace ql::impl {

/// What the threads of a TaskPool and its tasks share. Lives as long as the last of them.
///
/// The system names a task by a number, not by its address: a thread may hold news of a task that another one removes
/// at the same time, or that had the socket's descriptor before. The number is that of a place in a table and of how
/// many had the place before. Who brings news looks it up under the mutex, under which the place is also given up: what
/// isn't found there has left, and what is found stays until the mutex is released. (A place would have to be given up
/// 2^32 times between a wait and the look for a number to come again.)
class TaskPoolState {
public:
    explicit TaskPoolState(std::unique_ptr<Readiness> readiness);
    ~TaskPoolState();
    TaskPoolState(const TaskPoolState&) = delete;
    TaskPoolState& operator=(const TaskPoolState&) = delete;

    // What TaskPool's members of these names do. Any thread.

    static bool add(const std::shared_ptr<TaskPoolState>& pool, std::shared_ptr<PoolTask> task);
    bool remove(PoolTask& task) noexcept QL_EXCLUDES(mutex_);

    /// The threads end after their turns.
    void stop() noexcept QL_EXCLUDES(mutex_);
    /// Puts a task that was made Queued into the queue, unless it has left meanwhile. Any thread.
    void enqueue(PoolTask& task) noexcept QL_EXCLUDES(mutex_);

    /// Stops watching the socket of a task that is in its turn.
    void forget(PoolTask& task) noexcept;

    /// Before a thread starts that will call run(); and once more if it could not.
    ///@{
    void announceThread() QL_EXCLUDES(mutex_);
    void threadEnds() noexcept QL_EXCLUDES(mutex_);
    ///@}
    /// A thread's work, until the pool is stopped. @param buffer for its turns.
    void run(std::span<unsigned char> buffer) noexcept QL_EXCLUDES(mutex_);

private:
    /// Where a task stands as long as it is in the pool.
    struct Place {
        std::shared_ptr<PoolTask> task;
        std::uint32_t generation = 0;
    };

    bool addToThis(const std::shared_ptr<TaskPoolState>& self, std::shared_ptr<PoolTask>& task) QL_EXCLUDES(mutex_);
    PoolTask* find(std::uint64_t id) const QL_REQUIRES(mutex_);
    bool isHere(const PoolTask& task) const QL_REQUIRES(mutex_);
    PoolTask* takeReady() QL_REQUIRES(mutex_);
    /// Takes a task out that the caller has in hand. @return what kept it.
    std::shared_ptr<PoolTask> giveUp(PoolTask& task) noexcept QL_REQUIRES(mutex_);

    /// Looks for news; where there is nothing else to do, waits for them. The mutex is free meanwhile.
    void look(std::span<Readiness::News> news) QL_REQUIRES(mutex_);
    void note(PoolTask& task, unsigned news) QL_REQUIRES(mutex_);
    /// One turn and what comes of it. @return whether the task is to have another one.
    bool serve(PoolTask& task, unsigned news, std::span<unsigned char> buffer) noexcept QL_EXCLUDES(mutex_);
    void leave(PoolTask& task) noexcept QL_EXCLUDES(mutex_);

    /// Of a task that is being served, for the time that it wants.
    void setTimer(PoolTask& task) noexcept QL_REQUIRES(mutex_);
    void expireTimers() QL_REQUIRES(mutex_);
    void updateAlarm(std::int64_t nowMs) QL_REQUIRES(mutex_);

    /// Whom to wake because somebody waits for a turn and a thread for work; one at a time, who then looks again.
    /// @return null when there is no need.
    std::shared_ptr<Readiness> whomToWake() QL_REQUIRES(mutex_);
    void abandonAll() noexcept QL_EXCLUDES(mutex_);

    qlMutex mutex_;
    /// Constant while a thread is there, and empty after the last. Its own synchronization.
    std::shared_ptr<Readiness> readiness_;
    std::vector<Place> places_ QL_GUARDED_BY(mutex_);
    /// Has room for all.
    std::vector<std::uint32_t> freePlaces_ QL_GUARDED_BY(mutex_);
    ReadyList ready_ QL_GUARDED_BY(mutex_);
    TimerHeap timers_ QL_GUARDED_BY(mutex_);
    std::int64_t alarmMs_ QL_GUARDED_BY(mutex_) = Readiness::NoAlarm;
    unsigned threads_ QL_GUARDED_BY(mutex_) = 0;
    /// Threads that wait for news, or are about to.
    unsigned waiting_ QL_GUARDED_BY(mutex_) = 0;
    /// One of them was woken and hasn't come yet.
    bool isWaking_ QL_GUARDED_BY(mutex_) = false;
    bool isStopping_ QL_GUARDED_BY(mutex_) = false;
};

} // namespace ql::impl
