#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/RequestOwner.h"
#include "vireo/ServerOptions.h"
#include "vireo/Vireo.h"
#include <cstdio>
using namespace ql::http;

struct Response : ql::HttpResponseInterface { // what goes out in front of the body
    Headers headers{{"type", {"Content-Type", "text/plain"}}};
    Cookies cookies;
    const Cookies& getCookies() const override { return cookies; }
    const Headers& getHeaders() const override { return headers; }
    std::uint32_t getStatusCode() const override { return 200; }
    std::int64_t getContentLength() const override { return -1; }
    std::string getReasonPhrase() const override { return "OK"; }
};
struct Request : ql::HttpBaseRequest { // one request, parsed and validated
    explicit Request(HttpServerImpl& impl) : server(impl) {}
    ql::HttpResponseInterface& getResponse() override { return response; }
    HttpServerImpl& getServerImpl() override { return server; }
    HttpServerImpl& server;
    Response response;
};
struct Owner : RequestOwner { // takes each request back when it has ended
    void onRequestDone(ql::HttpBaseRequest& request, std::string_view) override { delete &request; }
};
struct Hello : HttpServerImpl { // what the application makes of requests
    ql::HttpBaseRequest* createRequest() override { return new Request(*this); }
    void handleRequest(ql::HttpBaseRequest* request) override { // quick enough to answer right here
        request->workerThreadStartHandling(qlThread::CurrentThreadId());
        request->editInternalResponseDevice().writeBytes("hello world\n", 12);
        request->editInternalResponseDevice().endSending();
        request->editInternalResponseDevice().releaseResponse();
        request->workerThreadStopHandling(qlThread::CurrentThreadId());
    }
    void acceptWebSocket(WebSocket*) override {}
    void onServerStopped() override {}
    void notifyScheduler() override {}
};
int main() {
    ql::initializeVireo();
    bool running = false;
    {
        ServerOptions options;
        options.setWaiting(ServerOptions::Waiting::Event);
        options.setRequestOwner(std::make_shared<Owner>());
        HttpServer server(new Hello, options);
        server.startServer({});
        running = server.waitUntilRunning(10000);
        if (running) {
            std::getchar(); // serves http://127.0.0.1:8181/ until Enter is pressed
        } else {
            std::fputs("cannot serve on port 8181: the lines above say why\n", stderr);
        }
    }
    ql::terminateVireo();
    return running ? 0 : 1;
}
