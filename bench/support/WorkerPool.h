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
/// worker is on its way at a time; it wakes the next one when it finds more than it can take. Before one sleeps, it
/// may offer its core to who brings the next job.
template <typename Job>
class WorkerPool {
public:
    /// @param looks how often a worker offers its core before it sleeps: none where who brings jobs polls.
    WorkerPool(unsigned int count, std::function<void(Job)> handle, int looks = 0)
        : handle_(std::move(handle)), maxLooks_(looks) {
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
        if (sleeping_ == 0 || wakeUps_ != 0 || jobs_.size() <= looking_) {
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
            ++looking_;
            for (int looks = 0; looks < maxLooks_ && jobs_.empty(); ++looks) {
                lock.unlock();
                std::this_thread::yield();
                lock.lock();
            }
            --looking_;
            if (!jobs_.empty()) {
                continue;
            }
            ++sleeping_;
            available_.wait(lock, [this] { return wakeUps_ != 0 || stopping_; });
            if (wakeUps_ != 0) {
                --wakeUps_;
            }
        }
    }

    const std::function<void(Job)> handle_;
    const int maxLooks_;
    std::mutex mutex_;
    std::condition_variable available_;
    std::deque<Job> jobs_;
    /// Workers that look for a job before they sleep.
    unsigned int looking_ = 0;
    /// Workers that wait and for which no wake-up is on its way.
    unsigned int sleeping_ = 0;
    /// Wake-ups on their way.
    unsigned int wakeUps_ = 0;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

} // namespace bench
