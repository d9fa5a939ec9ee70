#pragma once

#include "Check.h"
#include "support/FreePort.h"
#include "support/TestOptions.h"
#include "support/WaitUntil.h"
#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"
#include "vireo/Vireo.h"
#include "vireo/WebSocketAcceptor.h"
#include "vireo/WebSocketOptions.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

namespace vireofuzz {

/// Whether the server is strict about HTTP: where the environment has VIREO_FUZZ_STRICT.
inline bool isStrict() {
    static const bool isSet = std::getenv("VIREO_FUZZ_STRICT") != nullptr;
    return isSet;
}

/// Starts the library and the server of all runs, with one daemon thread. Neither is ever stopped. It waits by events
/// where the environment says so, as in tests.
/// @param acceptor of sessions, if any.
/// @return the port.
inline std::uint16_t serveForGood(ql::http::HttpServerImpl* application,
                                  std::shared_ptr<ql::http::WebSocketAcceptor> acceptor = nullptr) {
    ql::initializeVireo();
    ql::http::ServerOptions options = vireotest::optionsOfTests();
    options.setStrictHttp(isStrict());
    if (acceptor != nullptr) {
        options.setWebSockets(std::move(acceptor));
    }
    static ql::http::HttpServer& server = *new ql::http::HttpServer(application, options);
    ql::http::HttpServer::Parameters parameters;
    parameters.port = vireotest::freePort();
    parameters.threadPoolSize = 1;
    parameters.webSocketEnabled = true;
    server.startServer(parameters);
    check(vireotest::waitUntil([] { return server.getStatus() == ql::http::HttpServer::Status::Running; }),
          "the server does not start");
    return parameters.port;
}

} // namespace vireofuzz
