// The demo: how an application embeds the library. Read on in DemoOptions (how it serves), DemoServer (what the server
// asks of it), DemoRequest and Routes (how requests are answered), StreamRoutes (bodies of any size), EventBoard
// (events to all who listen), SocketRoutes (WebSockets) and ChatSocket (the same with --defined). What an application
// of your own can take over as it is stands in
// ../skeleton.

#include "ConsoleLog.h"
#include "DemoOptions.h"
#include "DemoServer.h"
#include "skeleton/Application.h"
#include "vireo/ExchangeMetrics.h"
#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"
#include "vireo/TlsContext.h"

#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

namespace {

constexpr const char* Name = "Vireo demo";

void reload(ql::http::TlsContext* tls) {
    std::string error;
    if (tls == nullptr || tls->reload(&error)) {
        std::cout << Name << ": reloaded" << std::endl;
    } else {
        std::cout << Name << ": the former certificate stays: " << error << std::endl;
    }
}

int serve(const demo::DemoOptions& options) {
    const skeleton::Library library;
    const skeleton::StopSignal stopSignal(skeleton::StopSignal::Wish::Reload);
    const auto metrics = options.defined ? nullptr : std::make_shared<ql::http::ExchangeMetrics>();
    // The server has threads of its own for sessions.
    const unsigned int webSocketThreads = options.webSockets && options.defined ? options.webSocketThreads : 0;
    auto implementation = std::make_unique<demo::DemoServer>(options.workers, webSocketThreads, metrics);
    const std::shared_ptr<ql::http::TlsContext> tls = demo::tlsContextOf(options);
    demo::DemoServer& demoServer = *implementation;
    if (options.drainButton) {
        demoServer.offerDrain(skeleton::StopSignal::give);
    }
    const ql::http::ServerOptions serverOptions = demo::serverOptionsOf(options, metrics, tls, demoServer.statistics());
    ql::http::HttpServer server(implementation.release(), serverOptions); // owns the implementation
    if (!skeleton::start(server, Name, demo::parametersOf(options), serverOptions)) {
        return 1;
    }
    while (stopSignal.wait() == skeleton::StopSignal::Wish::Reload) {
        reload(tls.get());
    }
    if (options.drainSeconds != 0) {
        std::cout << Name << ": draining" << std::endl;
        demoServer.beginDrain();
        const auto result = server.drain(options.drainSeconds * 1000);
        std::cout << Name << ": " << result.finished << " finished, " << result.cut << " cut off" << std::endl;
    } else {
        std::cout << Name << ": stopping" << std::endl;
        server.stopServer(true);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        demo::DemoOptions options;
        CLI::App app("Serves HTTP and WebSockets with Vireo. Open / in a browser to see what there is.", "vireo-demo");
        demo::addOptions(app, options);
        CLI11_PARSE(app, argc, argv);
        const demo::ConsoleLog log(options.verbose);
        return serve(options);
    } catch (const std::exception& error) {
        std::cerr << "vireo-demo: " << error.what() << std::endl;
        return 1;
    }
}
