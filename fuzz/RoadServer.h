#pragma once

#include "Check.h"
#include "support/FreePort.h"
#include "support/WaitUntil.h"
#include "vireo/HttpServer.h"
#include "vireo/Vireo.h"

#include <cstdint>

namespace vireofuzz {

/// Starts the library and the server of all runs, with one daemon thread. Neither is ever stopped.
/// @return the port.
inline std::uint16_t serveForGood(ql::http::HttpServerImpl* application) {
    ql::initializeVireo();
    static ql::http::HttpServer& server = *new ql::http::HttpServer(application);
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
