#include "vireo/RequestOwner.h"
#include "integration/ServerTest.h"
#include "vireo/FormDecoder.h"
#include "vireo/support/qlThread.h"

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

// An application that keeps no list of its requests: it is told of each, and lets go of it then.

namespace vireotest {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::StartsWith;
using Options = ql::http::ServerOptions;

constexpr std::size_t WindowBytes = Options::MinUploadWindowBytes;
constexpr std::uint32_t DeadlineMs = 100;
/// Beyond what the system keeps for a client that takes nothing.
constexpr std::size_t LargeBytes = 16000000;

/// What happened, in order.
class Story {
public:
    void add(std::string line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(std::move(line));
        changed_.notify_all();
    }

    /// Waits for the first `count`. Throws when they don't come.
    std::vector<std::string> wait(std::size_t count) const {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_until(lock, soon(), [&] { return lines_.size() >= count; })) {
            throw std::runtime_error("the owner is not told");
        }
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> lines_;
};

/// Lost in whichever way a system tells of a reset.
testing::Matcher<std::string> isLoss() {
    return testing::AllOf(StartsWith("/ done "), testing::Ne("/ done "));
}

class OwnedRequest;
using Held = std::shared_ptr<OwnedRequest>;

/// Holds itself until it is done; whoever works on it holds it, too.
class OwnedRequest : public ql::HttpBaseRequest {
public:
    explicit OwnedRequest(ql::http::HttpServerImpl& application) : application_(application) {}

    ql::HttpResponseInterface& getResponse() override { return response_; }
    ql::http::HttpServerImpl& getServerImpl() override { return application_; }

    ql::HttpReceiveDevice& feed() { return editFeedDevice(); }
    ql::HttpResponseDevice& out() { return editInternalResponseDevice(); }

    /// As it comes, on any thread.
    std::string readBody() {
        std::string body;
        std::array<char, 4096> piece;
        while (const auto size = static_cast<std::size_t>(feed().readSome(piece.data(), piece.size()))) {
            body.append(piece.data(), size);
        }
        return body;
    }

    void reply(std::string_view body) {
        workerThreadStartHandling(qlThread::CurrentThreadId());
        out().writeBytes(body.data(), body.size());
        out().endSending();
        out().releaseResponse();
        workerThreadStopHandling(qlThread::CurrentThreadId());
    }

    /// The library's hold.
    Held self;

private:
    ql::http::HttpServerImpl& application_;
    TestResponse response_;
};

class OwnedApplication : public ql::http::HttpServerImpl {
public:
    explicit OwnedApplication(std::function<void(OwnedRequest&)> onHandle) : onHandle_(std::move(onHandle)) {}

    ql::HttpBaseRequest* createRequest() override {
        auto request = std::make_shared<OwnedRequest>(*this);
        request->self = request;
        return request.get();
    }
    void handleRequest(ql::HttpBaseRequest* request) override { onHandle_(static_cast<OwnedRequest&>(*request)); }
    void acceptWebSocket(ql::http::WebSocket* /*socket*/) override {}
    void onServerStopped() override {}
    void notifyScheduler() override {}

private:
    const std::function<void(OwnedRequest&)> onHandle_;
};

/// Tells the story: "/path whole", "/path full", "/path done reason".
class TellingOwner : public ql::http::RequestOwner {
public:
    TellingOwner(Story& story, std::function<void(OwnedRequest&, bool isWhole)> onBody,
                 std::function<void(OwnedRequest&)> onDone)
        : story_(story), onBody_(std::move(onBody)), onDone_(std::move(onDone)) {}

    void onBodyReady(ql::HttpBaseRequest& request, bool isWhole) override {
        story_.add(request.getOriginalRequestUrl() + (isWhole ? " whole" : " full"));
        if (onBody_) {
            onBody_(static_cast<OwnedRequest&>(request), isWhole);
        }
    }

    void onRequestDone(ql::HttpBaseRequest& request, std::string_view lossReason) override {
        EXPECT_TRUE(request.isSchedulerDone());
        const std::string line = request.getOriginalRequestUrl() + " done " + std::string(lossReason);
        auto& owned = static_cast<OwnedRequest&>(request);
        if (onDone_) {
            onDone_(owned);
        }
        owned.self.reset();
        story_.add(line);
    }

private:
    Story& story_;
    const std::function<void(OwnedRequest&, bool isWhole)> onBody_;
    const std::function<void(OwnedRequest&)> onDone_;
};

class RequestOwning : public ServerTest {
protected:
    using OnHandle = std::function<void(OwnedRequest&)>;
    using OnBody = std::function<void(OwnedRequest&, bool isWhole)>;

    ~RequestOwning() override {
        stop();
        for (std::thread& worker : workers_) {
            worker.join();
        }
    }

    void serve(OnHandle onHandle, OnBody onBody = {}, const std::function<void(Options&)>& change = {}) {
        Options options;
        options.setWaiting(Options::Waiting::Event);
        options.setUploadWindowBytes(WindowBytes);
        options.setRequestOwner(std::make_shared<TellingOwner>(story_, std::move(onBody), onDone_));
        if (change) {
            change(options);
        }
        Parameters parameters = TestServer::parametersOfTests();
        parameters.port = port_;
        server_ = std::make_unique<ql::http::HttpServer>(new OwnedApplication(std::move(onHandle)), options);
        server_->startServer(parameters);
        ASSERT_TRUE(waitUntil([this] { return server_->getStatus() == Status::Running; }));
    }

    /// Asks for each body and echoes it: at once where it is whole, on a thread of its own else.
    void serveEchoes(const std::function<void(Options&)>& change = {}) {
        serve([](OwnedRequest& request) { request.acceptBody(); },
              [this](OwnedRequest& request, bool isWhole) {
                  if (isWhole) {
                      request.reply(request.readBody());
                  } else {
                      work([held = request.self] { held->reply(held->readBody()); });
                  }
              },
              change);
    }

    void work(std::function<void()> task) {
        const std::lock_guard lock(mutex_);
        workers_.emplace_back(std::move(task));
    }

    void stop() {
        if (server_) {
            server_->stopServer(true);
        }
    }

    RawClient connect() const { return RawClient(port_); }

    Story story_;
    const std::uint16_t port_ = freePort();
    /// Set before the server.
    std::function<void(OwnedRequest&)> onDone_;

private:
    std::mutex mutex_;
    std::vector<std::thread> workers_;
    std::unique_ptr<ql::http::HttpServer> server_;
};

// ---- The end ----

TEST_F(RequestOwning, EachRequestOfAKeptConnectionIsTold) {
    serve([](OwnedRequest& request) { request.reply("yes"); });
    RawClient client = connect();
    for (const char* const target : {"/1", "/2", "/3"}) {
        EXPECT_EQ(client.exchange(get(target)).body, "yes");
    }
    EXPECT_THAT(story_.wait(3), ElementsAre("/1 done ", "/2 done ", "/3 done "));
}

TEST_F(RequestOwning, NoLockIsHeldAtTheEnd) {
    Event isFree;
    onDone_ = [&](OwnedRequest& request) {
        work([&, held = request.self] {
            const qlMutexLocker out(held->out().getLock());
            const qlMutexLocker in(held->feed().getLock());
            isFree.set();
        });
        EXPECT_TRUE(isFree.wait());
    };
    serve([](OwnedRequest& request) { request.reply("yes"); });
    EXPECT_EQ(connect().exchange(get("/")).body, "yes");
    EXPECT_THAT(story_.wait(1), ElementsAre("/ done "));
}

TEST_F(RequestOwning, ClientThatLeavesIsTold) {
    Event isHandled;
    serve([&](OwnedRequest& /*request*/) { isHandled.set(); });
    RawClient client = connect();
    client.send(get("/"));
    EXPECT_TRUE(isHandled.wait());
    client.reset();
    EXPECT_THAT(story_.wait(1), ElementsAre(isLoss()));
}

TEST_F(RequestOwning, ExceptionOfTheHandlerIsAnEndAsWell) {
    serve([](OwnedRequest& /*request*/) { throw std::runtime_error("no answer"); });
    EXPECT_EQ(connect().exchange(get("/")).status, 500);
    EXPECT_THAT(story_.wait(1), ElementsAre("/ done "));
    EXPECT_EQ(connect().exchange(post("/", "body")).status, 500);
    EXPECT_THAT(story_.wait(2), ElementsAre("/ done ", "/ done "));
}

TEST_F(RequestOwning, StopIsTold) {
    Event isWaiting;
    Event isSending;
    serve([&](OwnedRequest& request) {
        request.acceptBody();
        (request.getAnnouncedBodyBytes() == 0U ? isWaiting : isSending).set();
    });
    RawClient waiting = connect();
    waiting.send(get("/"));
    RawClient sending = connect();
    sending.send(head("POST", "/", "Content-Length: 10\r\n"));
    EXPECT_TRUE(isWaiting.wait());
    EXPECT_TRUE(isSending.wait());
    stop();
    EXPECT_THAT(story_.wait(2), ElementsAre("/ done DaemonShutdown", "/ done DaemonShutdown"));
}

TEST_F(RequestOwning, AnswerDeadlineIsTold) {
    serve([](OwnedRequest& /*request*/) {}, {}, [](Options& options) { options.setAnswerTimeoutMs(DeadlineMs); });
    RawClient client = connect();
    client.send(get("/"));
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_THAT(story_.wait(1), ElementsAre("/ done AnswerTimeout"));
}

TEST_F(RequestOwning, BodyDeadlineIsTold) {
    serveEchoes([](Options& options) { options.setBodyProgress(1000, DeadlineMs); });
    RawClient client = connect();
    client.send(head("POST", "/", "Content-Length: 1000\r\n") + "x");
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_THAT(story_.wait(1), ElementsAre("/ done BodyTimeout"));
}

TEST_F(RequestOwning, WriteDeadlineIsTold) {
    serve([](OwnedRequest& request) { request.reply(std::string(LargeBytes, 'x')); }, {},
          [](Options& options) { options.setWriteTimeoutMs(DeadlineMs); });
    RawClient client(port_, "127.0.0.1", 4096);
    client.send(get("/"));
    EXPECT_THAT(story_.wait(1), ElementsAre("/ done WriteTimeout"));
}

// ---- The body ----

/// A body of this size, announced in each way that there is.
std::vector<std::string> bodiesOf(const std::string& body) {
    char size[20];
    std::snprintf(size, sizeof size, "%zx\r\n", body.size());
    const std::string length = "Content-Length: " + std::to_string(body.size()) + "\r\n";
    const std::string chunked = "Transfer-Encoding: chunked\r\n";
    const std::string expect = "Expect: 100-continue\r\n";
    const std::string chunks = (body.empty() ? "" : size + body + "\r\n") + "0\r\n\r\n";
    return {head("POST", "/", length) + body,
            head("POST", "/", length + expect) + body,
            head("POST", "/", length + expect + "Expect: nothing\r\n") + body,
            head("POST", "/", length + "Expect: nothing\r\n" + expect) + body,
            head("POST", "/", chunked) + chunks,
            head("POST", "/", chunked + expect) + chunks};
}

TEST_F(RequestOwning, EachBodyThatIsAskedForIsToldOnceAndWhole) {
    serveEchoes();
    std::size_t told = 0;
    for (const std::size_t size : {std::size_t{1}, WindowBytes - 1, WindowBytes, WindowBytes + 1, 3 * WindowBytes}) {
        std::string body(size, '\0');
        for (std::size_t i = 0; i < size; ++i) {
            body[i] = static_cast<char>('a' + i % 23);
        }
        for (const std::string& request : bodiesOf(body)) {
            RawClient client = connect();
            client.send(request);
            RawResponse response = client.readHead();
            if (response.status == 100) {
                response = client.readHead();
            }
            client.readBody(response);
            ASSERT_EQ(response.status, 200);
            EXPECT_TRUE(response.body == body) << size;
            told += 2;
            const std::vector<std::string> story = story_.wait(told);
            ASSERT_EQ(story.size(), told);
            EXPECT_THAT(story[told - 2], AnyOf("/ whole", "/ full"));
            EXPECT_EQ(story[told - 1], "/ done ");
            if (size < WindowBytes) {
                EXPECT_EQ(story[told - 2], "/ whole");
            }
        }
    }
}

TEST_F(RequestOwning, EmptyChunkedBodyIsToldAndNoBodyIsNot) {
    serve(
        [](OwnedRequest& request) {
            request.acceptBody();
            if (request.getAnnouncedBodyBytes() == 0U) {
                request.reply("nothing");
            }
        },
        [](OwnedRequest& request, bool /*isWhole*/) { request.reply("told"); });
    EXPECT_EQ(connect().exchange(bodiesOf("")[4]).body, "told");
    EXPECT_EQ(connect().exchange(get("/")).body, "nothing");
    EXPECT_EQ(connect().exchange(post("/", "")).body, "nothing");
    EXPECT_THAT(story_.wait(4), ElementsAre("/ whole", "/ done ", "/ done ", "/ done "));
}

TEST_F(RequestOwning, HeadAnnouncesTheBody) {
    serve([](OwnedRequest& request) {
        const auto announced = request.getAnnouncedBodyBytes();
        request.reply(announced ? std::to_string(*announced) : "none");
    });
    EXPECT_EQ(connect().exchange(get("/")).body, "0");
    EXPECT_EQ(connect().exchange(post("/", "12345")).body, "5");
    EXPECT_EQ(connect().exchange(bodiesOf("12345")[4]).body, "none");
}

TEST_F(RequestOwning, BodyThatNobodyReadsIsToldAsFarAsItIsKept) {
    Event isFull;
    serve([](OwnedRequest& request) { request.acceptBody(); },
          [&](OwnedRequest& /*request*/, bool isWhole) {
              EXPECT_FALSE(isWhole);
              isFull.set();
          });
    RawClient client = connect();
    client.send(head("POST", "/", "Content-Length: 4000000\r\n") + std::string(2 * WindowBytes, 'x'));
    EXPECT_TRUE(isFull.wait());
    client.reset();
    EXPECT_THAT(story_.wait(2), ElementsAre("/ full", isLoss()));
}

TEST_F(RequestOwning, BodyThatBreaksOffIsNotTold) {
    Story handled;
    serve([&](OwnedRequest& request) {
        request.acceptBody();
        handled.add("handled");
    });
    std::size_t count = 0;
    for (const char* const headers : {"Content-Length: 100\r\n", "Transfer-Encoding: chunked\r\n"}) {
        RawClient client = connect();
        client.send(head("POST", "/", headers) + "5\r\nhello\r\n");
        handled.wait(++count);
        client.reset();
        EXPECT_THAT(story_.wait(count), testing::Each(isLoss()));
    }
}

TEST_F(RequestOwning, BodyThatIsAnsweredBeforeIsNotTold) {
    serve([](OwnedRequest& request) { request.reply("no"); });
    RawClient client = connect();
    EXPECT_EQ(client.exchange(post("/", "within the window")).body, "no");
    client.send(head("POST", "/", "Content-Length: 4000000\r\n"));
    EXPECT_EQ(client.readResponse().body, "no");
    EXPECT_THAT(story_.wait(2), ElementsAre("/ done ", "/ done "));
}

TEST_F(RequestOwning, BodyMayBeAskedForLater) {
    serve([this](OwnedRequest& request) { work([held = request.self] { held->acceptBody(); }); },
          [](OwnedRequest& request, bool /*isWhole*/) { request.reply(request.readBody()); });
    const std::string request = bodiesOf("hello")[4];
    EXPECT_EQ(connect().exchange(request).body, "hello");
}

// ---- Its form ----

/// Only counts.
class CountingReceiver : public ql::http::FormReceiver {
public:
    void onPart(std::string_view /*name*/, std::string_view /*fileName*/, std::string_view /*contentType*/,
                bool /*isFile*/) override {
        ++parts;
    }
    void onBytes(std::string_view /*bytes*/) override {}

    int parts = 0;
};

TEST_F(RequestOwning, FormIsNotDecodedAnyMoreOnceTheEndIsTold) {
    const std::string body = "--b9\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n12\r\n--b9--";
    std::mutex mutex;
    std::map<const OwnedRequest*, std::shared_ptr<ql::http::FormDecoder>> forms;
    onDone_ = [&](OwnedRequest& request) {
        const std::lock_guard lock(mutex);
        CountingReceiver nobody;
        EXPECT_FALSE(forms[&request]->decode("more", nobody));
        EXPECT_FALSE(forms[&request]->finish(nobody));
        EXPECT_EQ(nobody.parts, 0);
        forms.erase(&request);
    };
    serve([&](OwnedRequest& request) {
        const std::shared_ptr<ql::http::FormDecoder> form = ql::http::FormDecoder::Create(request);
        ASSERT_NE(form, nullptr);
        {
            const std::lock_guard lock(mutex);
            forms[&request] = form;
        }
        work([held = request.self, form] {
            CountingReceiver receiver;
            char byte = 0;
            while (held->feed().readSome(&byte, 1) != 0 && form->decode({&byte, 1}, receiver)) {
            }
            EXPECT_LE(receiver.parts, 1);
        });
    });
    for (std::size_t size = 0; size < body.size(); ++size) {
        RawClient client = connect();
        client.send(head("POST", "/",
                         "Content-Type: multipart/form-data; boundary=b9\r\nContent-Length: " +
                             std::to_string(body.size()) + "\r\n") +
                    body.substr(0, size));
        EXPECT_TRUE(waitUntil([&] {
            const std::lock_guard lock(mutex);
            return !forms.empty();
        }));
        client.reset();
        story_.wait(size + 1);
    }
}

// One thread reads, another one registers and answers: nothing of either is the other's.
TEST_F(RequestOwning, BodyTricklesInWhileAnotherThreadAnswers) {
    constexpr int Count = 50;
    Event isRead;
    serve([&](OwnedRequest& request) {
        work([&, held = request.self] {
            EXPECT_EQ(held->readBody(), std::string(Count, 'x'));
            isRead.set();
        });
        work([&, held = request.self] {
            held->workerThreadStartHandling(qlThread::CurrentThreadId());
            held->out().releaseResponse();
            for (int i = 0; i < Count; ++i) {
                EXPECT_EQ(held->out().writeBytes("y", 1), 1U);
                held->workerThreadStopHandling(qlThread::CurrentThreadId());
                held->workerThreadStartHandling(qlThread::CurrentThreadId());
            }
            EXPECT_TRUE(isRead.wait());
            held->out().endSending();
        });
    });
    RawClient client = connect();
    client.send(head("POST", "/", "Content-Length: " + std::to_string(Count) + "\r\n"));
    for (int i = 0; i < Count; ++i) {
        client.send("x");
        std::this_thread::yield();
    }
    EXPECT_EQ(client.readResponse().body, std::string(Count, 'y'));
}

} // namespace
} // namespace vireotest
