#include "vireo/support/qlThread.h"

#include "frame/ExceptionLog.h"
#include "frame/ThreadName.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>

qlThread::qlThread() = default;

qlThread::~qlThread() {
    waitThread(NoTimeLimit);
}

void qlThread::startThread(const char* name) {
    std::string threadName(name == nullptr ? "" : name);
    threadName.resize((std::min)(threadName.size(), ql::impl::MaxThreadNameLength));

    const qlMutexLocker locker(stateMutex_);
    if (running_) {
        return;
    }
    if (native_.joinable()) {
        native_.join();
    }
    native_ = std::thread([this, threadName = std::move(threadName)] {
        if (!threadName.empty()) {
            ql::impl::setCurrentThreadName(threadName);
        }
        body();
    });
    // The new thread cannot report its end before the lock is released.
    running_ = true;
}

bool qlThread::waitThread(int ms) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(ms);

    const qlMutexLocker locker(stateMutex_);
    if (native_.get_id() == std::this_thread::get_id()) {
        return false;
    }
    while (running_) {
        if (ms == NoTimeLimit) {
            ended_.wait(&stateMutex_, qlWaitCondition::NoTimeLimit);
            continue;
        }
        const std::int64_t left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return false;
        }
        ended_.wait(&stateMutex_, static_cast<unsigned long>(left));
    }
    // With running_ false the thread has nothing left to do that wants the lock, so joining under it is short and
    // lets several callers wait at once.
    if (native_.joinable()) {
        native_.join();
    }
    return true;
}

void qlThread::msleep(unsigned long ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

const std::string& qlThread::CurrentThreadId() {
    // The system's own ids are given to new threads once theirs have ended; a count is not.
    static std::atomic<std::uint64_t> lastId{0};
    // Never destroyed: where a thread's variables are emulated (MinGW) they are freed before their destructors run. So
    // short a text has no memory of its own.
    alignas(std::string) thread_local std::byte memory[sizeof(std::string)];
    thread_local const std::string* id = nullptr;
    if (id == nullptr) {
        id = new (memory) std::string(std::to_string(lastId.fetch_add(1) + 1));
    }
    return *id;
}

void qlThread::body() {
    try {
        run();
    } catch (...) {
        ql::impl::logCurrentException("a thread");
    }
    const qlMutexLocker locker(stateMutex_);
    running_ = false;
    ended_.wakeAll();
}
