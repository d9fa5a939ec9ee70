// Any bytes into a real server, in any pieces: what reaches the application is a sound request, every request that
// begins ends, and the server still answers the next client.

#include "Check.h"
#include "Mutators.h"
#include "RoadServer.h"
#include "reliability/Choices.h"
#include "support/FakeRequest.h"
#include "support/RawClient.h"
#include "vireo/support/qlStringUtils.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace vireofuzz;
using namespace vireotest;
using Values = std::map<std::string, std::list<std::string>>;

constexpr const char* ProbeTarget = "/probe";

/// Browsers escape line ends in what was typed into forms, which strict HTTP takes.
bool isText(const std::string& text) {
    const bool isSound =
        isStrict() ? text.find('\0') == std::string::npos : !qlStringUtils::ContainsAsciiNonPrintableChar(text);
    return isSound && qlStringUtils::IsUtf8(text);
}

void checkTexts(const Values& values) {
    for (const auto& [name, list] : values) {
        check(isText(name) && !list.empty(), "a name that should have been refused");
        check(std::all_of(list.begin(), list.end(), isText), "a value that should have been refused");
    }
}

/// What holds of every request that the application is given.
void checkRequest(const FakeRequest& request) {
    check(request.hasParseError() == !request.getParseError().empty(),
          "an error without a text, or a text without one");
    check(request.getOpaquePtr() != nullptr && !request.isSchedulerDone(), "a request without a connection");
    checkTexts(request.getCookies());
    checkTexts(request.getQueryParameters());
    std::uint64_t least = 0;
    for (const auto& [name, values] : request.getHeaders().getAll()) {
        check(isText(name) && std::none_of(name.begin(), name.end(), [](char c) { return c >= 'A' && c <= 'Z'; }),
              "a header name that should have been refused or lower-cased");
        check(!values.empty(), "a header without values");
        for (const std::string& value : values) {
            check(std::none_of(value.begin(), value.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; }),
                  "a line end in a header value");
        }
        least += name.size();
    }
    check(request.getHeaderReceivedByteCountEstimation() >= least, "too low an estimate");
    if (!request.hasParseError()) {
        check(request.getParsedUrl().isValid(), "an invalid URL without an error");
        // Strict HTTP escapes what browsers send as it is.
        check(isStrict() ||
                  request.getParsedUrl().toString() == "http://127.0.0.1:80" + request.getOriginalRequestUrl(),
              "another URL than the target's");
    }
}

class RoadRequest : public EchoRequest {
public:
    using EchoRequest::EchoRequest;

    /// Where the server waits by events, a worker answers: it would hold a body back that nobody reads.
    ql::HttpResponseInterface& getResponse() override { return isEventMode() ? response : EchoRequest::getResponse(); }

    void answerOnWorker() {
        handleOnThisThread();
        std::array<char, 4096> piece;
        while (const std::size_t size = editFeedDevice().readBytes(piece.data(), piece.size())) {
            editInternalResponseDevice().writeBytes(piece.data(), size);
        }
        // The client may leave while the worker answers.
        if (!editFeedDevice().hasDeviceError() && !editInternalResponseDevice().hasDeviceError()) {
            check(getBodyReceivedByteCount() == getBodySentByteCount(), "a body of another length");
        }
        release();
    }
    /// Without a look at its body.
    void answerProbe() {
        handleOnThisThread();
        release();
    }

    bool isOver() const { return isSchedulerDone() && !isInUse; }

    /// Set before a worker has it.
    std::atomic<bool> isInUse{false};

private:
    void beforeRelease() override {
        check(!editFeedDevice().hasDeviceError(), "the feed has an error");
        check(getBodyReceivedByteCount() == getBodySentByteCount(), "a body of another length");
        describe();
    }

    void describe() {
        response.headers["echo"] = {"X-Echo", getOriginalRequestUrl()};
        for (const auto& [name, values] : getCookies()) {
            response.cookies[name] = values.front();
        }
    }

    void release() {
        describe();
        editInternalResponseDevice().endSending();
        editInternalResponseDevice().releaseResponse();
        workerThreadStopHandling({});
        isInUse = false;
    }
};

/// Answers requests one after the other.
class Worker {
public:
    /// @param afterEach called behind each answer.
    explicit Worker(std::function<void()> afterEach) : afterEach_(std::move(afterEach)) {
        std::thread([this] { run(); }).detach();
    }

    void give(RoadRequest& request) {
        request.isInUse = true;
        const std::lock_guard lock(mutex_);
        queue_.push_back(&request);
        changed_.notify_one();
    }

private:
    void run() {
        std::unique_lock lock(mutex_);
        while (true) {
            changed_.wait(lock, [this] { return !queue_.empty(); });
            RoadRequest& request = *queue_.front();
            queue_.pop_front();
            lock.unlock();
            request.answerOnWorker();
            afterEach_();
            lock.lock();
        }
    }

    const std::function<void()> afterEach_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<RoadRequest*> queue_;
};

/// The server that all runs share.
class Road {
public:
    Road() {
        auto* const application = new FakeServerImpl;
        application->onCreate = [this, application] {
            const std::lock_guard lock(mutex_);
            return requests_.emplace_back(std::make_unique<RoadRequest>(*application)).get();
        };
        application->onHandle = [this](ql::HttpBaseRequest* request) {
            auto& handled = static_cast<RoadRequest&>(*request);
            checkRequest(handled);
            if (!isEventMode()) {
                return;
            }
            if (handled.getOriginalRequestUrl() == ProbeTarget) {
                handled.answerProbe();
            } else {
                worker_.give(handled);
            }
        };
        // Told under the lock of a device, which a request that is destroyed waits for.
        application->onNotify = [this] { tellOfEnd(); };
        port_ = serveForGood(application);
        probe_ = std::make_unique<RawClient>(port_);
    }

    std::uint16_t port() const { return port_; }

    /// A healthy client asks. Behind its answer lies what the one daemon thread made of everything that was sent
    /// before.
    void probe() {
        const RawResponse answer = probe_->exchange(get(ProbeTarget));
        check(answer.status == 200 && answer.value("X-Echo") == ProbeTarget, "a healthy client gets another answer");
    }

    /// Waits for the end of every request and deletes them.
    void collect() {
        std::unique_lock lock(mutex_);
        while (!requests_.empty()) {
            isEndNews_ = false;
            std::list<std::unique_ptr<RoadRequest>> over;
            for (auto request = requests_.begin(); request != requests_.end();) {
                const auto next = std::next(request);
                if ((*request)->isOver()) {
                    over.splice(over.end(), requests_, request);
                }
                request = next;
            }
            lock.unlock();
            const bool isAny = !over.empty();
            over.clear();
            lock.lock();
            check(isAny || requests_.empty() || ended_.wait_until(lock, soon(), [this] { return isEndNews_; }),
                  "a request does not end");
        }
    }

private:
    void tellOfEnd() {
        const std::lock_guard lock(mutex_);
        isEndNews_ = true;
        ended_.notify_one();
    }

    Worker worker_{[this] { tellOfEnd(); }};
    std::mutex mutex_;
    std::condition_variable ended_;
    /// A request may be over that was not before.
    bool isEndNews_ = false;
    std::list<std::unique_ptr<RoadRequest>> requests_;
    std::uint16_t port_ = 0;
    std::unique_ptr<RawClient> probe_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Never destroyed: the process ends without a stop, and nothing is left to leak.
    static Road& road = *new Road;
    Choices input(data, size);
    RawSocket client = RawSocket::Connect("127.0.0.1", road.port(), 0);
    check(client.isOpen(), "no connection");
    bool isSent = true;
    for (const std::string& piece : input.takePieces()) {
        for (std::size_t at = 0; isSent && at < piece.size();) {
            const RawSocket::Result result = client.send(piece.data() + at, piece.size() - at, soon());
            isSent = result.status == RawSocket::Status::Done;
            at += result.bytes;
        }
        road.probe();
    }
    std::string answer(65536, '\0');
    const RawSocket::Result result = client.receive(answer.data(), answer.size(), std::chrono::steady_clock::now());
    if (result.status == RawSocket::Status::Done) {
        check(answer.substr(0, std::min<std::size_t>(result.bytes, 7)) == "HTTP/1.", "an answer that is no HTTP");
    }
    client.reset();
    road.collect();
    return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t most,
                                               unsigned int seed) {
    return vireofuzz::mutateLines(data, size, most, seed, 0);
}
