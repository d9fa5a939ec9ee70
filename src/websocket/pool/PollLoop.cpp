#include "websocket/pool/PollLoop.h"

#include "vireo/WebSocket.h"
#include "vireo/support/SystemError.h"
#include "vireo/support/qlLog.h"
#include "websocket/pool/PoolMember.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <new>

namespace ql::impl {

namespace {

/// Bounds how long a connection that was added or written to goes unnoticed where the poll thread cannot be woken.
constexpr int PollTimeoutMs = 10;

using Clock = std::chrono::steady_clock;

/// What is left of the time that a poll that began then, and the pause behind it, may take together.
unsigned long restOfCycle(Clock::time_point begin) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
    return elapsed < PollTimeoutMs ? static_cast<unsigned long>(PollTimeoutMs - elapsed) : 0;
}

} // namespace

PollLoop::PollLoop(PoolState& pool) : pool_(pool), polled_(pool.pollWaker->signal()) {}

void PollLoop::run() {
    PollWaker& waker = *pool_.pollWaker;
    waker.open();

    qlMutexLocker lock(pool_.mutex);
    pool_.pollThreadWaiting = false;
    while (pool_.running) {
        if (pool_.pollSet.empty() && batch_.empty()) {
            pool_.waitForConnections(qlWaitCondition::NoTimeLimit);
            continue;
        }
        const std::size_t known = batch_.size();
        if (!takeOver()) {
            pool_.waitForConnections(PollTimeoutMs);
            continue;
        }
        waker.beginWait();
        lock.unlock();

        watch(known);
        const Clock::time_point begin = Clock::now();
        const int eventCount = polled_.wait(PollTimeoutMs);
        waker.endWait();
        if (eventCount < 0) {
            const SystemError error(lastSocketError());
            qlLogObject(qlLogType::Failure) << "Got an error during call to WSAPoll " << error.toString();
            return;
        }
        const std::size_t firstNews = eventCount > 0 ? polled_.findNews(0) : batch_.size();
        const bool anyGone = closeBroken(firstNews);

        lock.lock();
        const bool anyReady = moveToReady(firstNews);
        if (anyGone || anyReady) {
            closeGaps(firstNews);
            pool_.polledCount = batch_.size();
            pool_.pauseForWorkers(restOfCycle(begin));
        } else if (eventCount > 0) {
            // Only what is no socket has news, or memory is short. The next call would return at once with the same.
            pool_.waitForConnections(PollTimeoutMs);
        }
    }
    std::move(batch_.begin(), batch_.end(), std::back_inserter(pool_.pollSet));
    pool_.polledCount = 0;
}

bool PollLoop::takeOver() {
    // All memory that the cycle needs is taken before it owns a connection.
    try {
        batch_.reserve(pool_.pollSet.capacity());
        polled_.reserve(pool_.pollSet.capacity());
    } catch (const std::bad_alloc&) {
        return false;
    }
    std::move(pool_.pollSet.begin(), pool_.pollSet.end(), std::back_inserter(batch_));
    pool_.pollSet.clear();
    pool_.polledCount = batch_.size();
    return true;
}

void PollLoop::watch(std::size_t known) {
    // The note is taken before the new ones join: what is written to them from then on stays noted for the next cycle.
    if (pool_.pollWaker->takeNotedWrite()) {
        for (std::size_t i = 0; i < known; ++i) {
            polled_.setForWriting(i, memberOf(batch_[i]).isWritePending());
        }
    }
    for (std::size_t i = known; i < batch_.size(); ++i) {
        const PoolMember& member = memberOf(batch_[i]);
        polled_.add(member.getSocket(), member.isWritePending());
    }
}

bool PollLoop::closeBroken(std::size_t first) {
    bool any = false;
    for (std::size_t i = first; i < batch_.size(); i = polled_.findNews(i + 1)) {
        if (polled_.getEvents(i).broken) {
            memberOf(batch_[i]).close();
            batch_[i].reset();
            any = true;
        }
    }
    return any;
}

bool PollLoop::moveToReady(std::size_t first) {
    bool any = false;
    for (std::size_t i = first; i < batch_.size(); i = polled_.findNews(i + 1)) {
        const SocketEvents events = polled_.getEvents(i);
        if (!batch_[i] || (!events.readable && !events.writable)) {
            continue;
        }
        if (events.readable) {
            memberOf(batch_[i]).noteReadable();
        }
        try {
            pool_.readyQueue.append(batch_[i]);
            any = true;
        } catch (const std::bad_alloc&) {
            // Still idle, then: the next cycle sees the same events.
        }
    }
    if (any) {
        pool_.wakeWorker();
    }
    return any;
}

void PollLoop::closeGaps(std::size_t first) {
    std::size_t kept = first;
    for (std::size_t i = first; i < batch_.size(); ++i) {
        if (batch_[i]) {
            batch_[kept].swap(batch_[i]);
            polled_.renumber(i, kept);
            ++kept;
        }
    }
    batch_.resize(kept);
    polled_.cutOff(kept);
}

} // namespace ql::impl
