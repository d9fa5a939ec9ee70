// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketThread.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlWaitCondition.h"
#include "websocket/pool/PollWaker.h"
#include "websocket/pool/ReadyQueue.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace ql::impl {

class PoolMember;

/// What the threads of a pool share: the ready queue, the poll set, and the ways between them. It stands on the
/// declared fields of a WebSocketThread and lives as long as that. Of a connection it knows the PoolMember.
class PoolState {
public:
    using Connection = std::unique_ptr<http::WebSocket>;
    using Connections = std::vector<Connection>;

    explicit PoolState(http::WebSocketThread& pool);
    ~PoolState();
    PoolState(const PoolState&) = delete;
    PoolState& operator=(const PoolState&) = delete;

    static PoolState& of(http::WebSocketThread& pool) { return *pool.state_; }

    // What WebSocketThread's members of these names do. Any thread.

    void addWebSocket(Connection& socket) QL_EXCLUDES(mutex);
    void getFirstWebSocket(Connection& socket) QL_EXCLUDES(mutex);
    void giveBackWebSocket(Connection& socket) QL_EXCLUDES(mutex);
    void closeAll() QL_EXCLUDES(mutex);

    /// No connection comes in any more, and who waits for one doesn't.
    void stop() QL_EXCLUDES(mutex);

    // For workers.

    /// Waits for a connection. @return empty when the pool is stopped.
    Connection takeForWorker() QL_EXCLUDES(mutex);
    /// The same after a turn: gives `socket` back, as giveBackWebSocket() does, and takes the next in its place.
    /// @return false when the pool is stopped: `socket` stays. @throws std::bad_alloc; `socket` stays as well.
    bool exchangeForWorker(Connection& socket) QL_EXCLUDES(mutex);

    // For the poll thread.

    /// Tells a worker that the ready queue holds something; it tells the next one.
    void wakeWorker();
    /// Waits for `ms` at most until a connection is added or the pool is stopped.
    void waitForConnections(unsigned long ms) QL_REQUIRES(mutex);
    /// Of many connections, waits until those ready now are taken, for `ms` at most: until then nobody is free to serve
    /// what another poll would find, and a later one finds more at once.
    void pauseForWorkers(unsigned long ms) QL_REQUIRES(mutex);

    qlMutex& mutex;
    /// The objects live as long as the pool.
    std::vector<std::unique_ptr<http::WebSocketWorkerThread>>& workers QL_GUARDED_BY(mutex);
    /// Connections that the poll thread is to watch and hasn't taken yet. Its capacity always covers those that it
    /// watches as well, so that it can put them back without allocating.
    Connections& pollSet QL_GUARDED_BY(mutex);
    ReadyQueue readyQueue QL_GUARDED_BY(mutex);
    bool& pollThreadWaiting QL_GUARDED_BY(mutex);
    bool& running QL_GUARDED_BY(mutex);
    /// Connections that the poll thread watches.
    std::size_t polledCount QL_GUARDED_BY(mutex) = 0;
    /// Ends the poll thread's wait for events. Its own synchronization; constant.
    const std::shared_ptr<PollWaker> pollWaker;

private:
    /// Waits until the ready queue holds something or the pool is stopped.
    void waitForReady() QL_REQUIRES(mutex);
    /// Moves the front of the ready queue out. @return empty when there is none.
    Connection takeReady() QL_REQUIRES(mutex);
    void appendToPollSet(Connection& socket) QL_REQUIRES(mutex);

    qlWaitCondition& workAvailable_;
    qlWaitCondition& pollWakeup_;
    /// Connections that are to be taken out of the ready queue before the poll thread goes on; 0 when it doesn't pause.
    std::size_t readyBeforePoll_ QL_GUARDED_BY(mutex) = 0;
};

/// Of a connection that is there.
PoolMember& memberOf(const PoolState::Connection& socket);

} // namespace ql::impl
