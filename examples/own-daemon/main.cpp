// Drives an engine daemon of its own, for an option that HttpServer does not have: connections for each address.
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/Vireo.h"
#include <csignal>
#include <iostream>
#include <microhttpd.h>
#if __has_include(<netinet/in.h>)
#    include <netinet/in.h>
#endif
using namespace ql::http;
volatile std::sig_atomic_t isOver = 0;

struct Response : ql::HttpResponseInterface {
    explicit Response(std::uint32_t code) : status(code) {}
    Headers headers{{"type", {"Content-Type", "text/plain"}}};
    Cookies cookies;
    const std::uint32_t status;
    const Cookies& getCookies() const override { return cookies; }
    const Headers& getHeaders() const override { return headers; }
    std::uint32_t getStatusCode() const override { return status; }
    std::int64_t getContentLength() const override { return -1; }
    std::string getReasonPhrase() const override { return status == 200 ? "OK" : "Bad Request"; }
};
struct Request : ql::HttpBaseRequest {
    explicit Request(HttpServerImpl& impl) : server(impl) {}
    ql::HttpResponseInterface& getResponse() override { return hasParseError() ? bad : good; }
    HttpServerImpl& getServerImpl() override { return server; }
    HttpServerImpl& server;
    Response good{200}, bad{400};
};
struct Hello : HttpServerImpl { // on one thread; nobody tells it which requests have ended: it looks when another comes
    ql::HttpBaseRequest* createRequest() override {
        requests.remove_if([](const auto& request) { return request->isSchedulerDone(); });
        return requests.emplace_back(std::make_unique<Request>(*this)).get();
    }
    void handleRequest(ql::HttpBaseRequest* request) override {
        const auto text = request->hasParseError() ? request->getParseError() : "hello from a daemon of one's own\n";
        request->workerThreadStartHandling(qlThread::CurrentThreadId());
        request->editInternalResponseDevice().writeBytes(text.data(), text.size());
        request->editInternalResponseDevice().endSending();
        request->editInternalResponseDevice().releaseResponse();
        request->workerThreadStopHandling(qlThread::CurrentThreadId());
    }
    void acceptWebSocket(WebSocket*) override {}
    void onServerStopped() override {}
    void notifyScheduler() override {}
    std::list<std::unique_ptr<Request>> requests;
};
int main(int argc, char** argv) {
    std::signal(SIGTERM, [](int) { isOver = 1; });
    ql::initializeVireo();
    auto server = std::make_unique<HttpServer>(new Hello); // what the callbacks are given; it is not started
    const auto port = static_cast<std::uint16_t>(argc > 1 ? std::stoi(argv[1]) : 8181);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    MHD_Daemon* const daemon = MHD_start_daemon(
        MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG, port, nullptr, nullptr,
        reinterpret_cast<MHD_AccessHandlerCallback>(HttpServerImpl::GetHttpCallback()), server.get(),
        MHD_OPTION_EXTERNAL_LOGGER, HttpServerImpl::GetLogFunction(), nullptr, MHD_OPTION_URI_LOG_CALLBACK,
        HttpServerImpl::GetUriLogCallback(), nullptr, MHD_OPTION_NOTIFY_COMPLETED,
        HttpServerImpl::GetRequestCompletedCallback(), server.get(), MHD_OPTION_NOTIFY_CONNECTION,
        HttpServerImpl::GetConnectionCallback(), nullptr, MHD_OPTION_SOCK_ADDR, &address,
        MHD_OPTION_PER_IP_CONNECTION_LIMIT, 2U, MHD_OPTION_CONNECTION_MEMORY_LIMIT, std::size_t{262144},
        MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END);
    if (daemon != nullptr) { // else the log says why
        std::cout << "own-daemon: http://127.0.0.1:" << port << "/ (SIGTERM ends it)" << std::endl;
        while (isOver == 0) {
            qlThread::msleep(50);
        }
        MHD_stop_daemon(daemon);
    }
    server.reset();
    ql::terminateVireo();
    return daemon != nullptr ? 0 : 1;
}
