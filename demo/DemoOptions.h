#pragma once

#include "vireo/ExchangeMetrics.h"
#include "vireo/HttpServer.h"
#include "vireo/ListenEndpoint.h"
#include "vireo/ServerOptions.h"
#include "vireo/TlsContext.h"
#include "vireo/support/qlSystemUtils.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace demo {

class Statistics;

/// What the command line says.
struct DemoOptions {
    std::uint16_t port = 8181;
    unsigned int threads = static_cast<unsigned int>(qlSystemUtils::GetIdealThreadCount());
    unsigned int workers = 16;
    unsigned int webSocketThreads = 2;
    bool webSockets = true;
    bool allInterfaces = false;
    bool verbose = false;
    bool defined = false;
    std::uint64_t maxBodyBytes = 0;
    std::uint64_t uploadWindowBytes = ql::http::ServerOptions().getUploadWindowBytes();
    unsigned int drainSeconds = 0;
    bool drainButton = false;
    std::string accessLog;
    /// None for `port` alone.
    std::vector<ql::http::ListenEndpoint> listeners;
    /// Files of the certificate and its key; none for none.
    std::vector<std::string> tls;
    bool throwAwayTls = false;
    std::uint64_t maxMessageBytes = 16777216;
    /// 0 for the library's defaults.
    std::uint32_t clientTimeoutMs = 0;
    bool anyOrigin = false;
};

/// Has the command line read into `options`.
void addOptions(CLI::App& app, DemoOptions& options);

ql::http::HttpServer::Parameters parametersOf(const DemoOptions& options);

/// The certificate that the command line wants to be served with; null for none.
/// @throws std::runtime_error when it is broken, or there is no TLS here.
std::shared_ptr<ql::http::TlsContext> tlsContextOf(const DemoOptions& options);

/// Whatever differs from the library's defaults.
/// @param metrics are told of every exchange, but with the defaults.
/// @param tls for all listeners but Unix sockets; null for none.
/// @param statistics count the WebSockets.
ql::http::ServerOptions serverOptionsOf(const DemoOptions& options,
                                        const std::shared_ptr<ql::http::ExchangeMetrics>& metrics,
                                        const std::shared_ptr<ql::http::TlsContext>& tls, Statistics& statistics);

} // namespace demo
