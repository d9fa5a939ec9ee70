#include "DemoOptions.h"

#include "SocketRoutes.h"
#include "ThrowAwayCertificate.h"
#include "vireo/AccessLog.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

namespace demo {

namespace {

constexpr std::uint64_t MaxBytes = std::uint64_t{1} << 40U;
/// Enough for the head of any request to the demo. An idle event stream takes little more.
constexpr std::size_t ConnectionMemoryBytes = 32768;
/// A proxy that asks /healthz every two seconds has noticed by then.
constexpr unsigned int MaxDrainGraceMs = 5000;

/// Writes to a file, or to standard output for "-".
std::shared_ptr<ql::http::AccessLog> accessLogTo(const std::string& target) {
    using ql::http::AccessLog;
    if (target == "-") {
        return std::make_shared<AccessLog>(AccessLog::Format::Combined,
                                           [](std::string_view line) { std::cout << line << std::endl; });
    }
    return std::make_shared<AccessLog>(AccessLog::Format::Combined, std::filesystem::path(target));
}

ql::http::ListenEndpoint listenerAt(const std::string& text) {
    const std::optional<ql::http::ListenEndpoint> listener = ql::http::ListenEndpoint::Parse(text);
    if (!listener) {
        throw CLI::ValidationError("--listen", "'" + text + "' is not ADDRESS:PORT");
    }
    return *listener;
}

ql::http::WebSocketOptions webSocketOptionsOf(const DemoOptions& options) {
    ql::http::WebSocketOptions sockets;
    sockets.setMaxMessageBytes(options.maxMessageBytes);
    // Who does not take its echoes is read no more.
    sockets.setMaxQueuedBytes(options.maxMessageBytes);
    sockets.setQueuePolicy(ql::http::WebSocketOptions::QueuePolicy::Wait);
    sockets.setCompression(ql::http::WebSocketCompression());
    sockets.setThreads(options.webSocketThreads);
    if (options.clientTimeoutMs != 0) {
        // A ping after half of it, and as long for the answer.
        sockets.setPingIntervalMs(options.clientTimeoutMs / 2);
        sockets.setPongTimeoutMs(options.clientTimeoutMs / 2);
        sockets.setCloseTimeoutMs(options.clientTimeoutMs);
    }
    return sockets;
}

/// Gives up who is silent for as long, at each stage of an exchange.
void setTimes(ql::http::ServerOptions& serverOptions, std::uint32_t clientTimeoutMs) {
    serverOptions.setHeadTimeoutMs(clientTimeoutMs);
    serverOptions.setBodyProgress(1, clientTimeoutMs);
    serverOptions.setWriteTimeoutMs(clientTimeoutMs);
}

/// Adds an option that may be there any number of times, for a listener each.
CLI::Option* addListenerOption(CLI::App& app, const std::string& name, DemoOptions& options,
                               ql::http::ListenEndpoint (*listenerOf)(const std::string& text),
                               const std::string& description) {
    const auto addAll = [&options, listenerOf](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            options.listeners.push_back(listenerOf(text));
        }
    };
    return app.add_option_function<std::vector<std::string>>(name, addAll, description)->allow_extra_args(false);
}

} // namespace

void addOptions(CLI::App& app, DemoOptions& options) {
    CLI::Option* const port = app.add_option("--port", options.port, "TCP port; 0 for any that is free")
                                  ->check(CLI::Range(0, 65535))
                                  ->capture_default_str();
    app.add_option("--threads", options.threads, "daemon threads, which move the bytes")
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    app.add_option("--workers", options.workers, "worker threads, which answer the requests")
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    app.add_option("--websocket-threads", options.webSocketThreads, "threads that serve the WebSockets")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    app.add_flag("!--no-websocket", options.webSockets, "refuse WebSockets");
    CLI::Option* const allInterfaces = app.add_flag("--all-interfaces", options.allInterfaces,
                                                    "listen on every IPv4 interface, not on 127.0.0.1 alone");
    app.add_flag("--verbose", options.verbose, "log connections, and everything else");
    app.add_option("--client-timeout", options.clientTimeoutMs,
                   "milliseconds without a byte either way after which a client is given up, as a rule; 0 for the "
                   "library's own times, which are half a minute and more")
        ->check(CLI::Range(std::uint32_t{0}, ql::http::ServerOptions::MaxDeadlineMs))
        ->capture_default_str();
    CLI::Option* const defined =
        app.add_flag("--defined", options.defined, "serve with the library's defaults, without what follows");
    app.add_option("--max-body", options.maxBodyBytes, "bytes that a body may have, 0 for any number")
        ->check(CLI::Range(std::uint64_t{0}, MaxBytes))
        ->capture_default_str()
        ->excludes(defined);
    app.add_option("--upload-window", options.uploadWindowBytes, "bytes of an upload that are kept for its reader")
        ->check(CLI::Range(ql::http::ServerOptions::MinUploadWindowBytes, MaxBytes))
        ->capture_default_str()
        ->excludes(defined);
    app.add_option("--drain-seconds", options.drainSeconds,
                   "how long Ctrl-C waits for what is under way; 0 for no longer than a stop takes")
        ->check(CLI::Range(0, 86400))
        ->capture_default_str()
        ->excludes(defined);
    app.add_flag("--drain-button", options.drainButton,
                 "have POST /drain, and a button of the page, do what Ctrl-C does")
        ->excludes(defined);
    app.add_option("--access-log", options.accessLog,
                   "file to which a line is added for each exchange, or - for the output")
        ->excludes(defined);
    CLI::Option* const listen =
        addListenerOption(app, "--listen", options, listenerAt,
                          "where to listen instead of --port, any number of times; [IPv6-ADDRESS]:PORT, or *:PORT for "
                          "every address; port 0 for any that is free")
            ->type_name("ADDRESS:PORT");
    CLI::Option* const unixSocket =
        addListenerOption(
            app, "--unix", options, [](const std::string& path) { return ql::http::ListenEndpoint::Unix(path); },
            "Unix socket to listen at, likewise")
            ->type_name("PATH");
    for (CLI::Option* const option : {listen, unixSocket}) {
        option->excludes(defined)->excludes(port)->excludes(allInterfaces);
    }
    CLI::Option* const tls =
        app.add_option("--tls", options.tls,
                       "serve over TLS, but for Unix sockets, with this certificate and key in PEM; "
                       "SIGHUP reads the files again")
            ->type_name("CHAIN KEY")
            ->expected(2)
            ->excludes(defined);
    app.add_flag("--tls-throw-away", options.throwAwayTls,
                 "serve over TLS likewise, with a certificate that is made at the start and that nobody trusts")
        ->excludes(defined)
        ->excludes(tls);
    app.add_option("--max-message", options.maxMessageBytes, "bytes that a message of a WebSocket may have")
        ->check(CLI::Range(std::uint64_t{1}, MaxBytes))
        ->capture_default_str()
        ->excludes(defined);
    app.add_flag("--any-origin", options.anyOrigin, "let pages from elsewhere have WebSockets here, too")
        ->excludes(defined);
}

ql::http::HttpServer::Parameters parametersOf(const DemoOptions& options) {
    ql::http::HttpServer::Parameters parameters;
    parameters.port = options.port;
    parameters.threadPoolSize = options.threads;
    parameters.webSocketEnabled = options.webSockets;
    parameters.listenOnAllInterfaces = options.allInterfaces;
    if (options.clientTimeoutMs != 0) {
        parameters.connectionTimeoutMs = options.clientTimeoutMs;
    }
    return parameters;
}

std::shared_ptr<ql::http::TlsContext> tlsContextOf(const DemoOptions& options) {
    ql::http::TlsOptions tls;
    if (options.throwAwayTls) {
        const ThrowAwayCertificate certificate = makeThrowAwayCertificate();
        tls.addCertificate(certificate.chainPem, certificate.keyPem);
    } else if (!options.tls.empty()) {
        tls.addCertificateFiles(options.tls[0], options.tls[1]);
    } else {
        return nullptr;
    }
    std::string error;
    std::shared_ptr<ql::http::TlsContext> context = ql::http::TlsContext::Create(tls, &error);
    if (!context) {
        throw std::runtime_error(error);
    }
    return context;
}

ql::http::ServerOptions serverOptionsOf(const DemoOptions& options,
                                        const std::shared_ptr<ql::http::ExchangeMetrics>& metrics,
                                        const std::shared_ptr<ql::http::TlsContext>& tls, Statistics& statistics) {
    ql::http::ServerOptions serverOptions;
    if (options.defined) {
        return serverOptions;
    }
    serverOptions.setWaiting(ql::http::ServerOptions::Waiting::Event);
    serverOptions.setStrictHttp(true);
    std::vector<ql::http::ListenEndpoint> listeners = options.listeners;
    if (tls && listeners.empty()) {
        listeners.push_back(
            ql::http::ListenEndpoint::Tcp(options.allInterfaces ? "0.0.0.0" : "127.0.0.1", options.port));
    }
    for (ql::http::ListenEndpoint& listener : listeners) {
        if (tls && !listener.toString().starts_with("unix:")) {
            listener.setTls(tls);
        }
        serverOptions.addListener(listener);
    }
    serverOptions.setConnectionMemoryBytes(ConnectionMemoryBytes);
    serverOptions.setMaxBodyBytes(options.maxBodyBytes);
    serverOptions.setUploadWindowBytes(options.uploadWindowBytes);
    if (options.clientTimeoutMs != 0) {
        setTimes(serverOptions, options.clientTimeoutMs);
    }
    serverOptions.setDrainGraceMs(std::min(options.drainSeconds * 500, MaxDrainGraceMs));
    serverOptions.addExchangeObserver(metrics);
    if (!options.accessLog.empty()) {
        serverOptions.addExchangeObserver(accessLogTo(options.accessLog));
    }
    if (options.webSockets) {
        const ql::http::WebSocketOptions sockets = webSocketOptionsOf(options);
        serverOptions.setWebSockets(std::make_shared<SocketRoutes>(statistics, sockets, options.anyOrigin), sockets);
    }
    return serverOptions;
}

} // namespace demo
