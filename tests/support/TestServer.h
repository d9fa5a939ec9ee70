#pragma once

#include "support/FreePort.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/TestOptions.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/ServerOptions.h"
#include "vireo/WebSocketThread.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace vireotest {

class TestImpl;

/// A response description whose operations can be made to throw.
class TestResponse : public ql::HttpResponseInterface {
public:
    enum class Operation { None, GetCookies, GetHeaders, GetStatusCode, GetContentLength };

    const Cookies& getCookies() const override;
    const Headers& getHeaders() const override;
    std::uint32_t getStatusCode() const override;
    std::int64_t getContentLength() const override;
    std::string getReasonPhrase() const override { return {}; }

    Headers headers;
    Cookies cookies;
    std::uint32_t statusCode = 200;
    std::int64_t contentLength = -1;
    Operation throwing = Operation::None;

private:
    void throwIf(Operation operation) const;
};

/// A request as an application writes it, with what tests need in the open.
class TestRequest : public ql::HttpBaseRequest {
public:
    explicit TestRequest(TestImpl& application) : application_(application) {}

    ql::HttpResponseInterface& getResponse() override;
    ql::http::HttpServerImpl& getServerImpl() override;

    ql::HttpReceiveDevice& feed() { return editFeedDevice(); }
    ql::HttpResponseDevice& out() { return editInternalResponseDevice(); }
    std::uint64_t readDurationMs() const { return getHeaderAndBodyReadDurationMs(); }
    std::uint64_t writeDurationMs() const { return getHeaderAndResponseWriteDurationMs(); }

    /// Reads the body to its end.
    std::string readBody();
    /// Writes to the response body. @return false when it was refused.
    bool write(std::string_view bytes) { return out().writeBytes(bytes.data(), bytes.size()) == bytes.size(); }
    /// Ends the response with a body and releases it: the way of a body that goes out as one buffer.
    void reply(std::string_view body = {}, std::uint32_t status = 200);
    /// Releases the response and waits until it is queued as a stream: a body that is ended sooner may go out as one
    /// buffer. @return false when it is not queued in time, or the connection is lost.
    bool startStream();

    TestResponse response;
    /// Set before the request is handed over.
    std::atomic<bool> getResponseThrows{false};

private:
    TestImpl& application_;
};

/// What the application saw of a request when it was handed over.
struct SeenRequest {
    ql::HttpBaseRequest::RequestType type{};
    std::string url;
    bool isUrlValid = false;
    ql::http::HttpHeaders::Map headers;
    ql::HttpBaseRequest::NamedValues cookies;
    ql::HttpBaseRequest::NamedValues query;
    bool hasParseError = false;
    std::string parseError;
    std::string clientAddress;
    std::uint64_t headerBytes = 0;
    bool hasConnection = false;
};

/// What a request had come to when its application deleted it.
struct FinishedRequest {
    std::string url;
    /// Of the response device, as the library left it.
    std::string deviceError;
    ql::HttpResponseDevice::ResponseState state{};
    std::uint64_t bodyReceived = 0;
    std::uint64_t bodySent = 0;
    std::uint64_t headerSentBytes = 0;
    bool hasConnection = false;
};

/// The application of a test: worker threads that run its handler, and a scheduler that deletes finished requests and
/// lets go of workers whose client has gone, as an application must.
class TestImpl : public ql::http::HttpServerImpl {
public:
    using Handler = std::function<void(TestRequest&)>;

    struct Behaviour {
        /// On a worker thread; without one, and without `inlineHandler`, the request's body is read and echoed.
        Handler handler;
        /// On the daemon thread, instead of `handler`.
        Handler inlineHandler;
        /// Runs in createRequest() on the new request.
        std::function<void(TestRequest&)> onCreate;
        bool createsNull = false;
        bool createThrows = false;
        /// Has the pool of WebSockets, too; without it they are closed.
        std::function<void(ql::http::WebSocketThread&, ql::http::WebSocket*)> onWebSocket;
        std::function<void()> onStopped;
        std::function<void()> onNotify;
        unsigned int workers = 4;
        unsigned int webSocketThreads = 0;
        std::string internalError = "internal error text";
    };

    explicit TestImpl(Behaviour behaviour);
    /// Once the engine is done with every request: deletes them and ends all threads.
    ~TestImpl() override;

    ql::HttpBaseRequest* createRequest() override;
    void handleRequest(ql::HttpBaseRequest* request) override;
    void acceptWebSocket(ql::http::WebSocket* socket) override;
    void onServerStopped() override;
    void notifyScheduler() override;

    /// The first `count` requests, in the order in which they were handed over. Throws when they don't come.
    std::vector<SeenRequest> seen(std::size_t count = 1) const;
    /// The first `count` deleted requests. Throws when they don't come.
    std::vector<FinishedRequest> finished(std::size_t count = 1) const;
    std::size_t seenCount() const;
    std::size_t finishedCount() const;
    unsigned int stoppedCount() const { return stoppedCount_; }
    unsigned int notifyCount() const { return notifyCount_; }

private:
    struct Entry {
        std::unique_ptr<TestRequest> request;
        /// A thread of this application works on it, or is going to.
        bool isInUse = false;
        bool isAbandoned = false;
        FinishedRequest finish;
    };

    void work();
    void schedule();
    void collectFinished();
    static void handle(TestRequest& request, const Handler& handler);
    void setInUse(const TestRequest& request, bool inUse);

    const Behaviour behaviour_;
    std::atomic<unsigned int> stoppedCount_{0};
    std::atomic<unsigned int> notifyCount_{0};
    mutable std::mutex mutex_;
    /// Signals every change of what follows.
    mutable std::condition_variable changed_;
    std::list<Entry> requests_;
    std::deque<TestRequest*> queue_;
    std::vector<SeenRequest> seen_;
    std::vector<FinishedRequest> finished_;
    bool isStopping_ = false;
    bool isWoken_ = false;
    ql::http::WebSocketThread pool_;
    std::vector<std::thread> threads_;
};

/// A running server on a free port of the loopback interface.
class TestServer {
public:
    /// @param parameters all but the port.
    explicit TestServer(TestImpl::Behaviour behaviour,
                        ql::http::HttpServer::Parameters parameters = parametersOfTests(),
                        const ql::http::ServerOptions& options = optionsOfTests());
    explicit TestServer(TestImpl::Handler handler);

    /// Small: two daemon threads.
    static ql::http::HttpServer::Parameters parametersOfTests();
    /// The same, with WebSockets.
    static ql::http::HttpServer::Parameters parametersWithWebSockets();

    /// Starts again after a stop.
    void start();
    void stop() { server_->stopServer(true); }

    std::uint16_t port() const { return parameters_.port; }
    ql::http::HttpServer& server() { return *server_; }
    TestImpl& application() { return *application_; }
    RawClient connect() const { return RawClient(port()); }

private:
    ql::http::HttpServer::Parameters parameters_;
    TestImpl* application_;
    std::unique_ptr<ql::http::HttpServer> server_;
};

} // namespace vireotest
