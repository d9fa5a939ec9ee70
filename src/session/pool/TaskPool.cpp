#include "session/pool/TaskPool.h"

#include "frame/ThreadName.h"
#include "session/pool/TaskPoolState.h"

#include <cstddef>
#include <span>
#include <utility>

namespace ql::impl {

namespace {

constexpr std::size_t BufferBytes = 65536;

/// The pool whose thread this is.
thread_local const TaskPoolState* currentPool = nullptr;

} // namespace

TaskPool::TaskPool(unsigned threads, std::unique_ptr<Readiness> readiness)
    : state_(std::make_shared<TaskPoolState>(std::move(readiness))) {
    try {
        const qlMutexLocker lock(threadsMutex_);
        threads_.reserve(threads);
        for (unsigned i = 0; i < threads; ++i) {
            startThread();
        }
    } catch (...) {
        stop();
        throw;
    }
}

TaskPool::~TaskPool() {
    stop();
    const qlMutexLocker lock(threadsMutex_);
    for (std::thread& thread : threads_) {
        // Left only where they cannot be waited for. What they need is theirs as well.
        thread.detach();
    }
}

void TaskPool::startThread() {
    auto buffer = std::make_unique_for_overwrite<unsigned char[]>(BufferBytes);
    state_->announceThread();
    try {
        threads_.emplace_back([state = state_, buffer = std::move(buffer)] {
            setCurrentThreadName("session pool");
            currentPool = state.get();
            state->run(std::span(buffer.get(), BufferBytes));
            state->threadEnds();
        });
    } catch (...) {
        state_->threadEnds();
        throw;
    }
}

bool TaskPool::add(std::shared_ptr<PoolTask> task) {
    return TaskPoolState::add(state_, std::move(task));
}

bool TaskPool::remove(PoolTask& task) noexcept {
    return state_->remove(task);
}

void TaskPool::stop() noexcept {
    state_->stop();
    if (currentPool == state_.get()) {
        return;
    }
    const qlMutexLocker lock(threadsMutex_);
    for (std::thread& thread : threads_) {
        thread.join();
    }
    threads_.clear();
}

bool TaskPool::IsPoolThread() noexcept {
    return currentPool != nullptr;
}

} // namespace ql::impl
