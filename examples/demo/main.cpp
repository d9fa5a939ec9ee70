// The demo: how an application embeds the library. Read on in DemoServer (what the server asks of it), DemoRequest and
// Routes (how requests are answered), StreamRoutes (bodies of any size), ChatSocket (WebSockets). What an application
// of your own can take over as it is stands in skeleton/.

#include "ConsoleLog.h"
#include "DemoServer.h"
#include "vireo/HttpServer.h"
#include "vireo/Vireo.h"
#include "vireo/support/qlSystemUtils.h"
#include "vireo/support/qlThread.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <exception>
#include <iostream>

#include <CLI/CLI.hpp>

namespace {

struct Options {
    std::uint16_t port = 8181;
    unsigned int threads = static_cast<unsigned int>(qlSystemUtils::GetIdealThreadCount());
    unsigned int workers = 16;
    unsigned int webSocketThreads = 2;
    bool webSockets = true;
    bool allInterfaces = false;
    bool verbose = false;
};

void addOptions(CLI::App& app, Options& options) {
    app.add_option("--port", options.port, "TCP port")->check(CLI::Range(1, 65535))->capture_default_str();
    app.add_option("--threads", options.threads, "daemon threads, which move the bytes")
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    app.add_option("--workers", options.workers, "worker threads, which answer the requests")
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    app.add_option("--websocket-threads", options.webSocketThreads, "threads that serve the WebSockets")
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    app.add_flag("!--no-websocket", options.webSockets, "refuse WebSockets");
    app.add_flag("--all-interfaces", options.allInterfaces, "listen on every IPv4 interface, not on 127.0.0.1 alone");
    app.add_flag("--verbose", options.verbose, "log connections, and everything else");
}

/// The signal that asked for the end; 0 before. A lock-free atomic is what a signal handler may touch, and waiting for
/// it costs nothing.
std::atomic<int> stopSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void onStopSignal(int signal) {
    std::signal(signal, SIG_DFL); // the second one ends the process at once
    stopSignal = signal;
    stopSignal.notify_one();
}

class Library {
public:
    Library() { ql::initializeVireo(); }
    ~Library() { ql::terminateVireo(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

ql::http::HttpServer::Parameters parametersOf(const Options& options) {
    ql::http::HttpServer::Parameters parameters;
    parameters.port = options.port;
    parameters.threadPoolSize = options.threads;
    parameters.webSocketEnabled = options.webSockets;
    parameters.listenOnAllInterfaces = options.allInterfaces;
    return parameters;
}

int serveUntilSignal(const Options& options) {
    const demo::ConsoleLog log(options.verbose);
    const Library library;
    ql::http::HttpServer server(
        new demo::DemoServer(options.workers, options.webSockets ? options.webSocketThreads : 0)); // owned by `server`
    std::signal(SIGINT, onStopSignal);
    std::signal(SIGTERM, onStopSignal);

    server.startServer(parametersOf(options));
    while (server.getStatus() == ql::http::HttpServer::Status::Starting) {
        qlThread::msleep(5); // takes a moment once; nothing announces the end of it
    }
    if (server.getStatus() != ql::http::HttpServer::Status::Running) {
        std::cerr << "vireo-demo: the server could not be started on port " << options.port << std::endl;
        return 1;
    }
    std::cout << "Vireo demo: http://127.0.0.1:" << options.port << "/ (Ctrl-C ends it)" << std::endl;

    stopSignal.wait(0);
    std::cout << "Vireo demo: stopping" << std::endl;
    server.stopServer(true);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        Options options;
        CLI::App app("Serves HTTP and WebSockets with Vireo. Open / in a browser to see what there is.", "vireo-demo");
        addOptions(app, options);
        CLI11_PARSE(app, argc, argv);
        return serveUntilSignal(options);
    } catch (const std::exception& error) {
        std::cerr << "vireo-demo: " << error.what() << std::endl;
        return 1;
    }
}
