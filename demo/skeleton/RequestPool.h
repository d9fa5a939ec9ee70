#pragma once

#include "vireo/HttpBaseRequest.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlWaitCondition.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// What nearly every application of the library needs, free of anything else: worker threads that serve requests from
/// a queue, and a scheduler thread that ends the life of each request at the right moment. Copy it.
namespace skeleton {

/// A request that a RequestPool serves. An application derives its request class from this one.
class PooledRequest : public ql::HttpBaseRequest {
public:
    /// How a turn at a request ends: with nothing, when the request is answered, or with a pause, after which it wants
    /// another turn. No thread waits meanwhile.
    using Pause = std::optional<std::chrono::milliseconds>;

protected:
    /// One turn at the request: the feed may be read, the response written. On the thread that is registered as the
    /// request's worker for the time of the call; never two turns at once.
    ///
    /// The last turn has released the response. If an exception leaves, or the response is not released, the client
    /// gets a 500, or sees its connection break if the response was already on its way.
    virtual Pause serve() = 0;

    /// The exchange is over and no thread works on the request; it is deleted next. Scheduler thread, once.
    /// @param loss what cut the exchange short ("lost connection : ClientAbort"); empty when nothing did.
    virtual void ended(const std::string& loss) = 0;

private:
    friend class RequestPool;

    /// Where the pool has the request.
    enum class Place {
        Nowhere, ///< with a daemon thread, or served: the scheduler deletes it once its exchange is over
        Queued,  ///< waits for a worker
        Paused,  ///< waits for the time of its next turn
        Held,    ///< in a worker's hand: must not be deleted
    };

    // Under the pool's mutex.
    Place place_ = Place::Nowhere;
    /// When it is Paused: the time of its next turn.
    std::int64_t dueMs_ = 0;
    /// It was woken when it was not Paused: its next pause is over before it begins.
    bool woken_ = false;
    // The scheduler thread's alone.
    bool closed_ = false;
    std::string loss_;
};

/// Owns the application's requests, from HttpServerImpl::createRequest() to their deletion, and the threads that work
/// on them. Each operation of the application's HttpServerImpl calls one of the members below.
///
/// The pool must outlive the run of the server: as a member of the HttpServerImpl it does. Any member may be called
/// from any thread.
///
/// Lock order: the lock of a body device may be held when the pool's mutex is taken (notifyScheduler() is called so),
/// so no device is touched, and no request deleted, with the pool's mutex held.
class RequestPool {
public:
    /// Starts the threads.
    explicit RequestPool(unsigned int workerCount);

    /// Joins the threads and deletes what is left, when the server has stopped.
    ~RequestPool();

    RequestPool(const RequestPool&) = delete;
    RequestPool& operator=(const RequestPool&) = delete;

    /// For createRequest(): takes the ownership. @return the request.
    PooledRequest* add(std::unique_ptr<PooledRequest> request) QL_EXCLUDES(mutex_);

    /// For handleRequest(): gives the request its first turn on the next worker that is free.
    void serve(PooledRequest& request) QL_EXCLUDES(mutex_);

    /// For handleRequest(): gives the request its first turn at once, on the calling daemon thread. Only for what takes
    /// no time and never waits, since all the connections of that thread wait meanwhile.
    void serveHere(PooledRequest& request) QL_EXCLUDES(mutex_);

    /// Ends the pause of a request, which gets its next turn as soon as a worker is free. If a turn is under way,
    /// another one follows it. So a request that waits for something returns a long pause, and is woken when it has
    /// happened.
    /// @param request has not been deleted yet, and is not before this returns.
    void wake(PooledRequest& request) QL_EXCLUDES(mutex_);

    /// For notifyScheduler().
    void wakeScheduler() QL_EXCLUDES(mutex_);

    /// For onServerStopped(): waits until all requests are finished, but not longer than `patience`. What is not
    /// finished then is cut off when the server goes on to stop its daemon, which also releases blocked workers.
    void finish(std::chrono::milliseconds patience) QL_EXCLUDES(mutex_);

private:
    void work() QL_EXCLUDES(mutex_);
    static PooledRequest::Pause takeTurn(PooledRequest& request);
    static void fail(PooledRequest& request);
    void letGo(PooledRequest& request, PooledRequest::Pause pause) QL_REQUIRES(mutex_);
    void enqueue(PooledRequest& request) QL_REQUIRES(mutex_);
    void endPause(PooledRequest& request) QL_REQUIRES(mutex_);

    void schedule() QL_EXCLUDES(mutex_);
    void requestScheduling() QL_REQUIRES(mutex_);
    void queueDueRequests() QL_REQUIRES(mutex_);
    unsigned long msToNextTurn() const QL_REQUIRES(mutex_);
    void forget(PooledRequest& request) QL_REQUIRES(mutex_);
    static void closeStreams(PooledRequest& request);

    void joinThreads() QL_EXCLUDES(mutex_);

    qlMutex mutex_;
    /// Workers wait on it for the queue.
    qlWaitCondition workAvailable_;
    /// The scheduler waits on it.
    qlWaitCondition schedulerWakeUp_;
    /// finish() waits on it.
    qlWaitCondition allFinished_;
    std::list<std::unique_ptr<PooledRequest>> requests_ QL_GUARDED_BY(mutex_);
    std::deque<PooledRequest*> queue_ QL_GUARDED_BY(mutex_);
    /// By the time of the next turn, in milliseconds of qlSystemUtils::GetTimeBaseMs().
    std::set<std::pair<std::int64_t, PooledRequest*>> paused_ QL_GUARDED_BY(mutex_);
    /// Something may have changed since the scheduler looked.
    bool schedulingRequested_ QL_GUARDED_BY(mutex_) = false;
    bool workersEnd_ QL_GUARDED_BY(mutex_) = false;
    bool schedulerEnds_ QL_GUARDED_BY(mutex_) = false;
    /// Constant between constructor and destructor.
    std::vector<std::thread> workers_;
    std::thread scheduler_;
};

} // namespace skeleton
