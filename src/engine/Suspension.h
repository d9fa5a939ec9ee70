// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <thread>

namespace ql::impl {

/// Waits for a change that is no further away than a call of the engine. Not std::atomic's own wait(): where the system
/// has none for it, some standard libraries look at the value before they take the lock that notify_all() takes, and
/// sleep for ever when it changes in between.
template <typename Value>
void awaitChange(const std::atomic<Value>& watched, Value old) {
    while (watched.load() == old) {
        std::this_thread::yield();
    }
}

/// Lets the engine's daemon thread put a connection aside until somebody has something for it, without losing a
/// wake-up and without ever resuming what is not suspended, which the engine does not bear.
///
///                        resume()
///              ┌────────────────────────▶ ResumeAsked
///           Running ◀─────────────────────────┘
///            │   ▲       suspend() takes the wish and does nothing
///  suspend() │   │ resume(), by one thread alone, which tells the engine
///            ▼   │
///          Suspended         finish(), from each of them: Finished, in which nothing is suspended any more
///
/// suspend() is the daemon thread's, in the engine's callbacks, once a call. resume() is anybody's who keeps the object
/// alive, finish() the daemon thread's and the stop's. The daemon thread looks for news after each resumption and after
/// each wish; what came before resume() was called is visible to it then.
///
/// @tparam Connection has suspend() and resume(), neither of which throws.
/// @tparam Atomic std::atomic; a test puts one here that lets it choose the order of all accesses, and an awaitChange()
///     beside it.
template <typename Connection, template <typename> typename Atomic = std::atomic>
class Suspension {
public:
    enum class Outcome {
        Suspended, ///< the engine calls again after a resumption
        LookAgain, ///< there was a wish to resume since the last call: look for news before the next suspend()
        Finished,  ///< after finish(): nothing is suspended any more
    };

    explicit Suspension(Connection connection) : connection_(connection) {}
    Suspension(const Suspension&) = delete;
    Suspension& operator=(const Suspension&) = delete;

    Outcome suspend() {
        State seen = State::ResumeAsked;
        if (state_.compare_exchange_strong(seen, State::Running)) {
            return Outcome::LookAgain;
        }
        if (seen == State::Finished) {
            return Outcome::Finished;
        }
        connection_.suspend();
        seen = State::Running;
        if (!state_.compare_exchange_strong(seen, State::Suspended)) {
            // A wish came in between, or the end. Nobody resumes what is not marked as suspended, but this thread.
            connection_.resume();
        }
        return Outcome::Suspended;
    }

    /// Suspends and resumes at once, which is nobody else's business. For the daemon thread, in the engine's callbacks.
    void touch() {
        connection_.suspend();
        connection_.resume();
    }

    /// As it is at this moment. Any thread.
    bool isSuspended() const { return state_.load() == State::Suspended; }

    /// There is something for the daemon thread. Calls may repeat and overlap.
    void resume() { leave(State::ResumeAsked, State::Running); }

    /// No more suspensions: a suspended connection is resumed, and when this returns no thread is on its way to the
    /// engine with this connection. When the exchange has ended, and before the engine stops.
    void finish() {
        leave(State::Finished, State::Finished);
        for (int count = resumers_.load(); count != 0; count = resumers_.load()) {
            awaitChange(resumers_, count);
        }
    }

private:
    enum class State { Running, ResumeAsked, Suspended, Finished };

    /// Goes to `ifRunning` or, by a resumption, to `ifSuspended`.
    void leave(State ifRunning, State ifSuspended) {
        State seen = state_.load();
        while (seen != State::Finished) {
            if (seen != State::Suspended) {
                // Also where the state stays what it is: the news that this thread has just left must not be overtaken
                // by its look at the state, and only an exchange sees to that.
                if (state_.compare_exchange_strong(seen, ifRunning)) {
                    return;
                }
                continue;
            }
            // Counted first: a stop that finds the connection no longer suspended must know who is about to tell the
            // engine so.
            resumers_.fetch_add(1);
            const bool mine = state_.compare_exchange_strong(seen, ifSuspended);
            if (mine) {
                connection_.resume();
            }
            resumers_.fetch_sub(1);
            if (mine) {
                return;
            }
        }
    }

    Connection connection_;
    Atomic<State> state_{State::Running};
    /// Other threads that are about to resume, or do. The daemon thread need not be counted: the engine's stop joins
    /// it.
    Atomic<int> resumers_{0};
};

} // namespace ql::impl
