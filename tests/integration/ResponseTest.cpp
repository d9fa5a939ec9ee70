#include "integration/ServerTest.h"

#include <algorithm>
#include <string>
#include <thread>

// What the application answers, as it goes over the wire.

namespace vireotest {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;
using testing::Pair;
using testing::SizeIs;

using Response = ServerTest;

std::string numbered(std::size_t size) {
    std::string bytes;
    while (bytes.size() < size) {
        bytes += std::to_string(bytes.size()) + ' ';
    }
    bytes.resize(size);
    return bytes;
}

TEST_F(Response, HeadersGoOutInTheOrderOfTheirKeys) {
    TestServer server([](TestRequest& request) {
        request.response.headers = {
            {"2", {"X-Second", "two"}}, {"1", {"x-first", "one"}}, {"3", {"X-Second", "three"}}};
        request.reply("body");
    });
    const RawResponse response = server.connect().exchange(get("/"));
    std::vector<std::pair<std::string, std::string>> own;
    std::copy_if(response.headers.begin(), response.headers.end(), std::back_inserter(own),
                 [](const auto& header) { return header.first.substr(1, 1) == "-"; });
    EXPECT_THAT(own, ElementsAre(Pair("x-first", "one"), Pair("X-Second", "two"), Pair("X-Second", "three")));
}

TEST_F(Response, EachCookieIsOneSetCookieHeader) {
    TestServer server([](TestRequest& request) {
        request.response.cookies = {{"a", "b"}, {"session", "x y; Path=/; HttpOnly"}};
        request.reply();
    });
    const RawResponse response = server.connect().exchange(get("/"));
    EXPECT_THAT(response.values("Set-cookie"), ElementsAre("a=b", "session=x y; Path=/; HttpOnly"));
}

TEST_F(Response, SentHeaderBytesAreEstimated) {
    TestServer server([](TestRequest& request) {
        request.response.headers = {{"h", {"X-Name", "value"}}};
        request.response.cookies = {{"a", "bc"}};
        request.reply();
    });
    EXPECT_EQ(server.connect().exchange(get("/")).status, 200);
    EXPECT_EQ(server.application().finished()[0].headerSentBytes, (6U + 5 + 3) + (1U + 2 + 15));
}

TEST_F(Response, HeaderThatWouldSplitTheResponseIsLeftOutAndLogged) {
    TestServer server([](TestRequest& request) {
        request.response.headers = {{"1", {"X-Evil", "a\r\nX-Injected: b"}}, {"2", {"X-Good", "c"}}};
        request.response.cookies = {{"evil", "a\r\nX-Injected: b"}, {"good", "c"}};
        request.reply("body");
    });
    const RawResponse response = server.connect().exchange(get("/"));
    EXPECT_FALSE(response.has("X-Evil"));
    EXPECT_FALSE(response.has("X-Injected"));
    EXPECT_EQ(response.value("X-Good"), "c");
    EXPECT_THAT(response.values("Set-cookie"), ElementsAre("good=c"));
    EXPECT_THAT(log_.texts(qlLogType::Engine, "Dropping response header"), SizeIs(2));
}

TEST_F(Response, HeaderWithoutAValueIsLeftOutAndLogged) {
    TestServer server([](TestRequest& request) {
        request.response.headers = {{"1", {"X-Empty", ""}}, {"2", {"X-Good", "c"}}};
        request.reply("body");
    });
    const RawResponse response = server.connect().exchange(get("/"));
    // libmicrohttpd takes no empty values.
    EXPECT_FALSE(response.has("X-Empty"));
    EXPECT_EQ(response.value("X-Good"), "c");
    EXPECT_THAT(log_.texts(qlLogType::Engine, "Dropping response header 'X-Empty'"), SizeIs(1));
}

TEST_F(Response, StatusIsTheApplications) {
    TestServer server([](TestRequest& request) {
        request.reply("body", static_cast<std::uint32_t>(std::stoul(request.getOriginalRequestUrl().substr(1))));
    });
    RawClient client = server.connect();
    for (const int status : {200, 201, 301, 400, 404, 418, 500, 503, 599}) {
        EXPECT_EQ(client.exchange(get("/" + std::to_string(status))).status, status);
    }
}

TEST_F(Response, NoContentHasNoBody) {
    TestServer server([](TestRequest& request) { request.reply("", 204); });
    RawClient client = server.connect();
    client.send(get("/") + get("/"));
    EXPECT_EQ(client.readHead().status, 204);
    EXPECT_EQ(client.readHead().status, 204);
}

TEST_F(Response, FinishedBodyGoesOutAsOneBuffer) {
    const std::string body = numbered(200000);
    TestServer server([&](TestRequest& request) { request.reply(body); });
    const RawResponse response = server.connect().exchange(get("/"));
    EXPECT_EQ(response.value("Content-Length"), "200000");
    EXPECT_FALSE(response.has("Transfer-Encoding"));
    EXPECT_EQ(response.body, body);
    EXPECT_EQ(server.application().finished()[0].state, ResponseState::Buffered);
}

TEST_F(Response, EmptyFinishedBodyGoesOutAsOneBuffer) {
    TestServer server([](TestRequest& request) { request.reply(); });
    const RawResponse response = server.connect().exchange(get("/"));
    EXPECT_EQ(response.value("Content-Length"), "0");
    EXPECT_EQ(server.application().finished()[0].state, ResponseState::Buffered);
}

TEST_F(Response, DeclaredLengthDoesNotCountForAFinishedBody) {
    TestServer server([](TestRequest& request) {
        request.response.contentLength = 1000;
        request.reply("five.");
    });
    const RawResponse response = server.connect().exchange(get("/"));
    EXPECT_EQ(response.value("Content-Length"), "5");
    EXPECT_EQ(response.body, "five.");
}

TEST_F(Response, UnfinishedBodyOfUnknownLengthIsChunked) {
    const std::string body = numbered(500000);
    TestServer server([&](TestRequest& request) {
        request.startStream();
        request.write(body);
        request.out().endSending();
    });
    RawClient client = server.connect();
    const RawResponse response = client.exchange(get("/"));
    EXPECT_EQ(response.value("Transfer-Encoding"), "chunked");
    EXPECT_FALSE(response.has("Content-Length"));
    EXPECT_EQ(response.body, body);
    // The engine fills a chunk as far as the connection's memory goes.
    EXPECT_THAT(response.chunks, AllOf(SizeIs(Ge(2U)), Each(Le(262144U))));
    EXPECT_EQ(client.exchange(get("/")).body, body);
    EXPECT_EQ(server.application().finished()[0].state, ResponseState::Streaming);
}

TEST_F(Response, UnfinishedBodyOfUnknownLengthEndsAnHttp10Connection) {
    TestServer server([](TestRequest& request) {
        request.startStream();
        request.write("old style");
        request.out().endSending();
    });
    const RawResponse response = server.connect().exchange("GET / HTTP/1.0\r\n\r\n");
    EXPECT_FALSE(response.has("Transfer-Encoding"));
    EXPECT_FALSE(response.has("Content-Length"));
    EXPECT_EQ(response.body, "old style");
    EXPECT_EQ(server.application().finished()[0].deviceError, "");
}

TEST_F(Response, FlushedPiecesArriveBeforeTheBodyIsFinished) {
    Event second;
    TestServer server([&](TestRequest& request) {
        request.startStream();
        request.write("first");
        request.out().flush();
        EXPECT_TRUE(second.wait());
        request.write("second");
        request.out().endSending();
    });
    RawClient client = server.connect();
    client.send(get("/"));
    RawResponse response = client.readHead();
    EXPECT_EQ(client.readUntil("first\r\n"), "5\r\nfirst\r\n");
    second.set();
    client.readBody(response);
    EXPECT_EQ(response.body, "second");
}

TEST_F(Response, DeclaredLengthGoesWithAStreamedBody) {
    const std::string body = numbered(300000);
    TestServer server([&](TestRequest& request) {
        request.response.contentLength = static_cast<std::int64_t>(body.size());
        request.startStream();
        request.write(body);
        request.out().endSending();
    });
    RawClient client = server.connect();
    const RawResponse response = client.exchange(get("/"));
    EXPECT_EQ(response.value("Content-Length"), "300000");
    EXPECT_EQ(response.body, body);
    EXPECT_EQ(client.exchange(get("/")).body, body);
}

TEST_F(Response, BodyShorterThanItsDeclaredLengthEndsTheConnection) {
    TestServer server([](TestRequest& request) {
        request.response.contentLength = 10;
        request.startStream();
        request.write("short");
        request.out().endSending();
    });
    RawClient client = server.connect();
    client.send(get("/"));
    EXPECT_EQ(client.readHead().value("Content-Length"), "10");
    EXPECT_EQ(client.readToEnd(), "short");
    // To the engine the application's end is as good as any.
    EXPECT_EQ(server.application().finished()[0].deviceError, "");
}

TEST_F(Response, BytesBeyondTheDeclaredLengthAreNotSent) {
    TestServer server([](TestRequest& request) {
        request.response.contentLength = 5;
        request.startStream();
        request.write("exactMORE");
        request.out().endSending();
    });
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/")).body, "exact");
    EXPECT_EQ(client.exchange(get("/")).body, "exact");
    EXPECT_EQ(server.application().finished()[0].deviceError, "");
}

TEST_F(Response, HeadOfAStreamIsAnsweredAtOnce) {
    Event answered;
    TestServer server([&](TestRequest& request) {
        request.response.contentLength = 1234567;
        request.startStream();
        EXPECT_TRUE(answered.wait());
    });
    RawClient client = server.connect();
    client.send(head("HEAD", "/"));
    EXPECT_EQ(client.readHead().value("Content-Length"), "1234567");
    EXPECT_TRUE(waitUntil([&] { return server.application().notifyCount() != 0; }));
    answered.set();
    EXPECT_EQ(server.application().finished()[0].deviceError, "");
}

TEST_F(Response, HeadOfAStreamOfUnknownLengthEndsItsConnection) {
    TestServer server([](TestRequest& request) {
        request.startStream();
        request.out().endSending();
    });
    for (const char* const keepAlive : {"", "Connection: keep-alive\r\n", "Connection: close\r\n"}) {
        RawClient client = server.connect();
        client.send(head("HEAD", "/", keepAlive));
        const RawResponse response = client.readHead();
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.value("Connection"), "close");
        EXPECT_FALSE(response.has("Content-Length"));
        client.trySend(get("/"));
        EXPECT_EQ(client.readToEnd(), "") << keepAlive;
    }
}

TEST_F(Response, HeadOfAStreamOfKnownLengthKeepsItsConnection) {
    TestServer server([](TestRequest& request) {
        request.response.contentLength = 5;
        request.startStream();
        request.write("five.");
        request.out().endSending();
    });
    RawClient client = server.connect();
    client.send(head("HEAD", "/"));
    EXPECT_EQ(client.readHead().value("Content-Length"), "5");
    EXPECT_EQ(client.exchange(get("/")).body, "five.");
}

TEST_F(Response, GetOfAStreamOfUnknownLengthKeepsItsConnection) {
    TestServer server([](TestRequest& request) {
        request.startStream();
        request.write("chunk");
        request.out().endSending();
    });
    RawClient client = server.connect();
    for (int i = 0; i < 2; ++i) {
        const RawResponse response = client.exchange(get("/"));
        EXPECT_EQ(response.body, "chunk");
        EXPECT_FALSE(response.has("Connection"));
    }
}

TEST_F(Response, LateResponseIsWaitedFor) {
    Event release;
    TestServer server([&](TestRequest& request) {
        EXPECT_TRUE(release.wait());
        request.reply("late");
    });
    RawClient client = server.connect();
    client.send(get("/"));
    server.application().seen();
    // Longer than the time for which the engine's thread polls without sleeping.
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    release.set();
    EXPECT_EQ(client.readResponse().body, "late");
}

TEST_F(Response, UploadIsReadBeforeAnEarlyResponseIsSent) {
    Event released;
    TestServer server([&](TestRequest& request) {
        char first[5];
        EXPECT_EQ(request.feed().readBytes(first, sizeof first), sizeof first);
        request.reply("enough");
        released.set();
    });
    RawClient client = server.connect();
    const std::string body = numbered(2000000);
    const std::string request = post("/", body);
    client.send(request.substr(0, 1000));
    ASSERT_TRUE(released.wait());
    client.send(request.substr(1000));
    EXPECT_EQ(client.readResponse().body, "enough");
    EXPECT_EQ(server.application().finished()[0].bodyReceived, 5U);
    // The connection is still in step.
    client.send(post("/", "again"));
    EXPECT_EQ(client.readResponse().body, "enough");
}

TEST_F(Response, RestOfTheUploadIsDroppedOnceTheResponseIsEnded) {
    Event released;
    Event sent;
    std::uint64_t rest = 0;
    TestServer server([&](TestRequest& request) {
        request.reply("no thanks");
        released.set();
        EXPECT_TRUE(sent.wait());
        rest = request.readBody().size();
    });
    RawClient client = server.connect();
    client.send(head("POST", "/", "Content-Length: 100000\r\n"));
    ASSERT_TRUE(released.wait());
    client.send(std::string(100000, 'x'));
    EXPECT_EQ(client.readResponse().body, "no thanks");
    sent.set();
    server.application().finished();
    EXPECT_EQ(rest, 0U);
}

TEST_F(Response, DeviceErrorBeforeTheQueueIsAnInternalError) {
    TestServer server([](TestRequest& request) {
        request.write("never sent");
        request.out().readBytes(nullptr, 0);
        request.reply();
    });
    RawClient client = server.connect();
    const RawResponse response = client.exchange(get("/"));
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, "internal error text");
    EXPECT_EQ(client.exchange(get("/")).status, 500);
}

TEST_F(Response, InternalErrorTextIsEmptyUnlessSet) {
    Behaviour behaviour;
    behaviour.internalError = {};
    behaviour.handler = [](TestRequest& request) {
        request.out().readBytes(nullptr, 0);
        request.reply();
    };
    TestServer server(std::move(behaviour));
    const RawResponse response = server.connect().exchange(get("/"));
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.value("Content-Length"), "0");
}

TEST_F(Response, DeviceErrorDuringAStreamEndsTheConnection) {
    Event fail;
    TestServer server([&](TestRequest& request) {
        request.startStream();
        request.write("first");
        request.out().flush();
        EXPECT_TRUE(fail.wait());
        request.out().readBytes(nullptr, 0);
    });
    RawClient client = server.connect();
    client.send(get("/"));
    client.readUntil("first\r\n");
    fail.set();
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(server.application().finished()[0].deviceError, "lost connection : WriteError");
}

} // namespace
} // namespace vireotest
