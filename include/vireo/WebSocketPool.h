// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <memory>

namespace ql::impl {
class TaskPool;
} // namespace ql::impl

namespace ql::http {

class WebSocket;

/// A few threads that serve any number of WebSockets: those of sessions (WebSocketOptions::setPool()) and those that
/// HttpServerImpl::acceptWebSocket() gets, of several servers at once if wanted. Connections that are idle cost no
/// time: the threads wait until one of them has something to do.
///
/// A connection is served by one thread at a time. A call of the application that takes its time, WebSocket's
/// onMessageReceived() for example, holds its thread only; while all threads are held so, nobody is served.
///
/// The HTTP engine frees its part of a connection when its server's daemon stops. Sessions are ended by their server
/// before that, and the pool goes on. Of connections that were add()ed it knows nothing: where there are any, call
/// stop() in HttpServerImpl::onServerStopped(), as for a WebSocketThread.
///
/// Any member may be called from any thread.
class VIREO_API WebSocketPool {
public:
    /// The most threads for one pool.
    static constexpr unsigned int MaxThreads = 256;

    /// Starts the threads.
    /// @param threads from 1 to MaxThreads.
    /// @throws std::invalid_argument beyond these, std::system_error when the system has no threads or descriptors to
    /// give, std::bad_alloc.
    explicit WebSocketPool(unsigned int threads);

    /// stop(). On one of its own threads, from a callback for example, it does not wait, because that thread could not
    /// end: the threads go on without the object, end after the calls that they are in, and the last of them closes
    /// and destroys the connections. Such a thread may outlive what the application destroys at its end; so let
    /// somebody else destroy the pool.
    ~WebSocketPool();

    WebSocketPool(const WebSocketPool&) = delete;
    WebSocketPool& operator=(const WebSocketPool&) = delete;

    /// Serves a connection from now on, instead of a WebSocketThread. When it ends, a thread of the pool closes and
    /// destroys it.
    /// @param socket left empty. If the pool is stopped, it is closed and stays with the caller. Empty is ignored.
    /// @throws std::bad_alloc and it stays with the caller, open.
    /// @throws std::system_error when the system cannot watch its socket; it stays with the caller, open.
    void add(std::unique_ptr<WebSocket>& socket);

    /// Stops the pool for good: the threads end after the calls that they are in, and the last of them closes and
    /// destroys the connections that are left. Sessions get their onClose(). Returns when all that has happened, so
    /// that it takes as long as the calls do; on one of the pool's own threads at once. Calls may repeat and overlap.
    void stop();

private:
    friend class impl::TaskPool;

    const std::unique_ptr<impl::TaskPool> tasks_;
};

} // namespace ql::http
