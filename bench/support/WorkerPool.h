#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace bench {

/// Threads that answer requests, as an application has them: a queue, and workers that drain it. At most one woken
/// worker is on its way at a time; it wakes the next one when it finds more than it can take.
template <typename Job>
class WorkerPool {
public:
    WorkerPool(unsigned int count, std::function<void(Job)> handle) : handle_(std::move(handle)) {
        threads_.reserve(count);
        for (unsigned int i = 0; i < count; ++i) {
            threads_.emplace_back([this] { run(); });
        }
    }

    ~WorkerPool() { stop(); }
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    void push(Job job) {
        bool wake = false;
        {
            const std::lock_guard lock(mutex_);
            jobs_.push_back(job);
            wake = claimSleeper();
        }
        if (wake) {
            available_.notify_one();
        }
    }

    /// Lets the workers finish what waits, and joins them.
    void stop() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        available_.notify_all();
        for (std::thread& thread : threads_) {
            if (thread.joinable()) {
                thread.join();
            }
        }
    }

private:
    /// With the lock held. @return whether a worker is to be woken.
    bool claimSleeper() {
        if (sleeping_ == 0 || wakeUps_ != 0) {
            return false;
        }
        --sleeping_;
        ++wakeUps_;
        return true;
    }

    void run() {
        std::unique_lock lock(mutex_);
        while (true) {
            while (!jobs_.empty()) {
                const Job job = jobs_.front();
                jobs_.pop_front();
                const bool wake = !jobs_.empty() && claimSleeper();
                lock.unlock();
                if (wake) {
                    available_.notify_one();
                }
                handle_(job);
                lock.lock();
            }
            if (stopping_) {
                return;
            }
            ++sleeping_;
            available_.wait(lock, [this] { return wakeUps_ != 0 || stopping_; });
            if (wakeUps_ != 0) {
                --wakeUps_;
            }
        }
    }

    const std::function<void(Job)> handle_;
    std::mutex mutex_;
    std::condition_variable available_;
    std::deque<Job> jobs_;
    /// Workers that wait and for which no wake-up is on its way.
    unsigned int sleeping_ = 0;
    /// Wake-ups on their way.
    unsigned int wakeUps_ = 0;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

} // namespace bench
