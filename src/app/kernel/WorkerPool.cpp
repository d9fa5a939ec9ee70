#include "app/kernel/WorkerPool.h"

#include "app/kernel/ExceptionText.h"
#include "app/kernel/Throw.h"
#include "frame/ExceptionLog.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlThread.h"

#include <string>
#include <thread>
#include <utility>

namespace vireo::impl {

namespace {

/// More brings nothing.
constexpr int MaxLooks = 4;

} // namespace

class WorkerPool::Worker final : public qlThread {
public:
    explicit Worker(WorkerPool& pool) : pool_(pool) {}
    ~Worker() override { waitThread(NoTimeLimit); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Of its task; under the pool's lock.

    /// Empty for want of memory, which is no reason not to run it.
    void setLabel(std::string_view label) noexcept {
        try {
            label_ = label;
        } catch (...) {
            label_.clear();
        }
    }
    const std::string& label() const { return label_; }

private:
    void run() override { pool_.runTasks(*this); }

    WorkerPool& pool_;
    std::string label_;
};

WorkerPool::WorkerPool(const Limits& limits) : limits_(limits) {
    try {
        const qlMutexLocker locker(mutex_);
        for (unsigned int i = 0; i < limits_.workers; ++i) {
            addThread();
        }
    } catch (...) {
        const std::string why = currentExceptionText();
        const std::size_t started = counts().threads;
        // Those that have started wait for tasks.
        stop();
        throwRuntimeError("of " + std::to_string(limits_.workers) + " workers only " + std::to_string(started) +
                          " have found a thread : " + why);
    }
}

WorkerPool::~WorkerPool() {
    stop();
}

bool WorkerPool::push(Task&& task, std::string_view label) {
    bool wakes = false;
    {
        const qlMutexLocker locker(mutex_);
        // What a worker is free for does not wait, but lies in the queue until it takes it.
        const std::size_t atWork = running_ - waiting_;
        const std::size_t left = atWork < limits_.workers ? limits_.workers - atWork : 0;
        if (isStopping_ || (tasks_.size() >= left && tasks_.size() - left >= limits_.queue)) {
            ++refused_;
            return false;
        }
        tasks_.push_back({std::move(task), label});
        wakes = claimIdle();
        addThreadIfNeeded();
    }
    if (wakes) {
        taskCame_.wakeOne();
    }
    return true;
}

bool WorkerPool::claimIdle() {
    if (idle_ == 0 || isWaking_ || tasks_.size() <= looking_) {
        return false;
    }
    --idle_;
    isWaking_ = true;
    return true;
}

void WorkerPool::stop() {
    std::list<std::unique_ptr<Worker>> ended;
    {
        const qlMutexLocker locker(mutex_);
        isStopping_ = true;
        taskCame_.wakeAll();
        ended.splice(ended.end(), threads_);
        ended.splice(ended.end(), ended_);
    }
    for (const auto& worker : ended) {
        while (!worker->waitThread(limits_.stopLineMs)) {
            qlLogObject(qlLogType::Failure, "app") << "The stop waits for the handler of " << labelOf(*worker);
        }
    }
}

std::string WorkerPool::labelOf(const Worker& worker) const {
    const qlMutexLocker locker(mutex_);
    return worker.label();
}

WorkerPool::Counts WorkerPool::counts() const {
    const qlMutexLocker locker(mutex_);
    return {running_, threads_.size(), tasks_.size(), refused_};
}

void WorkerPool::begin() noexcept {
    const qlMutexLocker locker(mutex_);
    ++waiting_;
    addThreadIfNeeded();
}

void WorkerPool::end() noexcept {
    const qlMutexLocker locker(mutex_);
    --waiting_;
}

void WorkerPool::addThread() {
    threads_.push_back(std::make_unique<Worker>(*this));
    try {
        threads_.back()->startThread("app worker");
    } catch (...) {
        threads_.pop_back();
        throw;
    }
}

void WorkerPool::addThreadIfNeeded() {
    if (isStopping_ || tasks_.size() <= threads_.size() - running_ || threads_.size() - waiting_ >= limits_.workers ||
        threads_.size() >= limits_.workers + limits_.extra) {
        return;
    }
    try {
        addThread();
    } catch (...) {
        // The task waits for one of those that there are.
    }
}

void WorkerPool::awaitTask() {
    ++looking_;
    for (int looks = 0; looks < MaxLooks && tasks_.empty() && !isStopping_; ++looks) {
        mutex_.unlock();
        std::this_thread::yield();
        mutex_.lock();
    }
    --looking_;
    while (tasks_.empty() && !isStopping_) {
        ++idle_;
        while (!isWaking_ && !isStopping_) {
            taskCame_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
        }
        isWaking_ = false;
    }
}

void WorkerPool::runTasks(Worker& self) {
    std::list<std::unique_ptr<Worker>> endedBefore;
    qlMutexLocker locker(mutex_);
    while (true) {
        awaitTask();
        if (tasks_.empty()) {
            return;
        }
        {
            self.setLabel(tasks_.front().label);
            const Task task = std::move(tasks_.front().task);
            tasks_.pop_front();
            ++running_;
            const bool wakes = !tasks_.empty() && claimIdle();
            locker.unlock();
            if (wakes) {
                taskCame_.wakeOne();
            }
            try {
                task();
            } catch (...) {
                ql::impl::logCurrentException("a task of a worker", "app");
            }
        }
        locker.lock();
        --running_;
        if (!isStopping_ && threads_.size() - waiting_ > limits_.workers) {
            // Joined by the next one that ends so, or by stop().
            endedBefore.swap(ended_);
            for (auto thread = threads_.begin(); thread != threads_.end(); ++thread) {
                if (thread->get() == &self) {
                    ended_.splice(ended_.end(), threads_, thread);
                    break;
                }
            }
            return;
        }
    }
}

} // namespace vireo::impl
