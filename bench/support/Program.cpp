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
    app.add_flag("--sessions", options.sessions, "accept those of RFC 6455, by sessions");
    app.add_flag("--broadcast", options.broadcast, "send each message but a connection's first to all, not back");
    app.add_flag("--compress", options.compress, "agree to compress messages");
    app.add_option("--connection-memory", options.connectionMemoryBytes, "bytes of memory for each connection");
    app.add_flag("--turbo", options.turbo, "read and write before a socket is known to be ready");
    app.add_flag("--event", options.waitsByEvents, "wait by events, where the program has it");
    app.add_flag("--strict", options.strict, "refuse what RFC 9112 has no sense for, where the program has it");
    app.add_flag("--throughput", options.throughput, "the program's own options for throughput, where it has such");
    app.add_flag("--lines", options.lines, "keep the lines of a head, not maps of them, where the program has both");
    app.add_option("--routes", options.routes, "routes with a parameter, where the program has any");
    app.add_option("--files", options.files, "directory to serve, where the program has it");
    app.add_option("--tls", options.tls, "serve over TLS, where the program has it")
        ->type_name("CHAIN KEY")
        ->expected(2);
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
    sigaddset(&signals_, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

StopSignal::Wish StopSignal::next() const {
    int received = 0;
    sigwait(&signals_, &received);
    return received == SIGHUP ? Wish::Reload : Wish::Stop;
}

void StopSignal::wait() const {
    while (next() != Wish::Stop) {
    }
}

void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace bench
