// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

namespace ql::impl {

/// What has happened since a task's last turn began. Bits of one number.
enum TaskNews : unsigned {
    Wished = 1,       ///< somebody asked for a turn
    InputCame = 2,    ///< there may be something to read
    RoomCame = 4,     ///< there may be room to write
    InputEnded = 8,   ///< the peer has ended its sending, or the connection is broken
    TimerExpired = 16 ///< the task's timer
};

/// Who has a task, so that no two threads serve it at once and no news is missed:
///
///     Idle -- news --> Queued -- begin() --> Serving -- news --> ServingAgain
///      ^                 ^                      |                     |
///      |                 +------ endAgain() ----|---------------------+  (after end(): false)
///      +------------------------ end(): true ---+
///
///     Idle, Queued -- claim() --> Claimed -- enter() --> Queued          (a task begins as Claimed)
///
/// One atomic word: a bit that says that somebody has the task (all but Idle), one that says that it isn't the queue
/// (Serving, ServingAgain, Claimed), and the news. News come at any time. Where somebody has the task they are noted
/// for its next turn; the one who makes it Queued puts it into the queue. begin(), endAgain() and claim() are called
/// under the lock of the queue, so that what is Queued either stands there or is on its way.
class TurnState {
public:
    /// Any thread. @return true when the task is Queued by that: the caller puts it into the queue.
    bool note(unsigned news) noexcept { return (word_.fetch_or(news | Held, std::memory_order_acq_rel) & Held) == 0; }

    /// A task that was Claimed comes into the queue. By who has claimed it.
    void enter() noexcept { word_.fetch_and(~Engaged, std::memory_order_acq_rel); }

    /// Of a task that is taken out of the queue. @return the news.
    unsigned begin() noexcept { return word_.exchange(Held | Engaged, std::memory_order_acq_rel) & AllNews; }

    /// At the end of a turn. @return false when there are news: the task is still Serving.
    bool end() noexcept {
        unsigned expected = Held | Engaged;
        return word_.compare_exchange_strong(expected, 0, std::memory_order_acq_rel, std::memory_order_relaxed);
    }
    /// Where there are: the task is Queued, and the caller puts it into the queue.
    void endAgain() noexcept { word_.fetch_and(~Engaged, std::memory_order_acq_rel); }

    /// Any thread but one that is in the task's turn. @return false when it is being served, or was claimed.
    bool claim() noexcept { return (word_.fetch_or(Held | Engaged, std::memory_order_acq_rel) & Engaged) == 0; }

private:
    static constexpr unsigned AllNews = Wished | InputCame | RoomCame | InputEnded | TimerExpired;
    static constexpr unsigned Held = 32;
    static constexpr unsigned Engaged = 64;

    std::atomic<unsigned> word_{Held | Engaged};
};

} // namespace ql::impl
