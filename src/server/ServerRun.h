// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineOptions.h"
#include "engine/ListenEndpointData.h"
#include "engine/StartFailure.h"
#include "server/Drain.h"
#include "server/EventServing.h"
#include "server/Front.h"
#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace ql::impl {

class Acceptor;
class Daemon;
class Listener;
class SessionServing;
struct AcceptedSocket;

/// One run of a server, from its start to its stop. A server that polls has one daemon, which listens and shares its
/// connections among a pool of threads. One that waits by events, or was told where to listen, has listeners of its
/// own, and for each thread a daemon that is given connections, and another one for those over TLS: it knows then when
/// each has come and gone, lets in whom it wants, and can end its listening without losing anybody. For the server
/// thread.
class ServerRun {
public:
    using StartError = http::HttpServer::StartError;

    ServerRun(http::HttpServer& server, const http::ServerOptions& options);
    /// Stops what runs, in which the connections are cut.
    ~ServerRun();
    ServerRun(const ServerRun&) = delete;
    ServerRun& operator=(const ServerRun&) = delete;

    /// @return None when it runs; else the log says more. @throws std::bad_alloc
    StartFailure start();

    /// The real ones, in the order of the listeners. To be taken once.
    std::vector<std::uint16_t> takePorts() { return std::move(ports_); }

    /// Counts from here on what the drain comes to, where the library accepts. Under the server's mutex for any thread.
    void beginDrain();
    /// Drains a bit further, where the library accepts. @param deadlineMs when the drain ends in any case.
    /// @return whether it has ended.
    bool isDrained(std::int64_t deadlineMs);
    /// What the drain has come to; nothing when there was none.
    http::HttpServer::DrainResult drainResult() const;

    /// Lets nobody in any more, where the engine does not listen, and has the engines begin with those who are in:
    /// nobody may come to an engine that stops.
    void stopAccepting();

    /// Tells the sessions of WebSockets to go, and cuts off who has not when their time is over; returns when all have
    /// gone. Calls sessions: under no lock.
    void endSessions();

    /// Lets what WebSockets were sent last go out, where it goes through the engine: for a short time after the
    /// application has closed them.
    void sayGoodbye();

private:
    bool isAccepting() const;
    void prepareFront();
    StartFailure startEngine(const EngineOptions& options);
    StartFailure startAccepting(const EngineOptions& options);
    StartFailure openListeners(std::vector<std::unique_ptr<Listener>>& listeners);
    std::unique_ptr<Listener> open(const ListenEndpointData& endpoint, StartFailure& failure) const;
    bool startDaemons(EngineOptions options, bool tls);
    bool startDaemon(const EngineOptions& options);
    bool hasTls() const;
    bool hasWebSockets() const;
    EngineOptions engineOptions();
    std::size_t daemonCount() const;
    bool take(const AcceptedSocket& accepted);

    http::HttpServer& server_;
    const http::ServerOptions& options_;
    const std::vector<ListenEndpointData> endpoints_;
    std::vector<std::uint16_t> ports_;
    // Those behind are ended first.
    std::unique_ptr<EventServing> serving_;
    std::optional<Front> front_;
    /// Null without an acceptor.
    std::unique_ptr<SessionServing> sessions_;
    std::vector<std::unique_ptr<Daemon>> daemons_;
    /// Those of the daemons that serve listeners without TLS, and with it.
    Admissions::Engines plainEngines_;
    Admissions::Engines tlsEngines_;
    std::unique_ptr<Acceptor> acceptor_;
    std::optional<Drain> drain_;
};

} // namespace ql::impl
