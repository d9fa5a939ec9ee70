#include "vireo/support/qlThread.h"

#include "frame/ExceptionLog.h"
#include "frame/NeverDestroyed.h"
#include "frame/ThreadName.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlWaitCondition.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <thread>
#include <utility>

namespace ql::impl {

struct ThreadState {
    qlMutex mutex;
    qlWaitCondition ended;
    std::uint64_t runNumber QL_GUARDED_BY(mutex) = 0;
    bool running QL_GUARDED_BY(mutex) = false;
    std::thread native QL_GUARDED_BY(mutex);
};

} // namespace ql::impl

using ql::impl::ThreadState;

qlThread::qlThread() : state_(std::make_unique<ThreadState>()) {}

qlThread::~qlThread() {
    waitThread(NoTimeLimit);
}

void qlThread::startThread(const char* name) {
    std::string threadName(name == nullptr ? "" : name);
    threadName.resize((std::min)(threadName.size(), ql::impl::MaxThreadNameLength));

    ThreadState& state = *state_;
    const qlMutexLocker locker(state.mutex);
    if (state.running) {
        return;
    }
    if (state.native.joinable()) {
        state.native.join();
    }
    state.native = std::thread([this, threadName = std::move(threadName)] {
        if (!threadName.empty()) {
            ql::impl::setCurrentThreadName(threadName);
        }
        body();
    });
    // The new thread cannot report its end before the lock is released.
    state.running = true;
    ++state.runNumber;
}

std::uint64_t qlThread::getRunNumber() const {
    const qlMutexLocker locker(state_->mutex);
    return state_->runNumber;
}

bool qlThread::waitThread(int ms) {
    return waitRun(getRunNumber(), ms);
}

bool qlThread::waitRun(std::uint64_t number, int ms) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(ms);

    ThreadState& state = *state_;
    const qlMutexLocker locker(state.mutex);
    if (state.native.get_id() == std::this_thread::get_id()) {
        return false;
    }
    while (state.running && state.runNumber == number) {
        if (ms == NoTimeLimit) {
            state.ended.wait(&state.mutex, qlWaitCondition::NoTimeLimit);
            continue;
        }
        const std::int64_t left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return false;
        }
        state.ended.wait(&state.mutex, static_cast<unsigned long>(left));
    }
    // With running false the thread has nothing left to do that wants the lock, so joining under it is short and lets
    // several callers wait at once. A start that came in between has joined already.
    if (!state.running && state.native.joinable()) {
        state.native.join();
    }
    return true;
}

void qlThread::msleep(unsigned long ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

const std::string& qlThread::CurrentThreadId() {
    // The system's own ids are given to new threads once theirs have ended; a count is not.
    static std::atomic<std::uint64_t> lastId{0};
    // So short a text has no memory of its own.
    thread_local ql::impl::NeverDestroyed<std::string> id(std::to_string(lastId.fetch_add(1) + 1));
    return *id;
}

void qlThread::body() {
    struct End {
        ThreadState& state;

        ~End() {
            const qlMutexLocker locker(state.mutex);
            state.running = false;
            state.ended.wakeAll();
        }
    };
    const End end{*state_};
    try {
        run();
    } catch (...) {
        if (!std::current_exception()) {
            // Not an exception of C++: the system unwinds a thread that has called pthread_exit(), and must get on.
            throw;
        }
        ql::impl::logCurrentException("a thread");
    }
}
