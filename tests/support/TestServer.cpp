#include "support/TestServer.h"

#include "support/WaitUntil.h"
#include "vireo/WebSocket.h"
#include "vireo/support/qlThread.h"

#include <array>
#include <chrono>
#include <stdexcept>
#include <utility>

#include <gtest/gtest.h>

namespace vireotest {

using ql::http::HttpServer;

// ---- The response ----

void TestResponse::throwIf(Operation operation) const {
    if (throwing == operation) {
        throw std::runtime_error("thrown by a response description");
    }
}

const TestResponse::Cookies& TestResponse::getCookies() const {
    throwIf(Operation::GetCookies);
    return cookies;
}

const TestResponse::Headers& TestResponse::getHeaders() const {
    throwIf(Operation::GetHeaders);
    return headers;
}

std::uint32_t TestResponse::getStatusCode() const {
    throwIf(Operation::GetStatusCode);
    return statusCode;
}

std::int64_t TestResponse::getContentLength() const {
    throwIf(Operation::GetContentLength);
    return contentLength;
}

// ---- The request ----

ql::HttpResponseInterface& TestRequest::getResponse() {
    if (getResponseThrows) {
        throw std::runtime_error("thrown by getResponse");
    }
    return response;
}

ql::http::HttpServerImpl& TestRequest::getServerImpl() {
    return application_;
}

std::string TestRequest::readBody() {
    std::string body;
    std::array<char, 65536> piece;
    while (!feed().atEnd()) {
        body.append(piece.data(), static_cast<std::size_t>(feed().readBytes(piece.data(), piece.size())));
    }
    return body;
}

void TestRequest::reply(std::string_view body, std::uint32_t status) {
    response.statusCode = status;
    if (!body.empty()) {
        write(body);
    }
    out().endSending();
    out().releaseResponse();
}

bool TestRequest::startStream() {
    using ResponseState = ql::HttpResponseDevice::ResponseState;
    out().releaseResponse();
    return waitUntil(
               [this] { return out().getResponseState() == ResponseState::Streaming || out().hasDeviceError(); }) &&
           !out().hasDeviceError();
}

// ---- The application ----

namespace {

void echo(TestRequest& request) {
    request.reply(request.readBody());
}

SeenRequest see(const TestRequest& request) {
    SeenRequest seen;
    seen.type = const_cast<TestRequest&>(request).getRequestType();
    seen.url = request.getOriginalRequestUrl();
    seen.isUrlValid = request.getParsedUrl().isValid();
    seen.headers = request.getHeaders().getAll();
    seen.cookies = request.getCookies();
    seen.query = request.getQueryParameters();
    seen.hasParseError = request.hasParseError();
    seen.parseError = request.getParseError();
    seen.clientAddress = request.getClientAddress().toString();
    seen.headerBytes = request.getHeaderReceivedByteCountEstimation();
    seen.hasConnection = request.getOpaquePtr() != nullptr;
    return seen;
}

} // namespace

TestImpl::TestImpl(Behaviour behaviour) : behaviour_(std::move(behaviour)) {
    setDefaultInternalError(behaviour_.internalError);
    if (behaviour_.webSocketThreads != 0) {
        pool_.startThreads(behaviour_.webSocketThreads);
    }
    for (unsigned int i = 0; i < behaviour_.workers; ++i) {
        threads_.emplace_back([this] { work(); });
    }
    threads_.emplace_back([this] { schedule(); });
}

TestImpl::~TestImpl() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
        isWoken_ = true;
        changed_.notify_all();
    }
    for (std::thread& thread : threads_) {
        thread.join();
    }
    collectFinished();
    EXPECT_TRUE(requests_.empty()) << "the engine never completed " << requests_.size() << " requests";
}

ql::HttpBaseRequest* TestImpl::createRequest() {
    if (behaviour_.createsNull) {
        return nullptr;
    }
    if (behaviour_.createThrows) {
        throw std::runtime_error("thrown by createRequest");
    }
    auto request = std::make_unique<TestRequest>(*this);
    TestRequest* const created = request.get();
    if (behaviour_.onCreate) {
        behaviour_.onCreate(*created);
    }
    const std::lock_guard lock(mutex_);
    requests_.emplace_back().request = std::move(request);
    return created;
}

void TestImpl::handleRequest(ql::HttpBaseRequest* base) {
    auto& request = static_cast<TestRequest&>(*base);
    {
        const std::lock_guard lock(mutex_);
        seen_.push_back(see(request));
        changed_.notify_all();
    }
    if (behaviour_.inlineHandler) {
        handle(request, behaviour_.inlineHandler);
        return;
    }
    setInUse(request, true);
    const std::lock_guard lock(mutex_);
    queue_.push_back(&request);
    changed_.notify_all();
}

void TestImpl::acceptWebSocket(ql::http::WebSocket* socket) {
    if (behaviour_.onWebSocket) {
        behaviour_.onWebSocket(pool_, socket);
        return;
    }
    const std::unique_ptr<ql::http::WebSocket> owned(socket);
    owned->markForDeletion();
}

void TestImpl::onServerStopped() {
    ++stoppedCount_;
    if (behaviour_.onStopped) {
        behaviour_.onStopped();
    }
    if (behaviour_.webSocketThreads != 0) {
        pool_.stopThreads(true);
        pool_.closeAll();
    }
}

void TestImpl::notifyScheduler() {
    ++notifyCount_;
    {
        const std::lock_guard lock(mutex_);
        isWoken_ = true;
        changed_.notify_all();
    }
    if (behaviour_.onNotify) {
        behaviour_.onNotify();
    }
}

void TestImpl::handle(TestRequest& request, const Handler& handler) {
    const std::string& threadId = qlThread::CurrentThreadId();
    request.workerThreadStartHandling(threadId);
    try {
        handler(request);
    } catch (...) {
        request.workerThreadStopHandling(threadId);
        throw;
    }
    request.workerThreadStopHandling(threadId);
}

void TestImpl::work() {
    while (true) {
        TestRequest* request = nullptr;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return isStopping_ || !queue_.empty(); });
            if (queue_.empty()) {
                return;
            }
            request = queue_.front();
            queue_.pop_front();
        }
        handle(*request, behaviour_.handler ? behaviour_.handler : echo);
        setInUse(*request, false);
    }
}

void TestImpl::setInUse(const TestRequest& request, bool inUse) {
    const std::lock_guard lock(mutex_);
    for (Entry& entry : requests_) {
        if (entry.request.get() == &request) {
            entry.isInUse = inUse;
        }
    }
    isWoken_ = true;
    changed_.notify_all();
}

void TestImpl::schedule() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return isWoken_; });
        isWoken_ = false;
        const bool isLast = isStopping_;
        lock.unlock();
        collectFinished();
        lock.lock();
        if (isLast && requests_.empty()) {
            return;
        }
        if (isLast && !changed_.wait_until(lock, soon(), [this] { return isWoken_; })) {
            return;
        }
    }
}

void TestImpl::collectFinished() {
    // Completion notifies with a device's lock held: no device is touched with this application's lock held.
    std::list<Entry> done;
    std::vector<Entry*> abandoned;
    {
        const std::lock_guard lock(mutex_);
        for (auto entry = requests_.begin(); entry != requests_.end();) {
            const auto next = std::next(entry);
            if (entry->request->isSchedulerDone()) {
                if (!entry->isAbandoned) {
                    entry->isAbandoned = true;
                    abandoned.push_back(&*entry);
                } else if (!entry->isInUse) {
                    done.splice(done.end(), requests_, entry);
                }
            }
            entry = next;
        }
    }
    for (Entry* const entry : abandoned) {
        TestRequest& request = *entry->request;
        {
            const qlMutexLocker lock(request.out().getLock());
            entry->finish.deviceError = request.out().getDeviceErrorMsg();
            if (!request.out().hasDeviceError()) {
                request.out().setConnectionLost("ended by the application");
            }
        }
        const qlMutexLocker lock(request.feed().getLock());
        request.feed().endFeed();
    }
    std::vector<FinishedRequest> finishes;
    for (Entry& entry : done) {
        TestRequest& request = *entry.request;
        FinishedRequest& finish = entry.finish;
        finish.url = request.getOriginalRequestUrl();
        finish.state = request.out().getResponseState();
        finish.bodyReceived = request.getBodyReceivedByteCount();
        finish.bodySent = request.getBodySentByteCount();
        finish.headerSentBytes = request.getHeaderSentByteCountEstimation();
        finish.hasConnection = request.getOpaquePtr() != nullptr;
        finishes.push_back(finish);
    }
    done.clear();
    const std::lock_guard lock(mutex_);
    finished_.insert(finished_.end(), finishes.begin(), finishes.end());
    // Some may have nothing left to wait for.
    isWoken_ = isWoken_ || !abandoned.empty();
    changed_.notify_all();
}

std::vector<SeenRequest> TestImpl::seen(std::size_t count) const {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_until(lock, soon(), [&] { return seen_.size() >= count; })) {
        throw std::runtime_error("too few requests reached the application");
    }
    return {seen_.begin(), seen_.begin() + static_cast<std::ptrdiff_t>(count)};
}

std::vector<FinishedRequest> TestImpl::finished(std::size_t count) const {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_until(lock, soon(), [&] { return finished_.size() >= count; })) {
        throw std::runtime_error("too few requests were completed");
    }
    return {finished_.begin(), finished_.begin() + static_cast<std::ptrdiff_t>(count)};
}

std::size_t TestImpl::seenCount() const {
    const std::lock_guard lock(mutex_);
    return seen_.size();
}

std::size_t TestImpl::finishedCount() const {
    const std::lock_guard lock(mutex_);
    return finished_.size();
}

// ---- The server ----

TestServer::TestServer(TestImpl::Behaviour behaviour, HttpServer::Parameters parameters,
                       const ql::http::ServerOptions& options)
    : parameters_(std::move(parameters)),
      application_(new TestImpl(std::move(behaviour))),
      server_(std::make_unique<HttpServer>(application_, options)) {
    parameters_.port = freePort();
    start();
}

TestServer::TestServer(TestImpl::Handler handler)
    : TestServer([&] {
          TestImpl::Behaviour behaviour;
          behaviour.handler = std::move(handler);
          return behaviour;
      }()) {}

HttpServer::Parameters TestServer::parametersOfTests() {
    HttpServer::Parameters parameters;
    parameters.threadPoolSize = 2;
    return parameters;
}

HttpServer::Parameters TestServer::parametersWithWebSockets() {
    HttpServer::Parameters parameters = parametersOfTests();
    parameters.webSocketEnabled = true;
    return parameters;
}

void TestServer::start() {
    server_->startServer(parameters_);
    if (!waitUntil([this] { return server_->getStatus() == HttpServer::Status::Running; })) {
        throw std::runtime_error("the server does not start");
    }
}

} // namespace vireotest
