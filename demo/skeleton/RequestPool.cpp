#include "skeleton/RequestPool.h"

#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"
#include "vireo/support/qlThread.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace skeleton {

namespace {

using ResponseState = ql::HttpResponseDevice::ResponseState;

void logCurrentException(const char* what) {
    try {
        throw;
    } catch (const std::exception& error) {
        qlLogObject(qlLogType::Failure, "requests") << what << " failed: " << error.what();
    } catch (...) {
        qlLogObject(qlLogType::Failure, "requests") << what << " failed";
    }
}

} // namespace

RequestPool::RequestPool(unsigned int workerCount) {
    try {
        scheduler_ = std::thread([this] { schedule(); });
        for (unsigned int i = 0; i < workerCount; ++i) {
            workers_.emplace_back([this] { work(); });
        }
    } catch (...) {
        joinThreads();
        throw;
    }
}

RequestPool::~RequestPool() {
    joinThreads();
}

void RequestPool::joinThreads() {
    {
        const qlMutexLocker lock(mutex_);
        workersEnd_ = true;
        workAvailable_.wakeAll();
    }
    // The scheduler stays until the workers have ended: one of them may wait for it to close the streams.
    for (std::thread& worker : workers_) {
        worker.join();
    }
    {
        const qlMutexLocker lock(mutex_);
        schedulerEnds_ = true;
        schedulerWakeUp_.wakeOne();
    }
    if (scheduler_.joinable()) {
        scheduler_.join();
    }
}

PooledRequest* RequestPool::add(std::unique_ptr<PooledRequest> request) {
    const qlMutexLocker lock(mutex_);
    requests_.push_back(std::move(request));
    return requests_.back().get();
}

void RequestPool::serve(PooledRequest& request) {
    const qlMutexLocker lock(mutex_);
    enqueue(request);
}

void RequestPool::serveHere(PooledRequest& request) {
    // The exchange can't end meanwhile, since that takes the calling thread.
    const PooledRequest::Pause pause = takeTurn(request);
    const qlMutexLocker lock(mutex_);
    letGo(request, pause);
}

void RequestPool::finish(std::chrono::milliseconds patience) {
    const std::int64_t deadline = qlSystemUtils::GetTimeBaseMs() + patience.count();
    const qlMutexLocker lock(mutex_);
    while (!requests_.empty()) {
        const std::int64_t restMs = deadline - qlSystemUtils::GetTimeBaseMs();
        if (restMs <= 0) {
            return;
        }
        allFinished_.wait(&mutex_, static_cast<unsigned long>(restMs));
    }
}

// ---- Workers ----

void RequestPool::work() {
    qlMutexLocker lock(mutex_);
    while (true) {
        while (queue_.empty() && !workersEnd_) {
            workAvailable_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
        }
        if (workersEnd_) {
            return;
        }
        PooledRequest& request = *queue_.front();
        queue_.pop_front();
        request.place_ = PooledRequest::Place::Held;

        lock.unlock(); // Held keeps the request from being deleted
        const PooledRequest::Pause pause = takeTurn(request);
        lock.lock();

        letGo(request, pause);
    }
}

PooledRequest::Pause RequestPool::takeTurn(PooledRequest& request) {
    if (request.isSchedulerDone()) {
        return {}; // the client did not wait so long
    }
    const std::string& threadId = qlThread::CurrentThreadId();
    request.workerThreadStartHandling(threadId);
    PooledRequest::Pause pause;
    try {
        pause = request.serve();
        if (!pause && request.editInternalResponseDevice().getResponseState() == ResponseState::NotReady) {
            qlLogObject(qlLogType::Failure, "requests")
                << "a request was not answered: " << request.getOriginalRequestUrl();
            fail(request);
        }
    } catch (...) {
        logCurrentException("a request");
        pause.reset();
        fail(request);
    }
    request.workerThreadStopHandling(threadId);
    return pause;
}

/// Lets the library answer 500; or, if it is too late for that, break the connection, so that the client does not take
/// the beginning of a response for the whole. The rest of an upload is not kept.
void RequestPool::fail(PooledRequest& request) {
    ql::HttpResponseDevice& response = request.editInternalResponseDevice();
    {
        const qlMutexLocker lock(response.getLock());
        if (!response.hasDeviceError()) { // an error that is there tells more
            response.setConnectionLost("ApplicationError");
        }
        if (response.getResponseState() == ResponseState::NotReady) {
            response.setResponseState(ResponseState::Ready);
        }
    }
    response.endSending();
}

void RequestPool::letGo(PooledRequest& request, PooledRequest::Pause pause) {
    if (pause && std::exchange(request.woken_, false)) {
        enqueue(request);
        return;
    }
    if (pause) {
        request.place_ = PooledRequest::Place::Paused;
        request.dueMs_ = qlSystemUtils::GetTimeBaseMs() + pause->count();
        paused_.emplace(request.dueMs_, &request);
    } else {
        request.place_ = PooledRequest::Place::Nowhere;
    }
    // The scheduler waits for the first turn that is due. And if it came by when the request was held, and left it, it
    // comes again for no other reason.
    const bool isNextTurn = pause && paused_.begin()->second == &request;
    if (isNextTurn || request.isSchedulerDone()) {
        requestScheduling();
    }
}

void RequestPool::enqueue(PooledRequest& request) {
    request.place_ = PooledRequest::Place::Queued;
    queue_.push_back(&request);
    workAvailable_.wakeOne();
}

void RequestPool::endPause(PooledRequest& request) {
    paused_.erase({request.dueMs_, &request});
    request.place_ = PooledRequest::Place::Nowhere;
}

void RequestPool::wake(PooledRequest& request) {
    const qlMutexLocker lock(mutex_);
    switch (request.place_) {
    case PooledRequest::Place::Queued:
        break;
    case PooledRequest::Place::Paused:
        endPause(request);
        enqueue(request);
        break;
    case PooledRequest::Place::Held:
    case PooledRequest::Place::Nowhere: // it may be served on a daemon thread
        request.woken_ = true;
        break;
    }
}

// ---- Scheduler ----

void RequestPool::wakeScheduler() {
    const qlMutexLocker lock(mutex_);
    requestScheduling();
}

void RequestPool::requestScheduling() {
    schedulingRequested_ = true;
    schedulerWakeUp_.wakeOne();
}

void RequestPool::schedule() {
    qlMutexLocker lock(mutex_);
    while (!schedulerEnds_) {
        schedulingRequested_ = false;
        queueDueRequests();
        std::list<std::unique_ptr<PooledRequest>> over;
        std::vector<PooledRequest*> heldByWorkers;
        for (auto next = requests_.begin(); next != requests_.end();) {
            const auto current = next++;
            PooledRequest& request = **current;
            if (!request.isSchedulerDone()) {
                continue;
            }
            if (request.place_ != PooledRequest::Place::Held) {
                forget(request);
                over.splice(over.end(), requests_, current);
            } else if (!request.closed_) {
                heldByWorkers.push_back(&request);
            }
        }
        if (requests_.empty()) {
            allFinished_.wakeAll();
        }

        lock.unlock(); // no one else deletes a request
        for (PooledRequest* const request : heldByWorkers) {
            closeStreams(*request);
        }
        for (const std::unique_ptr<PooledRequest>& request : over) {
            try {
                closeStreams(*request);
                request->ended(request->loss_);
            } catch (...) {
                logCurrentException("the end of a request");
            }
        }
        over.clear();
        lock.lock();

        if (!schedulingRequested_ && !schedulerEnds_) {
            schedulerWakeUp_.wait(&mutex_, msToNextTurn());
        }
    }
}

void RequestPool::queueDueRequests() {
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    while (!paused_.empty() && paused_.begin()->first <= nowMs) {
        PooledRequest& request = *paused_.begin()->second;
        endPause(request);
        enqueue(request);
    }
}

unsigned long RequestPool::msToNextTurn() const {
    if (paused_.empty()) {
        return qlWaitCondition::NoTimeLimit;
    }
    const std::int64_t ms = paused_.begin()->first - qlSystemUtils::GetTimeBaseMs();
    return static_cast<unsigned long>(std::max<std::int64_t>(ms, 0));
}

/// Takes the request out of the queue that it is in, if any.
void RequestPool::forget(PooledRequest& request) {
    if (request.place_ == PooledRequest::Place::Queued) {
        std::erase(queue_, &request);
        request.place_ = PooledRequest::Place::Nowhere;
    } else if (request.place_ == PooledRequest::Place::Paused) {
        endPause(request);
    }
}

/// The exchange is over: notes how it ended, and releases the worker that may still wait at one of the streams. Nothing
/// else does: a client that goes away does not end the feed, and a response that needed no body, or not all of it, is
/// complete without the writer.
void RequestPool::closeStreams(PooledRequest& request) {
    if (std::exchange(request.closed_, true)) {
        return;
    }
    ql::HttpResponseDevice& response = request.editInternalResponseDevice();
    {
        // The completion of the request holds this lock until the error is set.
        const qlMutexLocker lock(response.getLock());
        if (response.hasDeviceError()) {
            request.loss_ = response.getDeviceErrorMsg();
        } else {
            response.setConnectionLost("the exchange is over");
        }
    }
    ql::HttpReceiveDevice& feed = request.editFeedDevice();
    const qlMutexLocker lock(feed.getLock());
    feed.endFeed();
}

} // namespace skeleton
