#include "events/EventServer.h"
#include "support/Program.h"
#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"
#include "vireo/Vireo.h"
#include "vireo/support/qlLog.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

constexpr unsigned long StartMs = 10000;

/// Failures only, so that nothing is written while requests are served.
class FailureLog : public qlLog {
public:
    bool isLogTypeEnabled(qlLogType type) const override { return type == qlLogType::Failure; }
    bool isVerbose() const override { return false; }
    void writeLine(qlLogType /*type*/, const char* /*tag*/, const std::string& line) override {
        std::fprintf(stderr, "bench-events: %s\n", line.c_str());
    }
};

struct Arguments {
    std::uint16_t port = 0;
    std::uint32_t threads = 2;
    unsigned int workers = 4;
    std::string waiting = "event";
    std::size_t connectionMemoryBytes = 0;
    std::uint32_t drainMs = 0;
    std::uint32_t graceMs = 0;
};

Arguments parse(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("A server that waits by events, or polls");
    app.add_option("--port", arguments.port, "TCP port on 127.0.0.1")->required();
    app.add_option("--threads", arguments.threads, "threads that serve connections");
    app.add_option("--workers", arguments.workers, "threads that answer requests");
    app.add_option("--waiting", arguments.waiting)->check(CLI::IsMember({"polling", "event"}));
    app.add_option("--connection-memory", arguments.connectionMemoryBytes, "bytes; 0 for the library's default");
    app.add_option("--drain-ms", arguments.drainMs, "how long the end may take; 0 for a stop without a drain");
    app.add_option("--grace-ms", arguments.graceMs, "how long connections are accepted in a drain");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::exit(app.exit(error));
    }
    return arguments;
}

ql::http::ServerOptions serverOptions(const Arguments& arguments) {
    ql::http::ServerOptions options;
    if (arguments.waiting == "event") {
        options.setWaiting(ql::http::ServerOptions::Waiting::Event);
    }
    if (arguments.connectionMemoryBytes != 0) {
        options.setConnectionMemoryBytes(arguments.connectionMemoryBytes);
    }
    options.setDrainGraceMs(arguments.graceMs);
    return options;
}

/// @return the exit status.
int serve(const Arguments& arguments, const bench::StopSignal& stop) {
    auto* const application = new bench::EventServer(arguments.workers);
    ql::http::HttpServer server(application, serverOptions(arguments));
    ql::http::HttpServer::Parameters parameters;
    parameters.port = arguments.port;
    parameters.threadPoolSize = arguments.threads;
    parameters.webSocketEnabled = true;
    server.startServer(parameters);
    if (!server.waitUntilRunning(StartMs)) {
        return 1;
    }
    application->setServer(server);
    stop.wait();
    if (arguments.drainMs != 0) {
        application->board().end();
        const ql::http::HttpServer::DrainResult result = server.drain(arguments.drainMs);
        std::printf("{\"requests\": %llu, \"cut\": %llu}\n",
                    static_cast<unsigned long long>(application->requestCount()),
                    static_cast<unsigned long long>(result.cut));
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const Arguments arguments = parse(argc, argv);
    const bench::StopSignal stop;
    bench::raiseDescriptorLimit();
    FailureLog log;
    qlLog::msInstance = &log;
    ql::initializeVireo();
    const int status = serve(arguments, stop);
    ql::terminateVireo();
    return status;
}
