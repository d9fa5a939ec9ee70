#include "support/Program.h"
#include "vireo/BenchServer.h"
#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"
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
        ql::http::ServerOptions serverOptions;
        serverOptions.setConnectionMemoryBytes(options.connectionMemoryBytes);
        serverOptions.setTurbo(options.turbo);
        std::vector<std::unique_ptr<ql::http::HttpServer>> servers;
        for (unsigned int i = 0; i < options.servers; ++i) {
            ql::http::HttpServer::Parameters parameters;
            parameters.port = static_cast<std::uint16_t>(options.port + i);
            parameters.threadPoolSize = options.threads;
            parameters.webSocketEnabled = options.webSocket;
            servers.push_back(std::make_unique<ql::http::HttpServer>(
                new bench::BenchServer(options.workers, options.answer == "inline", options.webSocket), serverOptions));
            servers.back()->startServer(parameters);
            running = running && waitForStart(*servers.back());
        }
        if (running) {
            stop.wait();
        }
    }
    ql::terminateVireo();
    return running ? 0 : 1;
}
