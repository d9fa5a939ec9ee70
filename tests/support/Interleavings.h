#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace vireotest {

/// Runs threads one step at a time in an order of its choosing, so that a test can go through every interleaving of a
/// small case, and through random ones of a large one. A step ends at each access to a ScheduledAtomic, at point() and
/// at waitUntil(). Nothing else that threads share may be touched between two of them by more than one thread.
///
/// Time stands still as long as a thread can go on, and then goes on to the next moment that one waits for.
class Interleavings {
public:
    using Body = std::function<void()>;
    /// Makes the threads of one run; what they share is captured, and made anew each time.
    using Case = std::function<std::vector<Body>()>;

    static constexpr std::int64_t NoDeadline = std::numeric_limits<std::int64_t>::max();

    /// What becomes of the threads of a run that has failed.
    enum class OnFailure {
        Unwind,     ///< each is left by an exception at its next step
        EndProcess, ///< with exit code 1: for code through which no exception may pass
    };

    /// What came of a search.
    struct Result {
        std::uint64_t runs = 0;
        /// Empty when every run ended; else what was wrong, and with which choices.
        std::string failure;
    };

    /// Goes through all interleavings in which threads that could go on are held up so many times, or until one fails.
    /// Most faults of this kind take one or two such times to show.
    static Result all(const Case& makeCase, std::size_t preemptions, OnFailure onFailure = OnFailure::Unwind);
    /// Goes through so many random ones, or until one fails. Each has a seed of its own, from this one on.
    static Result random(const Case& makeCase, std::uint64_t runs, std::uint32_t seed,
                         OnFailure onFailure = OnFailure::Unwind);

    // For the threads of a run.

    /// Another thread may go on here.
    static void point();
    /// This thread goes on only once `ready` is true, which is asked between steps. When no thread can go on, the run
    /// has failed: it hangs.
    static void waitUntil(const std::function<bool()>& ready);
    /// The same, or once it is so late. @return false when `ready` is not true even then.
    static bool waitUntil(const std::function<bool()>& ready, std::int64_t deadlineNs);
    /// The others that can go on come first.
    static void yield();
    /// The time of the run, from 0 on.
    static std::int64_t nowNs();
    /// The run has failed.
    static void fail(const std::string& reason);

    // For who puts himself between a thread and the system.

    /// Whether the calling thread is one of a run, and not in this class.
    static bool isScheduled();
    /// A thread of a run makes another one, which joins the run. @return its number.
    static std::size_t announce();
    /// Of such a thread, around all that it does in the run. begin() waits for its first turn.
    static void begin(std::size_t number);
    static void end();
    static bool hasEnded(std::size_t number);
    /// The calling thread's.
    static std::size_t currentNumber();
};

/// Stands for a std::atomic in code that a test schedules.
template <typename Value>
class ScheduledAtomic {
public:
    explicit ScheduledAtomic(Value value) : value_(value) {}

    Value load() const {
        Interleavings::point();
        return value_;
    }

    void store(Value value) {
        Interleavings::point();
        value_ = value;
    }

    bool compare_exchange_strong(Value& expected, Value desired) {
        Interleavings::point();
        if (value_ == expected) {
            value_ = desired;
            return true;
        }
        expected = value_;
        return false;
    }

    Value fetch_add(Value by) {
        Interleavings::point();
        return std::exchange(value_, value_ + by);
    }

    Value fetch_sub(Value by) {
        Interleavings::point();
        return std::exchange(value_, value_ - by);
    }

    friend void awaitChange(const ScheduledAtomic& watched, Value old) {
        Interleavings::waitUntil([&watched, old] { return watched.value_ != old; });
    }

private:
    Value value_;
};

} // namespace vireotest
