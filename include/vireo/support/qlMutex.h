// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/ThreadAnnotations.h"

#include <mutex>

/// A non-recursive mutual-exclusion lock. Locking it twice on one thread is undefined.
class VIREO_API QL_CAPABILITY("mutex") qlMutex {
public:
    qlMutex();
    virtual ~qlMutex();
    qlMutex(const qlMutex&) = delete;
    qlMutex& operator=(const qlMutex&) = delete;

    /// Waits until no other thread has it.
    void lock() QL_ACQUIRE() { native_.lock(); }
    /// On the thread that locked.
    void unlock() QL_RELEASE() { native_.unlock(); }

private:
    friend class qlWaitCondition;
    std::mutex native_;
};

/// Holds a qlMutex for a scope, with the liberty to let go of it early and take it again.
/// For the one thread that owns the locker.
class QL_SCOPED_CAPABILITY qlMutexLocker {
public:
    /// Locks at once.
    explicit qlMutexLocker(qlMutex& mutex) QL_ACQUIRE(mutex) : mutex_(mutex), locked_(true) { mutex_.lock(); }

    /// Locks at once when `lockNow` is true, else when lock() is called. Clang cannot follow a run-time flag: under
    /// -Wthread-safety prefer the constructor above.
    qlMutexLocker(qlMutex& mutex, bool lockNow) QL_NO_THREAD_SAFETY_ANALYSIS : mutex_(mutex), locked_(lockNow) {
        if (lockNow) {
            mutex_.lock();
        }
    }

    ~qlMutexLocker() QL_RELEASE() {
        if (locked_) {
            mutex_.unlock();
        }
    }

    qlMutexLocker(const qlMutexLocker&) = delete;
    qlMutexLocker& operator=(const qlMutexLocker&) = delete;

    /// Takes the mutex again after unlock().
    void lock() QL_ACQUIRE() {
        mutex_.lock();
        locked_ = true;
    }

    /// Lets go of the mutex before the scope ends.
    void unlock() QL_RELEASE() {
        locked_ = false;
        mutex_.unlock();
    }

private:
    qlMutex& mutex_;
    bool locked_;
};
