#include "support/Program.h"

#include <CLI/CLI.hpp>

#include <cstdlib>

#include <pthread.h>
#include <sys/resource.h>

namespace bench {

ServerOptions ServerOptions::parse(int argc, const char* const* argv, const std::vector<std::string>& answers) {
    ServerOptions options;
    CLI::App app("A server program of the benchmark");
    app.add_option("--port", options.port, "TCP port on 127.0.0.1")->required();
    app.add_option("--threads", options.threads, "threads that serve connections");
    app.add_option("--workers", options.workers, "threads that answer requests");
    app.add_option("--servers", options.servers, "number of servers, at consecutive ports");
    app.add_flag("--websocket", options.webSocket, "accept WebSocket upgrades");
    app.add_option("--connection-memory", options.connectionMemoryBytes, "bytes of memory for each connection");
    app.add_flag("--turbo", options.turbo, "read and write before a socket is known to be ready");
    if (!answers.empty()) {
        options.answer = answers.front();
        app.add_option("--answer", options.answer, "how plain requests are answered")->check(CLI::IsMember(answers));
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::exit(app.exit(error));
    }
    return options;
}

StopSignal::StopSignal() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

void StopSignal::wait() const {
    int received = 0;
    sigwait(&signals_, &received);
}

void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace bench
