#include "vireo/app.h"
#include "support/Event.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/Vireo.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace vireo {
namespace {

using std::chrono::milliseconds;
using vireotest::Event;
using vireotest::TestLog;
using vireotest::waitUntil;

const RunOptions Quietly{.port = 0, .quiet = true};

int statusOf(const std::string& url, const std::string& target) {
    return TestClient(url).get(target).status();
}

TEST(App, AnswersTheTenLines) {
    App app;
    app.get("/hello/{name}",
            [](Request& request, Response& response) { response.text("hello " + request.path("name") + "\n"); });
    TestClient client(app);
    EXPECT_EQ(client.get("/hello/world").body(), "hello world\n");
}

TEST(App, LetsAGroupMindTheAutomaticAnswersOfItsRoutesBesideThoseForTheRest) {
    App app;
    const auto answer = [](Request&, Response& response) { response.text("here"); };
    const auto mark = [](const char* name) {
        return [name](Request&, Response& response) { response.addHeader("X-Mark", name); };
    };
    app.after(mark("app"));
    app.get("/{rest:path}", answer);
    Group api = app.group("/api");
    api.after(mark("api"));
    api.put("/notes/{id}", answer);
    Group inner = api.group("");
    inner.after(mark("inner"));
    inner.post("/notes/{id}", answer);
    TestClient client(app);
    const TestResponse options = client.options("/api/notes/1");
    EXPECT_EQ(options.status(), 204);
    EXPECT_EQ(options.header("Allow"), "GET, HEAD, OPTIONS, POST, PUT");
    EXPECT_EQ(options.header("X-Mark"), "api, app");
    EXPECT_EQ(client.post("/api/notes/1").header("X-Mark"), "inner, api, app");
    EXPECT_EQ(client.post("/other").header("X-Mark"), "app");
}

TEST(App, ThrowsAndCatchesAcrossTheBorderOfTheLibrary) {
    App app;
    app.get("/thrown", [](Request&, Response&) { throw HttpError(404, "no such note").header("X-Mark", "thrown"); });
    app.get("/caught", [](Request& request, Response& response) {
        try {
            response.text(std::to_string(request.query<int>("n")));
        } catch (const HttpError& error) {
            response.text("caught " + std::to_string(error.status()));
        }
    });
    app.onError([](const Failure& failure, Request&, Response& response) {
        try {
            std::rethrow_exception(failure.exception());
        } catch (const HttpError& error) {
            response.error(error.status(), std::string("handled: ") + error.what());
        }
    });
    TestClient client(app);
    const TestResponse thrown = client.get("/thrown");
    EXPECT_EQ(thrown.status(), 404);
    EXPECT_EQ(thrown.body(), "handled: no such note\n");
    EXPECT_EQ(client.get("/caught?n=x").body(), "caught 400");
    EXPECT_EQ(client.get("/caught?n=7").body(), "7");
}

TEST(App, TellsWhereItServesWhileItDoes) {
    App app;
    EXPECT_FALSE(app.isRunning());
    EXPECT_EQ(app.port(), 0);
    EXPECT_TRUE(app.urls().empty());
    app.start(Quietly);
    EXPECT_TRUE(app.isRunning());
    ASSERT_NE(app.port(), 0);
    EXPECT_EQ(app.urls(), std::vector<std::string>{"http://127.0.0.1:" + std::to_string(app.port()) + "/"});
    EXPECT_EQ(statusOf(app.urls().front(), "/"), 404);
    app.stop();
    EXPECT_FALSE(app.isRunning());
    EXPECT_EQ(app.port(), 0);
    EXPECT_TRUE(app.urls().empty());
}

TEST(App, HasNoPortBeforeItServes) {
    App app;
    int port = -1;
    app.start({.port = 0, .quiet = true, .server = [&](ql::http::ServerOptions&) { port = app.port(); }});
    EXPECT_EQ(port, 0);
}

TEST(App, LeavesTheLibraryAsItWas) {
    ASSERT_FALSE(ql::IsVireoInitialized());
    {
        App app;
        app.start(Quietly);
        EXPECT_TRUE(ql::IsVireoInitialized());
    }
    EXPECT_FALSE(ql::IsVireoInitialized());
}

TEST(App, LogsOneLineWithItsUrls) {
    const TestLog log;
    App app;
    app.get("/", [](Request&, Response& response) { response.text(""); });
    app.start({.port = 0, .workers = 3});
    EXPECT_EQ(log.texts(qlLogType::Server, "http://"),
              std::vector<std::string>{app.urls().front() + " (1 route, 3 workers)"});
}

TEST(App, ServesAgainAfterAStop) {
    App app;
    app.get("/", [](Request&, Response& response) { response.text("here"); });
    for (int i = 0; i < 5; ++i) {
        app.start(Quietly);
        EXPECT_EQ(statusOf(app.urls().front(), "/"), 200);
        app.stop();
    }
}

TEST(App, StartsOnceAtATime) {
    App app;
    app.start(Quietly);
    EXPECT_THROW(app.start(Quietly), std::logic_error);
    EXPECT_THROW(app.run(Quietly), std::logic_error);
    EXPECT_TRUE(app.isRunning());
}

TEST(App, CanBeToldMoreAfterAStartThatFailed) {
    App app;
    EXPECT_THROW(app.start({.listen = {"nowhere"}}), std::invalid_argument);
    EXPECT_FALSE(app.isRunning());
    app.get("/", [](Request&, Response& response) { response.text("here"); });
    app.start(Quietly);
    EXPECT_EQ(statusOf(app.urls().front(), "/"), 200);
    EXPECT_THROW(app.get("/late", [](Request&, Response&) {}), std::logic_error);
    app.stop();
    app.get("/late", [](Request&, Response& response) { response.text("here"); });
}

TEST(App, SaysWhyItCannotStart) {
    const TestLog log;
    App first;
    first.start(Quietly);
    App second;
    EXPECT_THROW(second.start({.port = first.port()}), std::runtime_error);
    EXPECT_EQ(second.run({.port = first.port(), .signals = false}), 1);
    EXPECT_TRUE(log.waitFor(qlLogType::Failure, "127.0.0.1:" + std::to_string(first.port())));
    EXPECT_EQ(log.texts(qlLogType::Failure, "the App cannot start : Cannot listen @127.0.0.1:").size(), 1U);
    EXPECT_EQ(second.run({.address = "localhost", .signals = false}), 1);
    EXPECT_EQ(log.texts(qlLogType::Failure, "localhost").size(), 1U);
}

TEST(App, WaitsUntilAnotherThreadStopsIt) {
    App app;
    app.wait();
    app.start(Quietly);
    std::thread other([&] { app.stop(); });
    app.wait();
    EXPECT_FALSE(app.isRunning());
    other.join();
}

TEST(App, RunsUntilItIsStopped) {
    Event served;
    App app;
    app.get("/", [&](Request&, Response& response) { response.text("here"); });
    std::thread other([&] {
        ASSERT_TRUE(waitUntil([&] { return app.isRunning(); }));
        EXPECT_EQ(statusOf(app.urls().front(), "/"), 200);
        app.stop();
    });
    EXPECT_EQ(app.run({.port = 0, .signals = false, .activation = false, .quiet = true}), 0);
    EXPECT_FALSE(app.isRunning());
    other.join();
}

TEST(App, IsStoppedByManyThreadsAtOnce) {
    App app;
    for (int i = 0; i < 4; ++i) {
        app.start(Quietly);
        std::vector<std::thread> others;
        for (int j = 0; j < 4; ++j) {
            others.emplace_back([&] {
                app.stop();
                EXPECT_FALSE(app.isRunning());
            });
        }
        for (std::thread& other : others) {
            other.join();
        }
    }
}

TEST(App, DrainsWhatIsUnderWay) {
    Event entered;
    Event mayLeave;
    App app;
    app.get("/slow", [&](Request&, Response& response) {
        entered.set();
        EXPECT_TRUE(mayLeave.wait());
        response.text("done");
    });
    app.start({.port = 0, .patience = milliseconds(60000), .quiet = true});
    const std::string url = app.urls().front();
    const std::uint16_t port = app.port();
    std::thread client([&] { EXPECT_EQ(TestClient(url).get("/slow").body(), "done"); });
    ASSERT_TRUE(entered.wait());
    std::thread stopping([&] { app.stop(); });
    EXPECT_TRUE(waitUntil([&] { return vireotest::isPortFree(port); })) << "the stop has begun";
    EXPECT_TRUE(app.isRunning());
    mayLeave.set();
    client.join();
    stopping.join();
    EXPECT_FALSE(app.isRunning());
}

TEST(App, CutsWhatDoesNotEndInItsPatience) {
    Event entered;
    App app;
    std::optional<Later> kept;
    app.get("/never", [&](Request&, Response& response) {
        kept = response.later();
        entered.set();
    });
    app.start({.port = 0, .patience = milliseconds(0), .quiet = true});
    TestClient client(app.urls().front());
    std::thread asking([&] { EXPECT_THROW(client.get("/never"), std::runtime_error); });
    ASSERT_TRUE(entered.wait());
    app.stop();
    asking.join();
    EXPECT_TRUE(kept->isGone());
}

TEST(App, StopsInAHandlerWithoutWaiting) {
    for (const bool isQuick : {false, true}) {
        App app;
        Route route = app.get("/stop", [&](Request&, Response& response) {
            app.stop();
            response.text("stopping");
        });
        if (isQuick) {
            route.quick();
        }
        app.start(Quietly);
        EXPECT_EQ(TestClient(app.urls().front()).get("/stop").body(), "stopping");
        app.wait();
        EXPECT_FALSE(app.isRunning());
    }
}

TEST(App, DoesNotWaitForItselfInAHandler) {
    App app;
    app.get("/", [&](Request&, Response& response) {
        EXPECT_THROW(app.wait(), std::logic_error);
        EXPECT_THROW(app.run(), std::logic_error);
        EXPECT_THROW(app.start(), std::logic_error);
        response.text(app.isRunning() ? "runs" : "does not");
    });
    TestClient client(app);
    EXPECT_EQ(client.get("/").body(), "runs");
}

TEST(App, IsDestroyedInAHandlerWithoutWaiting) {
    Event destroyed;
    for (const bool isQuick : {false, true}) {
        auto* const app = new App;
        Event gone;
        Route route = app->get("/", [app, &gone](Request&, Response& response) {
            Event& told = gone;
            response.text("");
            delete app; // and with it this function
            told.set();
        });
        if (isQuick) {
            route.quick();
        }
        app->start(Quietly);
        vireotest::RawClient client(app->port());
        client.send(vireotest::get("/"));
        EXPECT_TRUE(gone.wait());
        // The next App's construction waits for the run of the one before.
        const App next;
    }
}

TEST(App, ClosesAConnectionThatIsIdleForSoLong) {
    App app;
    app.get("/", [](Request&, Response& response) { response.text("ok"); });
    app.start({.port = 0, .idle = milliseconds(1000), .quiet = true});
    vireotest::RawClient client(app.port());
    EXPECT_EQ(client.exchange("GET / HTTP/1.1\r\nHost: x\r\n\r\n").body, "ok");
    EXPECT_EQ(client.readToEnd(), "");
}

TEST(App, TellsWhetherItIsHealthy) {
    std::atomic<bool> isWell{true};
    App app;
    app.health("/live");
    app.health("/ready", [&] { return isWell.load(); });
    app.health("/broken", []() -> bool { throw std::runtime_error("no database"); });
    const TestLog log;
    TestClient client(app);
    EXPECT_EQ(client.get("/live").body(), "ok\n");
    EXPECT_EQ(client.get("/ready").status(), 200);
    isWell = false;
    EXPECT_EQ(client.get("/ready").status(), 503);
    EXPECT_EQ(client.get("/live").status(), 200);
    EXPECT_EQ(client.get("/broken").status(), 503);
    EXPECT_TRUE(log.waitFor(qlLogType::Failure, "no database"));
}

TEST(App, IsNotHealthyWhileItDrains) {
    Event entered;
    Event mayLeave;
    App app;
    app.health("/ready", [&] {
        entered.set();
        return mayLeave.wait();
    });
    app.start(Quietly);
    const std::uint16_t port = app.port();
    std::thread client([url = app.urls().front()] { EXPECT_EQ(TestClient(url).get("/ready").body(), "draining\n"); });
    ASSERT_TRUE(entered.wait());
    std::thread stopping([&] { app.stop(); });
    EXPECT_TRUE(waitUntil([&] { return vireotest::isPortFree(port); }));
    mayLeave.set();
    client.join();
    stopping.join();
}

TEST(App, TellsInAGroupWhatTheGroupsRulesLetPass) {
    std::atomic<bool> isWell{true};
    App app;
    Group watch = app.group("/watch");
    watch.before([](Request& request, Response& response) {
        if (request.header("X-Key") != "open") {
            response.error(401);
        }
    });
    watch.health("/live");
    watch.health("/ready", [&] { return isWell.load(); });
    watch.metrics("/metrics");
    TestClient client(app);
    for (const char* const path : {"/watch/live", "/watch/ready", "/watch/metrics"}) {
        EXPECT_EQ(client.get(path).status(), 401) << path;
        EXPECT_EQ(client.send(TestRequest("GET", path).header("X-Key", "open")).status(), 200) << path;
    }
    client.setHeader("X-Key", "open");
    isWell = false;
    EXPECT_EQ(client.get("/watch/ready").status(), 503);
    EXPECT_EQ(client.get("/watch/live").body(), "ok\n");
    client.get("/beside");
    EXPECT_NE(client.get("/watch/metrics").body().find("code=\"404\"} 1\n"), std::string::npos)
        << "the measurements are those of the whole server";
}

TEST(App, CountsItsWebSockets) {
    App app;
    app.metrics("/metrics");
    app.webSocket("/", [](Request&, SocketOpening& opening) { opening.accept(); });
    TestClient client(app);
    const auto counts = [&client](const char* line) {
        return waitUntil([&] { return client.get("/metrics").body().find(line) != std::string::npos; });
    };
    EXPECT_TRUE(counts("vireo_app_sockets 0\n"));
    {
        TestSocket socket = client.webSocket("/");
        EXPECT_TRUE(counts("vireo_app_sockets 1\n"));
        socket.close();
    }
    EXPECT_TRUE(counts("vireo_app_sockets 0\n"));
}

TEST(App, MeasuresItsRuns) {
    App app;
    app.metrics("/metrics");
    for (int i = 1; i < 3; ++i) {
        TestClient client(app, {.workers = 1});
        client.get("/nothing");
        const TestResponse metrics = client.get("/metrics");
        EXPECT_EQ(metrics.header("Content-Type"), "application/openmetrics-text; version=1.0.0; charset=utf-8");
        EXPECT_NE(metrics.body().find("vireo_app_workers_busy 1\n"), std::string::npos) << metrics.body();
        EXPECT_NE(metrics.body().find("vireo_exchange_responses_total{class=\"4xx\",code=\"404\"} " +
                                      std::to_string(i) + "\n"),
                  std::string::npos)
            << metrics.body();
    }
}

} // namespace
} // namespace vireo
