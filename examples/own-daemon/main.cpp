// Drives an engine daemon of its own, for options that HttpServer does not set: here, a limit of connections for each
// client address. The library's five callbacks do the rest.

#include "skeleton/Application.h"
#include "skeleton/Request.h"
#include "vireo/HttpServer.h"

#include <iostream>
#include <memory>

#include <microhttpd.h>
#if __has_include(<netinet/in.h>)
#    include <netinet/in.h>
#endif

namespace {

constexpr unsigned int ConnectionsPerAddress = 2;

class Hello final : public skeleton::Request {
public:
    using Request::Request;

private:
    Pause serve() override {
        if (!refusesBadHead()) {
            answer(200, "text/plain", "hello from a daemon of one's own\n");
        }
        return {};
    }
};

/// @param server the closure of the callbacks; is not started.
MHD_Daemon* startDaemon(std::uint16_t port, ql::http::HttpServer& server) {
    using Impl = ql::http::HttpServerImpl;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return MHD_start_daemon(MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG, port, nullptr, nullptr,
                            reinterpret_cast<MHD_AccessHandlerCallback>(Impl::GetHttpCallback()), &server, //
                            MHD_OPTION_EXTERNAL_LOGGER, Impl::GetLogFunction(), nullptr,                   //
                            MHD_OPTION_URI_LOG_CALLBACK, Impl::GetUriLogCallback(), nullptr,               //
                            MHD_OPTION_NOTIFY_COMPLETED, Impl::GetRequestCompletedCallback(), &server,     //
                            MHD_OPTION_NOTIFY_CONNECTION, Impl::GetConnectionCallback(), nullptr,          //
                            MHD_OPTION_SOCK_ADDR, &address,                                                //
                            MHD_OPTION_PER_IP_CONNECTION_LIMIT, ConnectionsPerAddress,                     //
                            MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<std::size_t>(262144),          //
                            MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END);
}

int serve(std::uint16_t port) {
    const skeleton::Library library;
    const skeleton::StopSignal stopSignal;
    auto* const application =
        new skeleton::PooledServer([](ql::http::HttpServerImpl& server) { return std::make_unique<Hello>(server); });
    ql::http::HttpServer server(application); // owns the application
    MHD_Daemon* const daemon = startDaemon(port, server);
    if (daemon == nullptr) {
        std::cerr << "own-daemon: the daemon could not be started on port " << port << std::endl;
        return 1;
    }
    std::cout << "own-daemon: http://127.0.0.1:" << port << "/ (Ctrl-C ends it)" << std::endl;
    stopSignal.wait();
    // As HttpServer does it: the application finishes what it can, then the engine cuts what is left.
    application->onServerStopped();
    MHD_stop_daemon(daemon);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    return serve(skeleton::parametersOf(argc, argv).port);
}
