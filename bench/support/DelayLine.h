#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace bench {

/// Passes jobs on a fixed time after they came: answers that take long without a thread that waits for each.
template <typename Job>
class DelayLine {
public:
    DelayLine(std::chrono::milliseconds delay, std::function<void(Job)> passOn)
        : delay_(delay), passOn_(std::move(passOn)), thread_([this] { run(); }) {}

    ~DelayLine() { stop(); }
    DelayLine(const DelayLine&) = delete;
    DelayLine& operator=(const DelayLine&) = delete;

    void push(Job job) {
        {
            const std::lock_guard lock(mutex_);
            jobs_.emplace_back(Clock::now() + delay_, job);
        }
        changed_.notify_one();
    }

    /// Passes on at once what waits, and joins the thread.
    void stop() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        changed_.notify_one();
        if (thread_.joinable()) {
            thread_.join();
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    void run() {
        std::unique_lock lock(mutex_);
        while (!stopping_ || !jobs_.empty()) {
            if (jobs_.empty()) {
                changed_.wait(lock);
                continue;
            }
            const auto [due, job] = jobs_.front();
            if (!stopping_ && Clock::now() < due) {
                changed_.wait_until(lock, due);
                continue;
            }
            jobs_.pop_front();
            lock.unlock();
            passOn_(job);
            lock.lock();
        }
    }

    const std::chrono::milliseconds delay_;
    const std::function<void(Job)> passOn_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::pair<Clock::time_point, Job>> jobs_;
    bool stopping_ = false;
    std::thread thread_; // last: it uses the others
};

} // namespace bench
