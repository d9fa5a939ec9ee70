#include "integration/ServerTest.h"
#include "support/Pattern.h"

#include <cstdint>
#include <memory>
#include <string>

// Answers whose body is bytes of the application's, sent from where they lie.

namespace vireotest {
namespace {

using testing::Contains;
using testing::HasSubstr;

/// Beyond what sockets hold.
constexpr std::uint64_t LargeBytes = 20000000;

class BufferAnswer : public ServerTest {
protected:
    explicit BufferAnswer(std::uint64_t size = 100000) : owner_(std::make_shared<const std::string>(pattern(size))) {}

    /// Gives the bytes away, so that nobody else keeps them.
    void release(TestRequest& request) {
        const char* const data = owner_->data();
        const std::size_t size = owner_->size();
        request.out().releaseBuffer(data, size, std::move(owner_));
    }

    void expectGone() const {
        EXPECT_TRUE(waitUntil([this] { return watched_.expired(); }));
    }

    std::shared_ptr<const std::string> owner_;
    const std::weak_ptr<const std::string> watched_ = owner_;
};

class LargeBufferAnswer : public BufferAnswer {
protected:
    LargeBufferAnswer() : BufferAnswer(LargeBytes) {}
};

TEST_F(BufferAnswer, BodyIsWhatWasGiven) {
    const std::string content = *owner_;
    TestServer server([&](TestRequest& request) { request.out().releaseBuffer(content.data(), content.size()); });
    RawClient client = server.connect();
    for (int i = 0; i < 3; ++i) {
        const RawResponse response = client.exchange(get("/"));
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.value("Content-Length"), std::to_string(content.size()));
        EXPECT_TRUE(response.body == content);
    }
    EXPECT_EQ(server.application().finished().front().bodySent, content.size());
}

TEST_F(BufferAnswer, HeadTellsTheLengthAlone) {
    const std::string content = *owner_;
    TestServer server([&](TestRequest& request) { request.out().releaseBuffer(content.data(), content.size()); });
    RawClient client = server.connect();
    client.send(head("HEAD", "/"));
    EXPECT_EQ(client.readHead().value("Content-Length"), std::to_string(content.size()));
    EXPECT_TRUE(client.exchange(get("/")).body == content);
}

TEST_F(BufferAnswer, StrictAnswersWithoutABodyLeaveItOut) {
    ql::http::ServerOptions options = optionsOfTests();
    options.setStrictHttp(true);
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) {
        request.response.headers["content-length"] = {"Content-Length", "5"};
        request.response.statusCode = request.getOriginalRequestUrl() == "/304" ? 304 : 200;
        request.out().releaseBuffer("whole", 5);
    };
    TestServer server(std::move(behaviour), TestServer::parametersOfTests(), options);
    RawClient client = server.connect();
    for (const std::string& request : {head("HEAD", "/"), get("/304")}) {
        client.send(request);
        EXPECT_EQ(client.readHead().value("Content-Length"), "5");
        EXPECT_EQ(client.exchange(get("/")).body, "whole");
    }
}

TEST_F(BufferAnswer, BodyMayBeEmpty) {
    TestServer server([](TestRequest& request) { request.out().releaseBuffer(nullptr, 0); });
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/")).value("Content-Length"), "0");
    EXPECT_EQ(client.exchange(get("/")).status, 200);
}

TEST_F(BufferAnswer, OwnerGoesWithTheExchangeThoughTheRequestLivesOn) {
    Event mayEnd;
    TestServer server([&](TestRequest& request) {
        release(request);
        EXPECT_TRUE(mayEnd.wait());
    });
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/")).body.size(), 100000U);
    expectGone();
    mayEnd.set();
}

TEST_F(LargeBufferAnswer, OwnerGoesWhenTheClientLeavesInTheMiddle) {
    TestServer server([this](TestRequest& request) { release(request); });
    RawClient client(server.port(), "127.0.0.1", 4096);
    client.send(get("/"));
    client.read(1000);
    EXPECT_FALSE(watched_.expired());
    client.reset();
    expectGone();
}

TEST_F(LargeBufferAnswer, OwnerGoesWhenTheServerStopsInTheMiddle) {
    TestServer server([this](TestRequest& request) { release(request); });
    RawClient client(server.port(), "127.0.0.1", 4096);
    client.send(get("/"));
    client.read(1000);
    server.stop();
    expectGone();
}

TEST_F(BufferAnswer, BufferBesideAnotherBodyIsRefusedAndNamed) {
    TestServer server([this](TestRequest& request) {
        request.write("a body");
        release(request);
        EXPECT_TRUE(watched_.expired());
    });
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/")).status, 500);
    EXPECT_EQ(server.application().finished().front().deviceError, "a buffer beside another body");
    EXPECT_THAT(log_.texts(qlLogType::Failure),
                Contains(HasSubstr("releaseBuffer() is refused: the response has a body already")));
}

TEST_F(BufferAnswer, BufferOfAClientThatHasGoneIsNotKept) {
    answerAfterTheClient([this](TestRequest& request) {
        release(request);
        EXPECT_TRUE(watched_.expired());
    });
    EXPECT_TRUE(log_.texts(qlLogType::Failure, "is refused").empty());
}

TEST_F(BufferAnswer, WriteAfterItIsRefused) {
    TestServer server([](TestRequest& request) {
        request.out().releaseBuffer("whole", 5);
        EXPECT_FALSE(request.write("more"));
        EXPECT_TRUE(waitUntil([&] { return request.out().atEnd(); }));
    });
    EXPECT_EQ(server.connect().exchange(get("/")).body, "whole");
}

} // namespace
} // namespace vireotest
