// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/qlMutex.h"

#include <condition_variable>

/// A condition variable for state guarded by a qlMutex. Every member may be called from any thread.
class VIREO_API qlWaitCondition {
public:
    /// The wait() time that means no limit.
    static constexpr unsigned long NoTimeLimit = 4294967295UL;

    qlWaitCondition();
    virtual ~qlWaitCondition();
    qlWaitCondition(const qlWaitCondition&) = delete;
    qlWaitCondition& operator=(const qlWaitCondition&) = delete;

    /// Atomically releases `mutex`, waits until woken or until `ms` milliseconds have passed, and locks it again.
    /// @return true when woken. Waits may end spuriously: look at the awaited state again in any case.
    bool wait(qlMutex* mutex, unsigned long ms) QL_REQUIRES(*mutex);

    /// Releases one waiter, if there is one.
    void wakeOne();

    /// Releases every waiter.
    void wakeAll();

private:
    std::condition_variable native_;
};
