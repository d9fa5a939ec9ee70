#include "vireo/support/qlWaitCondition.h"

#include <chrono>

qlWaitCondition::qlWaitCondition() = default;

qlWaitCondition::~qlWaitCondition() = default;

bool qlWaitCondition::wait(qlMutex* mutex, unsigned long ms) {
    // The caller holds the mutex before and after, so the lock object only borrows it.
    std::unique_lock<std::mutex> lock(mutex->native_, std::adopt_lock);
    bool woken = true;
    if (ms >= NoTimeLimit) {
        native_.wait(lock);
    } else {
        woken = native_.wait_for(lock, std::chrono::milliseconds(ms)) == std::cv_status::no_timeout;
    }
    lock.release();
    return woken;
}

void qlWaitCondition::wakeOne() {
    native_.notify_one();
}

void qlWaitCondition::wakeAll() {
    native_.notify_all();
}
