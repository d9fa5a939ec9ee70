#pragma once

#include "skeleton/RequestPool.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/ServerOptions.h"

#include <functional>
#include <memory>
#include <string>

namespace skeleton {

/// The application's side of a server whose requests are served by a pool. WebSockets are closed at once, unless a
/// derived class takes them.
class PooledServer : public ql::http::HttpServerImpl {
public:
    /// Makes the object of one request. Daemon threads, several at a time.
    using Factory = std::function<std::unique_ptr<PooledRequest>(ql::http::HttpServerImpl& server)>;

    explicit PooledServer(Factory factory, unsigned int workers = 4);
    ~PooledServer() override;

    ql::HttpBaseRequest* createRequest() override;
    void handleRequest(ql::HttpBaseRequest* request) override;
    void acceptWebSocket(ql::http::WebSocket* accepted) override;
    /// A derived class that overrides it calls it, too.
    void onServerStopped() override;
    void notifyScheduler() override;

private:
    const Factory factory_;
    RequestPool pool_;
};

/// The parameters of a program that takes the port as its only argument.
ql::http::HttpServer::Parameters parametersOf(int argc, char** argv);

/// Brings the library up, says on standard output where it serves, serves until Ctrl-C or a SIGTERM, and takes
/// everything down again.
/// @param options the server's.
/// @return what main() returns.
int serveUntilSignal(const std::string& name, const ql::http::HttpServer::Parameters& parameters,
                     const std::function<std::unique_ptr<ql::http::HttpServerImpl>()>& makeImplementation,
                     const ql::http::ServerOptions& options = {});

/// Starts a server and says on standard output where it serves, or on standard error why it does not.
/// @param options those that the server was made with.
bool start(ql::http::HttpServer& server, const std::string& name, const ql::http::HttpServer::Parameters& parameters,
           const ql::http::ServerOptions& options);

/// Takes Ctrl-C and SIGTERM from its construction on; the second signal ends the process at once.
class StopSignal {
public:
    enum class Wish { Stop, Reload };

    /// @param taken with Reload it takes SIGHUP as well, where there is one: any number of them.
    explicit StopSignal(Wish taken = Wish::Stop);
    Wish wait() const;
};

/// Holds the library up.
class Library {
public:
    Library();
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

} // namespace skeleton
