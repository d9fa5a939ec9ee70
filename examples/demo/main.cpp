// The demo: how an application embeds the library. Read on in DemoServer (what the server asks of it), DemoRequest and
// Routes (how requests are answered), StreamRoutes (bodies of any size), EventBoard (events to all who listen),
// ChatSocket (WebSockets). What an application of your own can take over as it is stands in ../skeleton.

#include "ConsoleLog.h"
#include "DemoServer.h"
#include "skeleton/Application.h"
#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"
#include "vireo/support/qlSystemUtils.h"

#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

namespace {

constexpr const char* Name = "Vireo demo";
constexpr std::uint64_t MaxBytes = std::uint64_t{1} << 40U;
/// Enough for the head of any request to the demo. An idle event stream takes little more.
constexpr std::size_t ConnectionMemoryBytes = 32768;

struct Options {
    std::uint16_t port = 8181;
    unsigned int threads = static_cast<unsigned int>(qlSystemUtils::GetIdealThreadCount());
    unsigned int workers = 16;
    unsigned int webSocketThreads = 2;
    bool webSockets = true;
    bool allInterfaces = false;
    bool verbose = false;
    bool defined = false;
    std::uint64_t uploadWindowBytes = ql::http::ServerOptions().getUploadWindowBytes();
};

void addOptions(CLI::App& app, Options& options) {
    app.add_option("--port", options.port, "TCP port; 0 for any that is free")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
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
    CLI::Option* const defined =
        app.add_flag("--defined", options.defined, "serve with the library's defaults, without what follows");
    app.add_option("--upload-window", options.uploadWindowBytes, "bytes of an upload that are kept for its reader")
        ->check(CLI::Range(ql::http::ServerOptions::MinUploadWindowBytes, MaxBytes))
        ->capture_default_str()
        ->excludes(defined);
}

ql::http::HttpServer::Parameters parametersOf(const Options& options) {
    ql::http::HttpServer::Parameters parameters;
    parameters.port = options.port;
    parameters.threadPoolSize = options.threads;
    parameters.webSocketEnabled = options.webSockets;
    parameters.listenOnAllInterfaces = options.allInterfaces;
    return parameters;
}

/// Whatever differs from the library's defaults.
ql::http::ServerOptions serverOptionsOf(const Options& options) {
    ql::http::ServerOptions serverOptions;
    if (options.defined) {
        return serverOptions;
    }
    serverOptions.setWaiting(ql::http::ServerOptions::Waiting::Event);
    serverOptions.setConnectionMemoryBytes(ConnectionMemoryBytes);
    serverOptions.setUploadWindowBytes(options.uploadWindowBytes);
    return serverOptions;
}

int serve(const Options& options) {
    const skeleton::Library library;
    const skeleton::StopSignal stopSignal;
    auto implementation =
        std::make_unique<demo::DemoServer>(options.workers, options.webSockets ? options.webSocketThreads : 0);
    ql::http::HttpServer server(implementation.release(), serverOptionsOf(options)); // owns the implementation
    if (!skeleton::start(server, Name, parametersOf(options))) {
        return 1;
    }
    stopSignal.wait();
    std::cout << Name << ": stopping" << std::endl;
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
        const demo::ConsoleLog log(options.verbose);
        return serve(options);
    } catch (const std::exception& error) {
        std::cerr << "vireo-demo: " << error.what() << std::endl;
        return 1;
    }
}
