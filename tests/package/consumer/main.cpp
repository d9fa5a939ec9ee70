// usage: consumer PORT. Serves until it is interrupted.

#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/Vireo.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>

namespace {

class Response final : public ql::HttpResponseInterface {
public:
    const Cookies& getCookies() const override { return cookies_; }
    const Headers& getHeaders() const override { return headers_; }
    std::uint32_t getStatusCode() const override { return 200; }
    std::int64_t getContentLength() const override { return -1; }
    std::string getReasonPhrase() const override { return "OK"; }

private:
    Cookies cookies_;
    Headers headers_;
};

class Request final : public ql::HttpBaseRequest {
public:
    explicit Request(ql::http::HttpServerImpl& server) : server_(server) {}
    ql::HttpResponseInterface& getResponse() override { return response_; }
    ql::http::HttpServerImpl& getServerImpl() override { return server_; }

private:
    ql::http::HttpServerImpl& server_;
    Response response_;
};

/// Answers every request with the version of the library that runs.
class Server final : public ql::http::HttpServerImpl {
public:
    ql::HttpBaseRequest* createRequest() override {
        const qlMutexLocker lock(mutex_);
        return requests_.emplace_back(std::make_unique<Request>(*this)).get();
    }
    void handleRequest(ql::HttpBaseRequest* request) override {
        const std::string text = Vireo::Version::GetDescStringMajorMinorRelease(false);
        request->workerThreadStartHandling(qlThread::CurrentThreadId());
        request->editInternalResponseDevice().writeBytes(text.data(), text.size());
        request->editInternalResponseDevice().endSending();
        request->editInternalResponseDevice().releaseResponse();
        request->workerThreadStopHandling(qlThread::CurrentThreadId());
    }
    void acceptWebSocket(ql::http::WebSocket* /*socket*/) override {}
    void onServerStopped() override {}
    void notifyScheduler() override {}

private:
    qlMutex mutex_;
    std::list<std::unique_ptr<Request>> requests_;
};

/// Keeps the library up before and after main() as well.
class Library {
public:
    Library() { ql::initializeVireo(); }
    ~Library() { ql::terminateVireo(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

const Library library;

std::atomic<bool> stopped = false;

extern "C" void onStopSignal(int /*signal*/) {
    stopped = true;
    stopped.notify_one();
}

} // namespace

int main(int, char** argv) {
    std::signal(SIGINT, onStopSignal);
    ql::http::HttpServer::Parameters parameters;
    parameters.port = static_cast<std::uint16_t>(std::atoi(argv[1]));
    ql::http::HttpServer server(new Server);
    server.startServer(parameters);
    while (server.getStatus() == ql::http::HttpServer::Status::Starting) {
        qlThread::msleep(5);
    }
    if (server.getStatus() != ql::http::HttpServer::Status::Running) {
        return 1;
    }
    std::printf("http://127.0.0.1:%d/\n", static_cast<int>(parameters.port));
    std::fflush(stdout);
    stopped.wait(false);
}
