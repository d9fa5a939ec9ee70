#include "vireo/WebSocketThread.h"

#include "vireo/WebSocket.h"
#include "vireo/WebSocketWorkerThread.h"
#include "vireo/support/SystemError.h"
#include "vireo/support/qlLog.h"
#include "websocket/SocketPort.h"

#include <algorithm>
#include <new>
#include <utility>

namespace ql::http {

namespace {

/// Bounds how long a connection that was added or written to goes unnoticed.
constexpr int PollTimeoutMs = 10;

} // namespace

WebSocketThread::WebSocketThread() = default;

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
    {
        qlMutexLocker lock(mutex_);
        if (running_) {
            appendToPollSet(socket);
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
        while (readyQueue_.empty()) {
            workAvailable_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
            if (!running_) {
                return;
            }
        }
        first = takeReady();
    }
    socket = std::move(first);
}

void WebSocketThread::giveBackWebSocket(std::unique_ptr<WebSocket>& socket) {
    if (!socket) {
        return;
    }
    {
        qlMutexLocker lock(mutex_);
        if (running_) {
            if (socket->hasReadPending()) {
                appendReady(socket);
                workAvailable_.wakeAll();
            } else {
                appendToPollSet(socket);
            }
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
    while (readyQueue_.empty() && running_) {
        workAvailable_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
    }
    return readyQueue_.empty() ? nullptr : takeReady();
}

std::unique_ptr<WebSocket> WebSocketThread::takeReady() {
    std::unique_ptr<WebSocket> first = std::move(readyQueue_.front());
    spareNodes_.splice(spareNodes_.begin(), readyQueue_, readyQueue_.begin());
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

void WebSocketThread::run() {
    std::vector<std::unique_ptr<WebSocket>> batch;
    impl::PollSet polled;

    qlMutexLocker lock(mutex_);
    pollThreadWaiting_ = false;
    while (running_) {
        if (pollSet_.empty()) {
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
        batch.swap(pollSet_);
        polledCount_ = batch.size();
        lock.unlock();

        // The connections of the batch are this thread's alone until the mutex is taken again.
        polled.clear();
        for (const std::unique_ptr<WebSocket>& socket : batch) {
            polled.add(socket->getSocket(), socket->hasWritePending());
        }
        const int eventCount = polled.wait(PollTimeoutMs);
        if (eventCount < 0) {
            const SystemError error(impl::lastSocketError());
            qlLogObject(qlLogType::Failure) << "Got an error during call to WSAPoll " << error.toString();
            return;
        }
        bool anyClosed = false;
        for (std::size_t i = 0; i < batch.size(); ++i) {
            if (polled.getEvents(i).broken) {
                batch[i]->markForDeletion();
                batch[i].reset();
                anyClosed = true;
            }
        }

        lock.lock();
        bool anyReady = false;
        for (std::size_t i = 0; i < batch.size(); ++i) {
            if (!batch[i]) {
                continue;
            }
            const impl::SocketEvents events = polled.getEvents(i);
            if (events.readable || events.writable) {
                batch[i]->setReadEnabled(events.readable);
                try {
                    appendReady(batch[i]);
                    anyReady = true;
                    continue;
                } catch (const std::bad_alloc&) {
                    // Still idle, then: the next cycle sees the same events.
                }
            }
            pollSet_.push_back(std::move(batch[i]));
        }
        batch.clear();
        polledCount_ = 0;
        if (anyReady) {
            workAvailable_.wakeAll();
        }
        if (eventCount > 0 && !anyReady && !anyClosed) {
            // Only what is no socket has news, or memory is short. The next call would return at once with the same.
            waitAsPollThread(PollTimeoutMs);
        }
    }
}

} // namespace ql::http
