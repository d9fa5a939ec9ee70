#include "vireo/WebSocketThread.h"

#include "vireo/WebSocket.h"
#include "vireo/WebSocketWorkerThread.h"
#include "vireo/support/SystemError.h"
#include "vireo/support/qlLog.h"
#include "websocket/PollSet.h"
#include "websocket/PollWaker.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <new>
#include <utility>

namespace ql::http {

namespace {

/// Bounds how long a connection that was added or written to goes unnoticed where the poll thread cannot be woken.
constexpr int PollTimeoutMs = 10;

/// From so many connections on a poll call costs more than the two switches between threads that a pause takes.
constexpr std::size_t ManyConnections = 200;

using Clock = std::chrono::steady_clock;

using Connections = std::vector<std::unique_ptr<WebSocket>>;

/// What is left of the time that a poll that began then, and the pause behind it, may take together.
unsigned long restOfCycle(Clock::time_point begin) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
    return elapsed < PollTimeoutMs ? static_cast<unsigned long>(PollTimeoutMs - elapsed) : 0;
}

/// Closes and destroys the connections that are broken, from `first` on. @return whether there was one.
bool closeBroken(Connections& batch, const impl::PollSet& polled, std::size_t first) {
    bool any = false;
    for (std::size_t i = first; i < batch.size(); i = polled.findNews(i + 1)) {
        if (polled.getEvents(i).broken) {
            batch[i]->markForDeletion();
            batch[i].reset();
            any = true;
        }
    }
    return any;
}

/// Removes the entries of connections that are no longer here, from `first` on; the others keep their order.
void closeGaps(Connections& batch, impl::PollSet& polled, std::size_t first) {
    std::size_t kept = first;
    for (std::size_t i = first; i < batch.size(); ++i) {
        if (batch[i]) {
            batch[kept].swap(batch[i]);
            polled.renumber(i, kept);
            ++kept;
        }
    }
    batch.resize(kept);
    polled.cutOff(kept);
}

} // namespace

WebSocketThread::WebSocketThread() : pollWaker_(std::make_shared<impl::PollWaker>()) {}

WebSocketThread::~WebSocketThread() {
    stopThreads(true);
    qlMutexLocker lock(mutex_);
    workers_.clear();
}

void WebSocketThread::startThreads(unsigned int count) {
    try {
        {
            qlMutexLocker lock(mutex_);
            if (!workers_.empty()) {
                return;
            }
            workers_.reserve(count);
            for (unsigned int i = 0; i < count; ++i) {
                workers_.push_back(std::make_unique<WebSocketWorkerThread>(this));
            }
        }
        startThread(nullptr);
    } catch (...) {
        // Half a pool would take connections and leave them lying.
        stopThreads(true);
        throw;
    }
}

void WebSocketThread::stopThreads(bool wait) {
    {
        qlMutexLocker lock(mutex_);
        running_ = false;
        pollWakeup_.wakeAll();
        workAvailable_.wakeAll();
    }
    pollWaker_->wake();
    if (!wait) {
        return;
    }
    for (std::size_t i = 0;; ++i) {
        WebSocketWorkerThread* worker = nullptr;
        {
            qlMutexLocker lock(mutex_);
            if (i >= workers_.size()) {
                break;
            }
            worker = workers_[i].get();
        }
        worker->waitThread(NoTimeLimit);
    }
    waitThread(NoTimeLimit);
}

void WebSocketThread::closeAll() {
    std::vector<std::unique_ptr<WebSocket>> idle;
    std::list<std::unique_ptr<WebSocket>> ready;
    {
        qlMutexLocker lock(mutex_);
        idle.swap(pollSet_);
        ready.swap(readyQueue_);
    }
    for (std::unique_ptr<WebSocket>& socket : idle) {
        socket->markForDeletion();
    }
    for (std::unique_ptr<WebSocket>& socket : ready) {
        socket->markForDeletion();
    }
}

void WebSocketThread::addWebSocket(std::unique_ptr<WebSocket>& socket) {
    if (!socket) {
        return;
    }
    socket->setPollWaker(pollWaker_);
    {
        qlMutexLocker lock(mutex_);
        if (running_) {
            appendToPollSet(socket);
            lock.unlock();
            pollWaker_->wake();
            return;
        }
    }
    socket->markForDeletion();
}

void WebSocketThread::getFirstWebSocket(std::unique_ptr<WebSocket>& socket) {
    std::unique_ptr<WebSocket> first;
    {
        qlMutexLocker lock(mutex_);
        if (!running_) {
            return;
        }
        waitForReady();
        if (!running_) {
            return;
        }
        first = takeReady();
    }
    socket = std::move(first);
}

void WebSocketThread::giveBackWebSocket(std::unique_ptr<WebSocket>& socket) {
    if (!socket) {
        return;
    }
    if (!socket->hasReadPending()) {
        addWebSocket(socket);
        return;
    }
    socket->setPollWaker(pollWaker_);
    {
        qlMutexLocker lock(mutex_);
        if (running_) {
            appendReady(socket);
            workAvailable_.wakeOne();
            return;
        }
    }
    socket->markForDeletion();
}

std::unique_ptr<WebSocket> WebSocketThread::takeForWorker() {
    qlMutexLocker lock(mutex_);
    if (!running_) {
        return nullptr;
    }
    waitForReady();
    return takeReady();
}

bool WebSocketThread::exchangeForWorker(std::unique_ptr<WebSocket>& socket) {
    qlMutexLocker lock(mutex_);
    if (!running_) {
        return false;
    }
    if (socket->hasReadPending()) {
        appendReady(socket);
    } else {
        appendToPollSet(socket);
    }
    waitForReady();
    socket = takeReady();
    return true;
}

void WebSocketThread::waitForReady() {
    while (readyQueue_.empty() && running_) {
        // Not at each give-back: while others are ready no worker is free, and a poll now would find little. So one
        // wake-up and one poll serve all that were given back meanwhile.
        if (!pollSet_.empty()) {
            pollWaker_->wake();
        }
        workAvailable_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
    }
}

std::unique_ptr<WebSocket> WebSocketThread::takeReady() {
    if (readyQueue_.empty()) {
        return nullptr;
    }
    std::unique_ptr<WebSocket> first = std::move(readyQueue_.front());
    spareNodes_.splice(spareNodes_.begin(), readyQueue_, readyQueue_.begin());
    if (readyBeforePoll_ > 0 && --readyBeforePoll_ == 0) {
        pollWakeup_.wakeAll();
    }
    if (!readyQueue_.empty()) {
        // Appending woke one only. Each that takes wakes the next, until none waits or nothing is left.
        workAvailable_.wakeOne();
    }
    return first;
}

void WebSocketThread::appendReady(std::unique_ptr<WebSocket>& socket) {
    if (spareNodes_.empty()) {
        readyQueue_.push_back(std::move(socket));
        return;
    }
    readyQueue_.splice(readyQueue_.end(), spareNodes_, spareNodes_.begin());
    readyQueue_.back() = std::move(socket);
}

void WebSocketThread::appendToPollSet(std::unique_ptr<WebSocket>& socket) {
    const std::size_t needed = pollSet_.size() + polledCount_ + 1;
    if (pollSet_.capacity() < needed) {
        pollSet_.reserve(std::max(needed, 2 * pollSet_.capacity()));
    }
    pollSet_.push_back(std::move(socket));
    if (pollThreadWaiting_) {
        pollWakeup_.wakeAll();
    }
}

void WebSocketThread::waitAsPollThread(unsigned long ms) {
    pollThreadWaiting_ = true;
    pollWakeup_.wait(&mutex_, ms);
    pollThreadWaiting_ = false;
}

bool WebSocketThread::moveToReady(std::vector<std::unique_ptr<WebSocket>>& batch, const impl::PollSet& polled,
                                  std::size_t first) {
    bool any = false;
    for (std::size_t i = first; i < batch.size(); i = polled.findNews(i + 1)) {
        const impl::SocketEvents events = polled.getEvents(i);
        if (!batch[i] || (!events.readable && !events.writable)) {
            continue;
        }
        batch[i]->setReadEnabled(events.readable);
        try {
            appendReady(batch[i]);
            any = true;
        } catch (const std::bad_alloc&) {
            // Still idle, then: the next cycle sees the same events.
        }
    }
    if (any) {
        workAvailable_.wakeOne();
    }
    return any;
}

void WebSocketThread::pauseForWorkers(unsigned long ms) {
    if (!running_ || readyQueue_.empty() || polledCount_ + readyQueue_.size() + pollSet_.size() < ManyConnections) {
        return;
    }
    readyBeforePoll_ = readyQueue_.size();
    pollWakeup_.wait(&mutex_, ms);
    readyBeforePoll_ = 0;
}

void WebSocketThread::run() {
    Connections batch;
    pollWaker_->open();
    impl::PollSet polled(pollWaker_->signal());

    qlMutexLocker lock(mutex_);
    pollThreadWaiting_ = false;
    while (running_) {
        if (pollSet_.empty() && batch.empty()) {
            waitAsPollThread(qlWaitCondition::NoTimeLimit);
            continue;
        }

        // All memory that the cycle needs is taken before it owns a connection.
        try {
            batch.reserve(pollSet_.capacity());
            polled.reserve(pollSet_.capacity());
        } catch (const std::bad_alloc&) {
            waitAsPollThread(PollTimeoutMs);
            continue;
        }
        const std::size_t known = batch.size();
        std::move(pollSet_.begin(), pollSet_.end(), std::back_inserter(batch));
        pollSet_.clear();
        polledCount_ = batch.size();
        pollWaker_->beginWait();
        lock.unlock();

        // The connections of the batch are this thread's alone until they are ready. The note is taken before the new
        // ones join: what is written to them from then on stays noted for the next cycle.
        if (pollWaker_->takeNotedWrite()) {
            for (std::size_t i = 0; i < known; ++i) {
                polled.setForWriting(i, batch[i]->hasWritePending());
            }
        }
        for (std::size_t i = known; i < batch.size(); ++i) {
            polled.add(batch[i]->getSocket(), batch[i]->hasWritePending());
        }
        const Clock::time_point begin = Clock::now();
        const int eventCount = polled.wait(PollTimeoutMs);
        pollWaker_->endWait();
        if (eventCount < 0) {
            const SystemError error(impl::lastSocketError());
            qlLogObject(qlLogType::Failure) << "Got an error during call to WSAPoll " << error.toString();
            return;
        }
        const std::size_t firstNews = eventCount > 0 ? polled.findNews(0) : batch.size();
        const bool anyGone = closeBroken(batch, polled, firstNews);

        lock.lock();
        const bool anyReady = moveToReady(batch, polled, firstNews);
        if (anyGone || anyReady) {
            closeGaps(batch, polled, firstNews);
            polledCount_ = batch.size();
            pauseForWorkers(restOfCycle(begin));
        } else if (eventCount > 0) {
            // Only what is no socket has news, or memory is short. The next call would return at once with the same.
            waitAsPollThread(PollTimeoutMs);
        }
    }
    std::move(batch.begin(), batch.end(), std::back_inserter(pollSet_));
    polledCount_ = 0;
}

} // namespace ql::http
