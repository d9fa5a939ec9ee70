// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlThread.h"
#include "vireo/support/qlWaitCondition.h"

#include <list>
#include <memory>
#include <vector>

namespace ql::impl {
class PoolState;
} // namespace ql::impl

namespace ql::http {

class WebSocket;
class WebSocketWorkerThread;

/// A pool that serves any number of WebSockets: one poll thread, which is this object, watches the idle ones, and
/// pool workers serve those that have something to do. The application makes the pool and owns it.
///
/// A connection is in exactly one place: the poll set, the poll thread's current cycle, the ready queue, or one
/// worker's hand. So no two threads ever serve it at once.
///
/// The one right order to stop. The HTTP engine frees its part of a connection when the server's daemon stops; closing
/// one later would touch freed memory. So the pool is emptied before that, and it must still be there while the daemon
/// stops, because a handshake may complete until then:
///
///     void MyServer::onServerStopped() {  // on a clean stop it runs before the daemon is stopped
///         pool_.stopThreads(true);        // no thread uses a connection any more
///         pool_.closeAll();               // close and destroy what the pool still owns
///     }                                   // addWebSocket() of a late handshake now closes its connection itself
///
/// and the pool is destroyed only after the server has stopped: as a member of the HttpServerImpl, which the server
/// owns, it is. A connection that the application took out of the pool has to be closed by then, too.
///
/// Any member may be called from any thread, except that stopThreads(true), closeAll() and the destructor must not be
/// called on a thread of the pool (from WebSocket::onMessageReceived(), for example).
class VIREO_API WebSocketThread : public qlThread {
public:
    /// An empty pool; no thread is started.
    WebSocketThread();

    /// Stops the pool, joins its threads and destroys the connections that are left without closing them: the engine
    /// may be gone. Call stopThreads(true) and closeAll() while it is not.
    ~WebSocketThread() override;

    WebSocketThread(const WebSocketThread&) = delete;
    WebSocketThread& operator=(const WebSocketThread&) = delete;

    /// Starts the poll thread and `count` workers. Does nothing when there are workers already. With 0 no one serves
    /// the ready queue but the application's own threads, through getFirstWebSocket() and giveBackWebSocket().
    /// @throws std::system_error when the system has no thread to give; the pool is stopped then.
    void startThreads(unsigned int count) QL_EXCLUDES(mutex_);

    /// Stops the pool for good: its threads end after what they are at, and it takes no more connections. Those it has
    /// stay with it. Calls may repeat and overlap.
    /// @param wait true: return when all threads have ended. Takes as long as onMessageReceived() does.
    void stopThreads(bool wait) QL_EXCLUDES(mutex_);

    /// Closes and destroys every connection that the pool owns. Only after stopThreads(true), else those in the hand
    /// of a thread escape it.
    void closeAll() QL_EXCLUDES(mutex_);

    /// Hands a new connection to the pool, whose poll thread is woken and watches it from now on.
    /// @param socket left empty. If the pool is stopped, it is closed and stays with the caller. Empty is ignored.
    /// @throws std::bad_alloc and the connection stays with the caller, open.
    void addWebSocket(std::unique_ptr<WebSocket>& socket) QL_EXCLUDES(mutex_);

    /// Waits for a connection that has something to do and takes it out of the pool.
    /// @param socket what it held is destroyed. Unchanged when the pool is stopped, or stops during the wait.
    void getFirstWebSocket(std::unique_ptr<WebSocket>& socket) QL_EXCLUDES(mutex_);

    /// Returns a connection taken with getFirstWebSocket(): to the end of the ready queue if it may have more to read,
    /// else to the poll set. Otherwise as addWebSocket().
    void giveBackWebSocket(std::unique_ptr<WebSocket>& socket) QL_EXCLUDES(mutex_);

protected:
    /// The poll loop. Ends when the pool stops. If the system cannot poll, it logs that (type 5) and ends: connections
    /// are then still taken, but none is served from there any more.
    void run() override;

private:
    friend class impl::PoolState;

    /// Guarded by mutex_ like the rest; the objects live until the destructor.
    std::vector<std::unique_ptr<WebSocketWorkerThread>> workers_ QL_GUARDED_BY(mutex_);
    /// Connections that the poll thread is to watch and hasn't taken yet. Its capacity always covers those that it
    /// watches as well, so that it can put them back without allocating.
    std::vector<std::unique_ptr<WebSocket>> pollSet_ QL_GUARDED_BY(mutex_);
    /// Connections that wait for a worker, first in first out.
    std::list<std::unique_ptr<WebSocket>> readyQueue_ QL_GUARDED_BY(mutex_);
    qlMutex mutex_;
    /// Workers wait on it for the ready queue.
    qlWaitCondition workAvailable_;
    /// The poll thread waits on it while it has no connection to watch.
    qlWaitCondition pollWakeup_;
    /// The poll thread is waiting on pollWakeup_.
    bool pollThreadWaiting_ QL_GUARDED_BY(mutex_) = false;
    /// Cleared once, never set again.
    bool running_ QL_GUARDED_BY(mutex_) = true;
    /// All that is not declared above. Constant.
    const std::unique_ptr<impl::PoolState> state_;
};

} // namespace ql::http
