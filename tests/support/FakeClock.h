#pragma once

#include "frame/TimeSource.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

namespace vireotest {

/// Stands in for the library's monotonic clock while it lives. One at a time, and no daemon may run meanwhile.
class FakeClock {
public:
    explicit FakeClock(std::int64_t startMs = 1000000) {
        set({startMs});
        ql::impl::setTimeSource([] { return state().read(); });
    }
    ~FakeClock() { ql::impl::setTimeSource(nullptr); }
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;

    void advanceMs(std::int64_t ms) { set({nowMs() + ms}); }

    /// Each later reading takes the next of `times`; the last one stays.
    void replay(std::vector<std::int64_t> times) { set(std::move(times)); }

    /// The time that the next reading will give.
    std::int64_t nowMs() const {
        const std::lock_guard<std::mutex> guard(state().mutex);
        return state().times[state().next];
    }

    /// How often the clock was read since it was made, moved or given times to replay.
    int readings() const {
        const std::lock_guard<std::mutex> guard(state().mutex);
        return state().readings;
    }

private:
    struct State {
        std::mutex mutex;
        std::vector<std::int64_t> times{0};
        std::size_t next = 0;
        int readings = 0;

        std::int64_t read() {
            const std::lock_guard<std::mutex> guard(mutex);
            const std::int64_t time = times[next];
            if (next + 1 < times.size()) {
                ++next;
            }
            ++readings;
            return time;
        }
    };

    static State& state() {
        static State instance;
        return instance;
    }

    static void set(std::vector<std::int64_t> times) {
        const std::lock_guard<std::mutex> guard(state().mutex);
        state().times = std::move(times);
        state().next = 0;
        state().readings = 0;
    }
};

} // namespace vireotest
