// SPDX-License-Identifier: MIT
#pragma once

#include "session/pool/Readiness.h"
#include "session/pool/ReadyList.h"
#include "session/pool/TimerHeap.h"
#include "session/pool/TurnState.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>

namespace ql::impl {

class TaskPoolState;

/// What a task sees of its turn.
class Turn {
public:
    Turn(unsigned news, std::span<unsigned char> buffer) : news_(news), buffer_(buffer) {}

    /// Whether the socket may have something to read that it had not when the task last read until it would block. An
    /// input that has ended counts as well.
    bool hasInput() const { return (news_ & (InputCame | InputEnded)) != 0; }
    /// Whether the socket's input has ended, so that nobody will tell of more: a task that has stopped before the
    /// socket would block has to read on.
    bool hasInputEnded() const { return (news_ & InputEnded) != 0; }
    /// Whether the time has come that the task's last turn asked for.
    bool isTimerDue() const { return (news_ & TimerExpired) != 0; }
    /// 64 KiB to receive into. The thread's: nothing in it stays there after the turn.
    std::span<unsigned char> buffer() const { return buffer_; }

private:
    const unsigned news_;
    const std::span<unsigned char> buffer_;
};

/// How a turn has ended.
struct TurnResult {
    enum class Next {
        Wait,  ///< until there are news
        Again, ///< there is more to do at once: after all that wait for a turn now
        Leave, ///< the task leaves the pool
    };
    static constexpr auto Never = std::numeric_limits<std::int64_t>::max();

    Next next = Next::Wait;
    /// Whether what comes is to be news. False only for as long as the task cannot take more.
    bool wantsToRead = true;
    /// Whether room in a socket that was full is to be news.
    bool wantsToWrite = false;
    /// When the task wants a turn even without news, by qlSystemUtils::GetTimeBaseMs(). Costs nothing to move to a
    /// later time, turn by turn. It comes late by up to a 16th of the time that was left, and a second at the most, so
    /// that many of them can come at once.
    std::int64_t dueMs = Never;
};

/// Something with a socket that a TaskPool serves, one turn at a time. Every protocol has one implementation.
class PoolTask : private ReadyLink {
public:
    /// What a turn should not exceed by much: others wait. A task that has more to do asks for another one.
    ///@{
    static constexpr std::size_t TurnBytes = 262144;
    static constexpr unsigned TurnMessages = 64;
    ///@}

    PoolTask() = default;
    virtual ~PoolTask();
    PoolTask(const PoolTask&) = delete;
    PoolTask& operator=(const PoolTask&) = delete;

    /// Asks for a turn. Any thread, also while the task is in no pool: then that is noted until it comes into one, or
    /// was for nothing because it has left.
    void schedule() noexcept;

protected:
    friend class TaskPoolState;

    /// The socket to watch; constant while the task is in a pool.
    virtual std::uint64_t getSocket() const = 0;

    /// One turn: sends and receives what it can without waiting. The first comes as soon as the task is in the pool.
    /// Where it has read until the socket would block, or got less than it had room for while the input has not ended,
    /// it may wait for news.
    ///
    /// Thread: of the pool, no lock held. Never two at once.
    virtual TurnResult serve(const Turn& turn) noexcept = 0;

    /// In its turn, which is then its last: nobody watches the socket any more, so that it may be closed at once.
    void letGoOfSocket() noexcept;

    /// The task has left by its own turn. Nobody watches the socket any more: it may be closed. On the same thread,
    /// right afterwards; no lock held.
    virtual void left() noexcept = 0;

    /// The same when the pool ends with the task in it. On the last thread of the pool.
    virtual void abandon() noexcept = 0;

private:
    /// Of the pool that the task was added to; set before the first turn, never changed afterwards.
    std::shared_ptr<TaskPoolState> pool_;
    TurnState state_;

    // The links, and the timer with the time for which it was set, are guarded by the pool's mutex.

    TimerHeap::Timer timer_{this};
    /// The thread in the task's turn reads it without the mutex: a timer that expires at that moment is news, upon
    /// which it looks again.
    std::atomic<std::int64_t> timerDueMs_{TurnResult::Never};

    // Of the thread that serves the task. The number in `watched_` is constant while the task is in the pool.

    WatchedSocket watched_;
    bool hasInputEnded_ = false;
    std::int64_t dueMs_ = TurnResult::Never;
};

} // namespace ql::impl
