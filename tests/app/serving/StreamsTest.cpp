#include "support/Event.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <stdexcept>
#include <string>

namespace vireo {
namespace {

using vireotest::Event;
using vireotest::get;
using vireotest::RawClient;
using vireotest::RawResponse;
using vireotest::TestLog;
using vireotest::waitUntil;

const RunOptions Quietly{.port = 0, .patience = std::chrono::milliseconds(0), .quiet = true};

TEST(Streams, ReachTheClientAsTheyAreWritten) {
    Event seen;
    App app;
    app.get("/", [&seen](Request&, Response& response) {
        response.type("text/csv").beforeSend([](Response& sent) {
            sent.header("X-Hook", "1");
            EXPECT_THROW(sent.redirect("/there"), std::logic_error);
        });
        response.stream([&seen](Output& out) {
            out << "first,";
            out.flush();
            EXPECT_TRUE(seen.wait());
            out << "last";
        });
        EXPECT_TRUE(response.isSent());
        EXPECT_TRUE(response.isSet());
        EXPECT_THROW(response.header("X-Late", "1"), std::logic_error);
        EXPECT_THROW(response.text("late"), std::logic_error);
        EXPECT_THROW(response.later(), std::logic_error);
    });
    app.start(Quietly);
    RawClient client(app.port());
    client.send(get("/"));
    RawResponse response = client.readHead();
    EXPECT_EQ(response.value("Content-Type"), "text/csv");
    EXPECT_EQ(response.value("X-Hook"), "1");
    EXPECT_EQ(response.value("Location"), "");
    EXPECT_EQ(response.value("X-Late"), "");
    EXPECT_EQ(client.readUntil("first,\r\n"), "6\r\nfirst,\r\n");
    seen.set();
    EXPECT_EQ(client.readUntil("0\r\n\r\n"), "4\r\nlast\r\n0\r\n\r\n");
}

TEST(Streams, TakeNumbersAndChars) {
    App app;
    app.get("/", [](Request&, Response& response) {
        response.stream([](Output& out) {
            out << "a" << 'b' << std::string("c") << 5 << -7L << std::uint64_t{18446744073709551615U}
                << std::uint8_t{65} << '\n';
        });
    });
    TestClient client(app);
    EXPECT_EQ(client.get("/").body(), "abc5-71844674407370955161565\n");
}

TEST(Streams, OfAKnownLengthSayIt) {
    App app;
    const std::string large(1000000, 'x');
    app.get("/", [&large](Request&, Response& response) {
        response.stream(large.size(), [&large](Output& out) { out << large; });
    });
    TestClient client(app);
    const TestResponse response = client.get("/");
    EXPECT_EQ(response.header("Content-Length"), "1000000");
    EXPECT_EQ(response.body(), large);
}

TEST(Streams, ThatAreNotWholeBreakTheConnection) {
    const TestLog log;
    App app;
    app.get("/throws", [](Request&, Response& response) {
        response.stream([](Output& out) {
            out << "half";
            out.flush();
            throw std::runtime_error("no more");
        });
    });
    app.get("/short", [](Request&, Response& response) { response.stream(10, [](Output& out) { out << "half"; }); });
    app.get("/long", [](Request&, Response& response) { response.stream(2, [](Output& out) { out << "half"; }); });
    app.start(Quietly);
    for (const char* target : {"/throws", "/short", "/long"}) {
        RawClient client(app.port());
        // Where it breaks before its head has gone, there is a 500 instead.
        client.send(get(target, "Connection: close\r\n"));
        const std::string all = client.readToEnd();
        EXPECT_EQ(all.find("\r\n0\r\n\r\n"), std::string::npos) << target << " looks whole";
    }
    app.stop();
    EXPECT_EQ(log.texts(qlLogType::Failure, "no more").size(), 1U);
    EXPECT_EQ(log.texts(qlLogType::Failure, "before its length").size(), 1U);
    EXPECT_EQ(log.texts(qlLogType::Failure, "more than the 2 bytes").size(), 1U);
}

TEST(Streams, OfAClientThatHasGoneThrowClientGoneAndLogNothing) {
    const TestLog log;
    Event gone;
    App app;
    app.get("/", [&gone](Request& request, Response& response) {
        try {
            response.stream([&](Output& out) {
                const std::string piece(65536, 'x');
                while (true) {
                    out << piece;
                }
            });
        } catch (const ClientGone&) {
            EXPECT_TRUE(waitUntil([&] { return request.isGone(); }));
            gone.set();
            throw;
        }
    });
    app.start(Quietly);
    {
        RawClient client(app.port());
        client.send(get("/"));
        client.skip(100000);
        client.reset();
    }
    EXPECT_TRUE(gone.wait());
    app.stop();
    EXPECT_TRUE(log.texts(qlLogType::Failure).empty());
}

TEST(Streams, AreNotForThreadsThatMustNotWait) {
    const TestLog log;
    App app;
    app.get("/quick", [](Request&, Response& response) { response.stream([](Output&) {}); }).quick();
    app.get("/later", [](Request&, Response& response) {
        response.later().answer([](Response& late) {
            EXPECT_THROW(late.stream([](Output&) {}), std::logic_error);
            EXPECT_THROW(late.later(), std::logic_error);
            late.text("late");
        });
    });
    TestClient client(app);
    EXPECT_EQ(client.get("/quick").status(), 500);
    EXPECT_EQ(client.get("/later").body(), "late");
    EXPECT_EQ(log.texts(qlLogType::Failure, "quick handler").size(), 1U);
}

TEST(Streams, AreNotForAnswersWithoutABody) {
    const TestLog log;
    App app;
    app.get("/{status:int}", [](Request& request, Response& response) {
        response.status(request.path<int>("status")).stream([](Output& out) { out << "body"; });
    });
    TestClient client(app);
    for (const int status : {204, 205, 304}) {
        EXPECT_EQ(client.get("/" + std::to_string(status)).status(), 500);
        EXPECT_EQ(log.texts(qlLogType::Failure, std::to_string(status) + " has no body").size(), 1U);
    }
    EXPECT_EQ(client.get("/404").status(), 404);
}

TEST(Streams, ThatStandStillHoldNoWorker) {
    std::atomic<int> waiting{0};
    App app;
    app.get("/written", [&waiting](Request&, Response& response) {
        const std::string piece(65536, 'x');
        response.stream([&](Output& out) {
            for (int i = 0; i < 200; ++i) {
                waiting += i == 0 ? 1 : 0;
                out << piece;
            }
        });
    });
    app.get("/flushed", [&waiting](Request&, Response& response) {
        const std::string line(1000, 'x');
        response.stream([&](Output& out) {
            for (int i = 0; i < 20000; ++i) {
                waiting += i == 0 ? 1 : 0;
                out << line;
                out.flush();
            }
        });
    });
    app.get("/", [](Request&, Response& response) { response.text("served"); });
    for (const char* target : {"/written", "/flushed"}) {
        waiting = 0;
        app.start({.port = 0, .workers = 2, .patience = std::chrono::milliseconds(0), .quiet = true});
        std::list<RawClient> clients;
        for (int i = 0; i < 16; ++i) {
            clients.emplace_back(app.port(), "127.0.0.1", 4096).send(get(target));
        }
        EXPECT_TRUE(waitUntil([&] { return waiting == 16; })) << target;
        RawClient client(app.port());
        EXPECT_EQ(client.exchange(get("/")).body, "served") << target;
        app.stop();
    }
}

} // namespace
} // namespace vireo
