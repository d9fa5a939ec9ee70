// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>
#include <memory>
#include <string>

namespace ql::impl {
struct ThreadState;
}

/// A thread whose body is the virtual run().
///
/// A derived class must have waited for its thread before its own members go (waitThread in its destructor): the
/// destructor here joins as well, but by then run() would work on a destroyed object. A thread must not destroy its
/// own object.
class VIREO_API qlThread {
public:
    /// The waitThread() time that means no limit.
    static constexpr int NoTimeLimit = 2147483647;

    qlThread();
    virtual ~qlThread();
    qlThread(const qlThread&) = delete;
    qlThread& operator=(const qlThread&) = delete;

    /// Starts a system thread that calls run(). Does nothing while a thread started earlier is still running; an
    /// ended one is joined first, so that an object can be started again.
    /// @param name shown by debuggers where the system can, at most 15 characters of it; null for none.
    /// @throws std::system_error when the system has no thread to give.
    void startThread(const char* name);

    /// Waits until the run() that is current at the call has ended, and joins its thread; at most `ms` milliseconds.
    /// A later start, by another thread, is not waited for.
    /// @return true when that run's thread is gone, now or earlier, or there was none. Always false on the thread
    /// itself, which cannot wait for its own end.
    bool waitThread(int ms);

    /// Puts the calling thread to sleep.
    static void msleep(unsigned long ms);

    /// A text that identifies the calling thread: never empty, stable for its life, and not given to another thread
    /// afterwards either, so that a remembered id never matches a stranger.
    static const std::string& CurrentThreadId();

protected:
    /// The thread's body. An exception that leaves it is logged (type 5) and ends the thread, not the process. It may
    /// end the thread with pthread_exit(), where that unwinds the stack.
    virtual void run() = 0;

    /// The number of the last run started, from 1; 0 before the first.
    std::uint64_t getRunNumber() const;

    /// waitThread() for the run of a number that getRunNumber() has said.
    bool waitRun(std::uint64_t number, int ms);

private:
    void body();

    const std::unique_ptr<ql::impl::ThreadState> state_;
};
