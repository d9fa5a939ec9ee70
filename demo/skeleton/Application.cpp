#include "skeleton/Application.h"

#include "vireo/ListenEndpoint.h"
#include "vireo/Vireo.h"

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <vector>

namespace skeleton {

namespace {

/// It takes a moment.
constexpr unsigned long StartPatienceMs = 30000;

/// What signals have asked for; 0 before. A lock-free atomic is what a signal handler may touch, and waiting for it
/// costs nothing.
std::atomic<int> wishes = 0;
static_assert(std::atomic<int>::is_always_lock_free);
constexpr int StopWish = 1;
constexpr int ReloadWish = 2;

void addWish(int wish) {
    wishes |= wish;
    wishes.notify_one();
}

extern "C" void onStopSignal(int signal) {
    std::signal(signal, SIG_DFL); // the second one ends the process at once
    addWish(StopWish);
}

#ifdef SIGHUP
extern "C" void onReloadSignal(int signal) {
    std::signal(signal, onReloadSignal);
    addWish(ReloadWish);
}
#endif

const char* reasonOf(ql::http::HttpServer::StartError error) {
    using Error = ql::http::HttpServer::StartError;
    switch (error) {
    case Error::None:
        break;
    case Error::NotInitialized:
        return "the library is not initialized";
    case Error::AddressInUse:
        return "another program listens there";
    case Error::AddressNotAvailable:
        return "this machine has no such address";
    case Error::PermissionDenied:
        return "the system does not permit it";
    case Error::OutOfResources:
        return "the system has no more room for it";
    case Error::Engine:
        return "the engine refuses";
    case Error::InvalidAddress:
        return "that is nothing to listen at";
    case Error::TlsUnavailable:
        return "there is no TLS here";
    }
    return "it took too long";
}

/// @param host "127.0.0.1", "[::1]" or "*".
std::string urlOf(const std::string& scheme, const std::string& host, std::uint16_t port) {
    return scheme + "://" + (host == "*" ? "localhost" : host) + ":" + std::to_string(port) + "/";
}

/// @param port the real one, 0 for a Unix socket.
std::string addressOf(const ql::http::ListenEndpoint& listener, std::uint16_t port) {
    const std::string& text = listener.toString();
    const char* const scheme = listener.getTls() == nullptr ? "http" : "https";
    return port == 0 ? text : urlOf(scheme, text.substr(0, text.rfind(':')), port);
}

std::vector<std::string> addressesOf(const ql::http::HttpServer& server, const ql::http::ServerOptions& options) {
    const std::vector<ql::http::ListenEndpoint>& listeners = options.getListeners();
    if (listeners.empty()) {
        return {urlOf("http", "127.0.0.1", server.getPort())};
    }
    const std::vector<std::uint16_t> ports = server.getPorts();
    std::vector<std::string> addresses;
    for (std::size_t i = 0; i < listeners.size(); ++i) {
        addresses.push_back(addressOf(listeners[i], ports[i]));
    }
    return addresses;
}

/// The library's text names the listener that could not be opened.
std::string whyNotStarted(const ql::http::HttpServer& server, std::uint16_t port,
                          const ql::http::ServerOptions& options) {
    if (options.getListeners().empty()) {
        return " on port " + std::to_string(port) + ": " + reasonOf(server.getStartError());
    }
    const std::string text = server.getStartErrorText();
    return ": " + (text.empty() ? reasonOf(server.getStartError()) : text);
}

} // namespace

bool start(ql::http::HttpServer& server, const std::string& name, const ql::http::HttpServer::Parameters& parameters,
           const ql::http::ServerOptions& options) {
    server.startServer(parameters);
    if (!server.waitUntilRunning(StartPatienceMs)) {
        std::cerr << name << ": the server could not be started" << whyNotStarted(server, parameters.port, options)
                  << std::endl;
        return false;
    }
    for (const std::string& address : addressesOf(server, options)) {
        std::cout << name << ": " << address << " (Ctrl-C ends it)" << std::endl;
    }
    return true;
}

StopSignal::StopSignal([[maybe_unused]] Wish taken) {
    std::signal(SIGINT, onStopSignal);
    std::signal(SIGTERM, onStopSignal);
#ifdef SIGHUP
    if (taken == Wish::Reload) {
        std::signal(SIGHUP, onReloadSignal);
    }
#endif
}

StopSignal::Wish StopSignal::wait() const {
    wishes.wait(0);
    return (wishes.fetch_and(~ReloadWish) & StopWish) != 0 ? Wish::Stop : Wish::Reload;
}

void StopSignal::give() {
    addWish(StopWish);
}

Library::Library() {
    ql::initializeVireo();
}

Library::~Library() {
    ql::terminateVireo();
}

} // namespace skeleton
