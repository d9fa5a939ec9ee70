#include "support/Program.h"
#include "vireo/BenchServer.h"
#include "vireo/BenchSessions.h"
#include "vireo/HttpServer.h"
#include "vireo/ListenEndpoint.h"
#include "vireo/ServerOptions.h"
#include "vireo/TlsContext.h"
#include "vireo/Vireo.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlThread.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

/// Failures only, so that nothing is written while requests are served.
class FailureLog : public qlLog {
public:
    bool isLogTypeEnabled(qlLogType type) const override { return type == qlLogType::Failure; }
    bool isVerbose() const override { return false; }
    void writeLine(qlLogType /*type*/, const char* /*tag*/, const std::string& line) override {
        std::fprintf(stderr, "bench-vireo: %s\n", line.c_str());
    }
};

/// @return null without TLS, or when it cannot be had, which is told.
std::shared_ptr<ql::http::TlsContext> tlsContextOf(const bench::ServerOptions& options) {
    if (options.tls.empty()) {
        return nullptr;
    }
    ql::http::TlsOptions tls;
    tls.addCertificateFiles(options.tls[0], options.tls[1]);
    tls.setPriorities(bench::TlsPriorities);
    tls.setResumption(false);
    std::string error;
    std::shared_ptr<ql::http::TlsContext> context = ql::http::TlsContext::Create(tls, &error);
    if (!context) {
        std::fprintf(stderr, "bench-vireo: %s\n", error.c_str());
    }
    return context;
}

ql::http::ServerOptions serverOptionsOf(const bench::ServerOptions& options,
                                        const std::shared_ptr<ql::http::TlsContext>& tls) {
    ql::http::ServerOptions serverOptions;
    if (options.throughput) {
        serverOptions = ql::http::ServerOptions::ForThroughput();
    } else {
        serverOptions.setConnectionMemoryBytes(options.connectionMemoryBytes);
        serverOptions.setTurbo(options.turbo);
    }
    serverOptions.setStrictHttp(options.strict);
    if (options.lines) {
        serverOptions.setFiling(ql::http::ServerOptions::Filing::Lines);
    }
    if (options.waitsByEvents) {
        serverOptions.setWaiting(ql::http::ServerOptions::Waiting::Event);
    }
    if (!options.tls.empty()) {
        serverOptions.addListener(ql::http::ListenEndpoint::Tcp("127.0.0.1", options.port).setTls(tls));
    }
    return serverOptions;
}

/// How often workers look for the next request before they sleep: as the toolkit's do.
int looksOf(const ql::http::ServerOptions& options) {
    return options.getWaiting() == ql::http::ServerOptions::Waiting::Event ? 4 : 0;
}

/// Until the program is to stop.
void reloadWhenAsked(const bench::StopSignal& signal, ql::http::TlsContext* tls) {
    while (signal.next() == bench::StopSignal::Wish::Reload) {
        std::string error;
        if (tls != nullptr && !tls->reload(&error)) {
            std::fprintf(stderr, "bench-vireo: %s\n", error.c_str());
        }
    }
}

/// @return whether the server runs.
bool waitForStart(const ql::http::HttpServer& server) {
    while (server.getStatus() == ql::http::HttpServer::Status::Starting) {
        qlThread::msleep(1);
    }
    return server.getStatus() == ql::http::HttpServer::Status::Running;
}

} // namespace

int main(int argc, char** argv) {
    const bench::ServerOptions options = bench::ServerOptions::parse(argc, argv, {"inline", "workers"});
    const bench::StopSignal stop;
    bench::raiseDescriptorLimit();
    FailureLog log;
    qlLog::msInstance = &log;
    ql::initializeVireo();
    bool running = true;
    {
        const std::shared_ptr<ql::http::TlsContext> tls = tlsContextOf(options);
        ql::http::ServerOptions serverOptions = serverOptionsOf(options, tls);
        if (options.sessions) {
            bench::serveSessions(serverOptions, options);
        }
        std::vector<std::unique_ptr<ql::http::HttpServer>> servers;
        for (unsigned int i = 0; i < options.servers; ++i) {
            ql::http::HttpServer::Parameters parameters;
            parameters.port = static_cast<std::uint16_t>(options.port + i);
            parameters.threadPoolSize = options.threads;
            parameters.webSocketEnabled = options.webSocket && !options.sessions;
            servers.push_back(std::make_unique<ql::http::HttpServer>(
                new bench::BenchServer(options.workers, looksOf(serverOptions), options.answer == "inline",
                                       parameters.webSocketEnabled),
                serverOptions));
            servers.back()->startServer(parameters);
            running = running && waitForStart(*servers.back());
        }
        if (running) {
            reloadWhenAsked(stop, tls.get());
        }
    }
    ql::terminateVireo();
    return running ? 0 : 1;
}
