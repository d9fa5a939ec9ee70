#include "vireo/BenchServer.h"

#include "support/Work.h"
#include "vireo/WebSocket.h"

#include <chrono>
#include <utility>

namespace bench {

namespace {

class EchoSocket : public ql::http::WebSocket {
public:
    explicit EchoSocket(WebSocket&& accepted) : WebSocket(std::move(accepted)) {}

    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
        writeMessage(message.data(), message.size(), isBinary);
    }
};

/// How many of its oldest requests a daemon thread looks at for each new one. Two keep the list below twice the
/// requests that are under way.
constexpr int LooksPerRequest = 2;

} // namespace

BenchServer::BenchServer(unsigned int workers, int looks, bool answerInline, bool webSocket)
    : answerInline_(answerInline),
      workers_(
          workers, [](BenchRequest* request) { request->answer(); }, looks),
      late_(std::chrono::milliseconds(SlowMs), [this](BenchRequest* request) { workers_.push(request); }) {
    if (webSocket) {
        webSockets_.startThreads(workers);
    }
}

BenchServer::~BenchServer() = default;

BenchServer::Requests& BenchServer::requestsOfThisThread() {
    // The threads of one server's daemon serve no other.
    thread_local Requests* requests = nullptr;
    if (requests == nullptr) {
        const std::lock_guard lock(mutex_);
        requests = requests_.emplace_back(std::make_unique<Requests>()).get();
    }
    return *requests;
}

ql::HttpBaseRequest* BenchServer::createRequest() {
    Requests& requests = requestsOfThisThread();
    for (int i = 0; i < LooksPerRequest && !requests.empty(); ++i) {
        std::unique_ptr<BenchRequest> oldest = std::move(requests.front());
        requests.pop_front();
        if (!oldest->isOver()) {
            requests.push_back(std::move(oldest));
        }
    }
    return requests.emplace_back(makeRequest()).get();
}

std::unique_ptr<BenchRequest> BenchServer::makeRequest() {
    return std::make_unique<BenchRequest>(*this);
}

void BenchServer::handleRequest(ql::HttpBaseRequest* request) {
    BenchRequest* const own = static_cast<BenchRequest*>(request);
    const Work work = workOf(own->path());
    if (work == Work::Slow) {
        late_.push(own);
    } else if (work == Work::Plain && answerInline_) {
        own->answer();
    } else {
        workers_.push(own);
    }
}

void BenchServer::acceptWebSocket(ql::http::WebSocket* accepted) {
    const std::unique_ptr<ql::http::WebSocket> source(accepted);
    std::unique_ptr<ql::http::WebSocket> socket = std::make_unique<EchoSocket>(std::move(*source));
    webSockets_.addWebSocket(socket);
}

void BenchServer::onServerStopped() {
    late_.stop();
    workers_.stop();
    webSockets_.stopThreads(true);
    webSockets_.closeAll();
}

} // namespace bench
