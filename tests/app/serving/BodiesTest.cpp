#include "support/Event.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/ServerOptions.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <list>
#include <string>

namespace vireo {
namespace {

using vireotest::Event;
using vireotest::get;
using vireotest::head;
using vireotest::RawClient;
using vireotest::RawResponse;
using vireotest::TestLog;
using vireotest::waitUntil;

RunOptions quietly(unsigned int workers, std::size_t queue = 1024) {
    return {.port = 0, .workers = workers, .queue = queue, .patience = std::chrono::milliseconds(0), .quiet = true};
}

std::string chunk(std::size_t size) {
    char line[20];
    std::snprintf(line, sizeof line, "%zx\r\n", size);
    return line + std::string(size, 'x') + "\r\n";
}

TEST(Bodies, AreLimitedByTheByte) {
    App app;
    const auto handler = [](Request& request, Response& response) {
        response.text(std::to_string(request.body().text().size()));
    };
    app.post("/ten", handler).maxBody(10);
    app.post("/quick", handler).maxBody(10).quick();
    app.post("/none", handler).maxBody(0);
    app.group("/group").maxBody(20).post("/", handler);
    TestClient client(app);
    const auto statusOf = [&client](const char* target, std::size_t size, bool isChunked) {
        TestRequest request("POST", target);
        request.body(std::string(size, 'x'));
        if (isChunked) {
            request.chunked(3);
        }
        return client.send(request).status();
    };
    for (const bool isChunked : {false, true}) {
        for (const char* target : {"/ten", "/quick"}) {
            EXPECT_EQ(statusOf(target, 10, isChunked), 200) << target << isChunked;
            EXPECT_EQ(statusOf(target, 11, isChunked), 413) << target << isChunked;
        }
        EXPECT_EQ(statusOf("/group/", 20, isChunked), 200) << isChunked;
        EXPECT_EQ(statusOf("/group/", 21, isChunked), 413) << isChunked;
        EXPECT_EQ(statusOf("/none", 1, isChunked), 413) << isChunked;
    }
    EXPECT_EQ(client.post("/none").status(), 200);
}

TEST(Bodies, BeyondTheWindowAreNotForQuickRoutes) {
    App app;
    app.post("/",
             [](Request& request, Response& response) { response.text(std::to_string(request.body().text().size())); })
        .quick();
    app.start(quietly(2));
    RawClient client(app.port());
    client.send(head("POST", "/", "Transfer-Encoding: chunked\r\n"));
    // The engine answers behind it; nothing of it is kept.
    client.trySend(chunk(1048576) + chunk(300000) + "0\r\n\r\n");
    EXPECT_EQ(client.readHead().status, 413);
}

TEST(Bodies, TooLongForQuickRoutesHoldNoDaemonThreadWhoeverReadsThem) {
    Event reads;
    App app;
    app.use([&reads](Request& request, Response&, Next& next) {
        reads.set();
        request.body().text();
        next();
    });
    app.post("/", [](Request&, Response& response) { response.text("short"); }).quick();
    app.get("/other", [](Request&, Response& response) { response.text("other"); });
    RunOptions options = quietly(2);
    options.threads = 1;
    app.start(options);
    RawClient standing(app.port());
    standing.send(head("POST", "/", "Content-Length: 2000000\r\n"));
    EXPECT_TRUE(reads.wait());
    EXPECT_EQ(RawClient(app.port()).exchange(get("/other")).body, "other");
    standing.reset();
}

TEST(Bodies, OfQuickRoutesFitIntoTheWindowThatThereIs) {
    App app;
    app.post("/",
             [](Request& request, Response& response) { response.text(std::to_string(request.body().text().size())); })
        .quick();
    TestClient client(app, {.server = [](ql::http::ServerOptions& options) { options.setUploadWindowBytes(65536); }});
    EXPECT_EQ(client.post("/", std::string(65536, 'x')).body(), "65536");
    const TestResponse refused = client.post("/", std::string(65537, 'x'));
    EXPECT_EQ(refused.status(), 413);
    EXPECT_EQ(refused.body(), "the body is larger than 65536 bytes\n");
}

TEST(Bodies, ThatNobodyAskedForAreDropped) {
    App app;
    app.post("/", [](Request&, Response& response) { response.text("no, thanks"); });
    TestClient client(app);
    EXPECT_EQ(client.post("/", std::string(3000000, 'x')).body(), "no, thanks");
    EXPECT_EQ(client.post("/", std::string(3000, 'x')).body(), "no, thanks");
}

TEST(Bodies, ThatStandStillHoldNoWorker) {
    std::atomic<int> reading{0};
    App app;
    app.post("/",
             [&reading](Request& request, Response& response) {
                 ++reading;
                 while (request.body().read()) {
                 }
                 response.text("whole");
             })
        .maxBody(10000000);
    app.get("/", [](Request&, Response& response) { response.text("served"); });
    app.start(quietly(8));
    std::list<RawClient> clients;
    for (int i = 0; i < 64; ++i) {
        RawClient& client = clients.emplace_back(app.port());
        client.send(head("POST", "/", "Content-Length: 2000000\r\n") + std::string(1100000, 'x'));
    }
    EXPECT_TRUE(waitUntil([&] { return reading == 64; }));
    RawClient client(app.port());
    EXPECT_EQ(client.exchange(get("/")).body, "served");
}

TEST(Bodies, BelowTheWindowAreWaitedForByNobody) {
    std::atomic<int> handled{0};
    App app;
    app.post("/", [&handled](Request& request, Response& response) {
        ++handled;
        response.text(request.body().text());
    });
    app.get("/", [](Request&, Response& response) { response.text("served"); });
    app.start(quietly(1));
    std::list<RawClient> clients;
    for (int i = 0; i < 64; ++i) {
        RawClient& client = clients.emplace_back(app.port());
        client.send(head("POST", "/", "Transfer-Encoding: chunked\r\n") + chunk(5));
    }
    RawClient client(app.port());
    EXPECT_EQ(client.exchange(get("/")).body, "served");
    EXPECT_EQ(handled, 0);
    for (RawClient& each : clients) {
        each.send("0\r\n\r\n");
        EXPECT_EQ(each.readResponse().body, "xxxxx");
    }
}

TEST(Bodies, ThatAreWaitedForWith100ContinueCome) {
    App app;
    app.post("/", [](Request& request, Response& response) { response.text(request.body().text()); });
    app.post("/refused", [](Request&, Response& response) { response.text("never"); }).maxBody(1);
    app.start(quietly(1));
    RawClient client(app.port());
    client.send(head("POST", "/", "Content-Length: 5\r\nExpect: 100-continue\r\n"));
    EXPECT_EQ(client.readHead().status, 100);
    client.send("12345");
    EXPECT_EQ(client.readResponse().body, "12345");
    RawClient refused(app.port());
    EXPECT_EQ(refused.exchange(head("POST", "/refused", "Content-Length: 5\r\nExpect: 100-continue\r\n")).status, 413);
}

TEST(Bodies, OfClientsThatLeaveThrowClientGone) {
    const TestLog log;
    Event reading;
    Event gone;
    App app;
    app.post("/",
             [&](Request& request, Response&) {
                 try {
                     while (request.body().read()) {
                         reading.set();
                     }
                     ADD_FAILURE() << "it looks whole";
                 } catch (const ClientGone&) {
                     gone.set();
                     throw;
                 }
             })
        .maxBody(10000000);
    app.start(quietly(1));
    {
        RawClient client(app.port());
        client.send(head("POST", "/", "Content-Length: 2000000\r\n") + std::string(1500000, 'x'));
        EXPECT_TRUE(reading.wait());
        client.reset();
    }
    EXPECT_TRUE(gone.wait());
    app.stop();
    EXPECT_TRUE(log.texts(qlLogType::Failure).empty());
}

TEST(Bodies, MayBeReadWhereNoRouteIs) {
    std::atomic<std::size_t> read{0};
    App app;
    app.notFound([&read](Request& request, Response& response) {
        read = 0;
        while (const auto piece = request.body().read()) {
            read += piece->size();
        }
        response.text("nothing here");
    });
    app.start(quietly(2));
    for (const std::size_t size : {5U, 2000000U}) {
        RawClient client(app.port());
        client.send(head("POST", "/nothing", "Transfer-Encoding: chunked\r\n"));
        client.send(chunk(size) + "0\r\n\r\n");
        EXPECT_EQ(client.readResponse().status, 404);
        EXPECT_EQ(read, size);
    }
}

TEST(Queue, ThatIsFullAnswers503AndTheOthersAreServed) {
    const TestLog log;
    Event open;
    std::atomic<int> inside{0};
    App app;
    app.get("/", [&](Request&, Response& response) {
        ++inside;
        EXPECT_TRUE(open.wait());
        response.text("served");
    });
    app.get("/quick", [](Request&, Response& response) { response.text("quick"); }).quick();
    app.start(quietly(2, 0));
    std::list<RawClient> clients;
    for (int i = 0; i < 2; ++i) {
        clients.emplace_back(app.port()).send(get("/"));
    }
    EXPECT_TRUE(waitUntil([&] { return inside == 2; }));
    RawClient client(app.port());
    const RawResponse refused = client.exchange(get("/"));
    EXPECT_EQ(refused.status, 503);
    EXPECT_EQ(refused.value("Retry-After"), "1");
    EXPECT_EQ(client.exchange(get("/quick")).body, "quick");
    EXPECT_EQ(client.exchange(get("/")).status, 503);
    EXPECT_FALSE(log.texts(qlLogType::Failure, "queue is full").empty());
    open.set();
    EXPECT_EQ(clients.front().readResponse().body, "served");
}

} // namespace
} // namespace vireo
