// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlThread.h"
#include "vireo/support/qlWaitCondition.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ql::impl {
class ServerRun;
struct ServerAccess;
struct ServerState;
} // namespace ql::impl

namespace ql::http {

class HttpServerImpl;
class ServerOptions;

/// One HTTP server: a thread that starts the engine's daemon, watches it, and stops it when asked to.
///
/// startServer(), stopServer() and the destructor may be called from any thread but the server's own and the daemon
/// threads, so from no virtual of HttpServerImpl and not from HttpBaseRequest::getResponse(): the server thread holds
/// the server's lock while it waits for the daemon threads to end. The caller holds no lock that one of those virtuals
/// takes. getStatus() and shouldExit() may be called from any thread. Any number of servers may run in one process.
class VIREO_API HttpServer : public qlThread {
public:
    /// How a server is configured.
    struct VIREO_API Parameters {
        Parameters();

        std::uint16_t port = 8181;          ///< TCP port to listen on
        std::uint32_t listenBacklog = 1024; ///< connections that may wait to be accepted
        std::uint32_t threadPoolSize;       ///< daemon threads that serve requests; by default one per hardware thread
        std::uint32_t connectionTimeoutMs =
            360000;                         ///< idle time-out of a connection, rounded up to seconds; 0 for none
        bool webSocketEnabled = false;      ///< accept WebSocket upgrades
        bool reservedFlag1 = false;         ///< carried for the application, not consulted
        bool reservedFlag2 = true;          ///< carried for the application, not consulted
        bool reservedFlag3 = false;         ///< carried for the application, not consulted
        bool listenOnAllInterfaces = false; ///< false: 127.0.0.1 only; true: every IPv4 interface
    };

    /// Where a server is in its life.
    enum class Status : std::uint32_t {
        Stopped = 0,  ///< never started, or stopped cleanly
        Starting = 1, ///< startServer() took the parameters; the daemon does not run yet
        Running = 2,  ///< the daemon runs
        Error = 3,    ///< the daemon could not be started; final, see the log
    };

    /// Why a server could not be started.
    enum class StartError : std::uint32_t {
        None,                ///< it could, or nobody has tried
        NotInitialized,      ///< Vireo is not initialized, or the server has no implementation
        AddressInUse,        ///< another socket listens there, or something else stands at the path
        AddressNotAvailable, ///< the machine has no such address
        PermissionDenied,    ///< the system does not let this process listen on the port
        OutOfResources,      ///< no descriptor, thread or memory is left
        Engine,              ///< the engine refuses; the log says why
        InvalidAddress,      ///< a listener is given no address, path or socket that can be listened on
        TlsUnavailable,      ///< a listener asks for TLS without a context for it, or it is not built in
    };

    /// What a drain has come to, in requests and WebSockets.
    struct DrainResult {
        std::uint64_t finished = 0; ///< ended of themselves from the drain's begin on
        std::uint64_t cut = 0;      ///< were under way when its time was over
    };

    /// @param implementation the application's side; the server owns it and deletes it last. Null only for a server
    /// that is never started.
    explicit HttpServer(HttpServerImpl* implementation);

    /// The same, with options that differ from the defaults. They are copied, and hold for every run of the server.
    HttpServer(HttpServerImpl* implementation, const ServerOptions& options);

    /// Stops the server as stopServer(true) does, then deletes the implementation.
    ~HttpServer() override;

    /// Starts the server unless its status is anything but Stopped: then the call is ignored. Returns before the
    /// daemon runs; the outcome shows in getStatus() and in the log. After a clean stop a server can be started again.
    void startServer(const Parameters& parameters);

    /// Waits until a server that was started runs or has failed to, at most `ms` milliseconds.
    /// @return whether it runs. False at once where startServer() was not called before. Any thread that may call
    /// startServer().
    bool waitUntilRunning(unsigned long ms) QL_EXCLUDES(mutex_);

    /// Why the last start failed, or None. With Waiting::Polling the engine listens and does not tell; what keeps the
    /// library from listening on the port as well is the reason then. Any thread, without a lock.
    StartError getStartError() const;

    /// The same in words for people, such as "Cannot listen @[::1]:80 : Permission denied"; empty for None. Any thread.
    std::string getStartErrorText() const;

    /// The port that the server listens on, also when Parameters::port asks the system for one with 0; with
    /// ServerOptions::addListener() that of the first one. 0 until it runs, and once it has stopped. Any thread,
    /// without a lock.
    std::uint16_t getPort() const;

    /// The ports of ServerOptions::getListeners() in their order, 0 for a Unix socket, or the one port of a server
    /// without them; none until it runs, and once it has stopped. Any thread.
    std::vector<std::uint16_t> getPorts() const;

    /// Asks the server to stop, which takes up to 200 ms and what HttpServerImpl::onServerStopped() takes. Harmless
    /// on a stopped server.
    /// @param wait true to return only when it has stopped, whether or not another thread has started it again since.
    void stopServer(bool wait);

    /// Stops the server without losing a request, for servers with Waiting::Event. From now on each answer closes its
    /// connection (ServerOptions::setDrainAnswer() says what becomes of new requests). Connections are accepted for
    /// ServerOptions::setDrainGraceMs() more. Then those that have come are, and no others; each WebSocket is sent a
    /// close frame (1001), behind which nothing that is written to it goes out. When every request is answered, every
    /// WebSocket has gone and no client is about to send anything, the server stops as by stopServer(true).
    ///
    /// A request whose whole head was sent before accepting ends is answered. What is sent later, on a connection that
    /// was idle for a tenth of a second, may meet its end, as with every server that closes an idle connection. Streams
    /// that never end are for the application to end: see isDraining(). From a system that cannot hold off new
    /// connections alone (it is not Linux) those that come at the very moment in which accepting ends are reset.
    ///
    /// With Waiting::Polling it says so in the log and stops at once. A server that is starting is drained when it
    /// runs. Further calls meanwhile wait for the same end, the earliest of their deadlines; stopServer() cuts the
    /// drain short. For the threads that may call stopServer().
    /// @param deadlineMs the time in which it stops in any case, from now on, the grace included.
    /// @return once it has stopped; nothing where there was nothing to drain.
    DrainResult drain(std::uint32_t deadlineMs);

    /// Whether the server is being drained, without a lock: to answer a health check with 503, or to end a stream.
    bool isDraining() const;

    /// A snapshot, without a lock.
    Status getStatus() const { return status_.load(std::memory_order_acquire); }

    /// True from the request to stop on, without a lock: new requests are refused.
    bool shouldExit() const { return exitRequested_.load(std::memory_order_acquire); }

    /// The parameters of the last accepted startServer(), or the defaults. Not to be read while another thread calls
    /// startServer().
    const Parameters& getParameters() const { return parameters_; }

    /// The implementation, which lives as long as the server.
    HttpServerImpl* getHttpImplementation() const { return implementation_.get(); }

protected:
    void run() override;

private:
    friend struct impl::ServerAccess;

    void setStatus(Status status);
    bool isDrained(impl::ServerRun& run) QL_REQUIRES(mutex_);

    /// Constant until the destructor.
    std::unique_ptr<HttpServerImpl> implementation_;
    /// Held by run() for the daemon's whole life, except inside its waits.
    qlMutex mutex_;
    qlWaitCondition wakeUp_;
    /// Written under mutex_ before the server thread starts; daemon threads read it while it cannot change.
    Parameters parameters_;
    /// Written by setStatus() under mutex_; read alone, as a snapshot.
    std::atomic<Status> status_{Status::Stopped};
    /// Written under mutex_; read alone on daemon threads, which never take the server's lock.
    std::atomic<bool> exitRequested_{false};
    const std::unique_ptr<impl::ServerState> state_;
};

} // namespace ql::http
