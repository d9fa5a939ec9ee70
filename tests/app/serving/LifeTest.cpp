#include "support/Event.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

namespace vireo {
namespace {

using vireotest::Event;
using vireotest::get;
using vireotest::letOthersRun;
using vireotest::RawClient;
using vireotest::TestLog;
using vireotest::waitUntil;

RunOptions quietly(int patienceMs = 0) {
    return {.port = 0, .patience = std::chrono::milliseconds(patienceMs), .quiet = true};
}

/// From where an App is ended.
enum class Place {
    Worker,
    Quick,
    LaterHere,
    LaterElsewhere,
    ErrorHandler,
    NotFound,
    Hook,
    Middleware,
    Stream,
    HealthCheck,
    Opening,
    Open,
    Text,
    Close,
};

class Places : public testing::TestWithParam<Place> {
protected:
    /// Has `act` called there, once somebody asks for "/".
    void add(App& app, const std::function<void()>& act) {
        const auto answer = [act](Request&, Response& response) {
            act();
            response.text("done");
        };
        switch (GetParam()) {
        case Place::Worker:
            app.get("/", answer);
            break;
        case Place::Quick:
            app.get("/", answer).quick();
            break;
        case Place::LaterHere:
            app.get("/", [act](Request&, Response& response) {
                response.later().answer([&act](Response& late) {
                    act();
                    late.text("done");
                });
            });
            break;
        case Place::LaterElsewhere:
            app.get("/", [this, act](Request&, Response& response) {
                thread_ = std::thread([act, later = response.later()] {
                    later.answer([&act](Response& late) {
                        act();
                        late.text("done");
                    });
                });
            });
            break;
        case Place::ErrorHandler:
            app.onError([answer](const Failure&, Request& request, Response& response) { answer(request, response); });
            app.get("/", [](Request&, Response&) { throw HttpError(400); });
            break;
        case Place::NotFound:
            app.notFound(answer);
            break;
        case Place::Hook:
            app.get("/", [act](Request&, Response& response) {
                response.beforeSend([act](Response&) { act(); });
                response.text("done");
            });
            break;
        case Place::Middleware:
            app.use([act](Request&, Response&, Next& next) {
                act();
                next();
            });
            app.get("/", [](Request&, Response& response) { response.text("done"); });
            break;
        case Place::Stream:
            app.get("/", [act](Request&, Response& response) {
                response.stream([act](Output& out) {
                    out << "done";
                    act();
                });
            });
            break;
        case Place::HealthCheck:
            app.health("/", [act] {
                act();
                return true;
            });
            break;
        case Place::Opening:
            app.webSocket("/", [act](Request&, SocketOpening& opening) {
                act();
                opening.refuse(403);
            });
            break;
        case Place::Open:
            app.webSocket("/", [act](Request&, SocketOpening& opening) {
                opening.accept().onOpen([act](Socket& socket) {
                    act();
                    socket.close();
                });
            });
            break;
        case Place::Text:
            app.webSocket("/", [act](Request&, SocketOpening& opening) {
                opening.accept().onText([act](Socket& socket, std::string_view) {
                    act();
                    socket.close();
                });
            });
            break;
        case Place::Close:
            app.webSocket("/", [act](Request&, SocketOpening& opening) {
                opening.accept().onClose([act](Socket&, std::uint16_t, std::string_view) { act(); });
            });
            break;
        }
    }

    void ask(std::uint16_t port) {
        RawClient client(port);
        if (GetParam() >= Place::Opening) {
            // With a frame of a text and one that closes it behind the opening.
            client.send(vireotest::head("GET", "/",
                                        "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                                        "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n") +
                        std::string("\x81\x80\0\0\0\0\x88\x80\0\0\0\0", 12));
        } else {
            client.send(get("/", "Connection: close\r\n"));
        }
        client.readToEnd();
    }

    void TearDown() override {
        if (thread_.joinable()) {
            thread_.join();
        }
    }

private:
    std::thread thread_;
};

TEST_P(Places, AnAppIsStoppedThereWithoutWaitingForItself) {
    Event stopped;
    App app;
    add(app, [&] {
        app.stop();
        stopped.set();
    });
    app.start(quietly(2000));
    ask(app.port());
    EXPECT_TRUE(stopped.wait());
    app.wait();
    EXPECT_FALSE(app.isRunning());
}

TEST_P(Places, WhatWouldWaitForItselfIsRefused) {
    std::atomic<int> refused{0};
    Event through;
    App app;
    add(app, [&] {
        const auto refuses = [&refused](const auto& call) {
            try {
                call();
            } catch (const std::logic_error&) {
                ++refused;
            }
        };
        refuses([&] { app.wait(); });
        refuses([&] { app.start(quietly()); });
        refuses([&] { app.run(quietly()); });
        through.set();
    });
    app.start(quietly());
    ask(app.port());
    EXPECT_TRUE(through.wait());
    EXPECT_EQ(refused, 3);
    EXPECT_TRUE(app.isRunning());
}

TEST_P(Places, AnAppIsDestroyedThereWithoutWaitingForItself) {
    auto captured = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = captured;
    Event gone;
    auto app = std::make_unique<App>();
    add(*app, [&app, &gone] {
        app.reset();
        gone.set();
    });
    app->group("/other").get("/", [captured](Request&, Response& response) { response.text(""); });
    captured.reset();
    app->start(quietly());
    ask(app->port());
    EXPECT_TRUE(gone.wait());
    // What has been left behind is waited for by the next one.
    const App next;
    EXPECT_TRUE(watched.expired());
}

std::string nameOf(const testing::TestParamInfo<Place>& place) {
    switch (place.param) {
    case Place::Worker:
        return "Worker";
    case Place::Quick:
        return "Quick";
    case Place::LaterHere:
        return "LaterHere";
    case Place::LaterElsewhere:
        return "LaterElsewhere";
    case Place::ErrorHandler:
        return "ErrorHandler";
    case Place::NotFound:
        return "NotFound";
    case Place::Hook:
        return "Hook";
    case Place::Middleware:
        return "Middleware";
    case Place::Stream:
        return "Stream";
    case Place::HealthCheck:
        return "HealthCheck";
    case Place::Opening:
        return "Opening";
    case Place::Open:
        return "Open";
    case Place::Text:
        return "Text";
    case Place::Close:
        return "Close";
    }
    return "";
}

INSTANTIATE_TEST_SUITE_P(Ends, Places,
                         testing::Values(Place::Worker, Place::Quick, Place::LaterHere, Place::LaterElsewhere,
                                         Place::ErrorHandler, Place::NotFound, Place::Hook, Place::Middleware,
                                         Place::Stream, Place::HealthCheck, Place::Opening, Place::Open, Place::Text,
                                         Place::Close),
                         nameOf);

TEST(Ends, AnAppIsWaitedForInAHandlerOfAnother) {
    Event entered;
    std::atomic<bool> hasLeft{false};
    auto hosted = std::make_unique<App>();
    hosted->get("/", [&](Request& request, Response&) {
        entered.set();
        EXPECT_TRUE(waitUntil([&request] { return request.isGone(); }));
        letOthersRun();
        hasLeft = true;
    });
    hosted->start(quietly());
    RawClient client(hosted->port());
    client.send(get("/"));
    ASSERT_TRUE(entered.wait());
    App host;
    host.get("/", [&](Request&, Response& response) {
        hosted.reset();
        EXPECT_TRUE(hasLeft) << "what its handlers refer to may go now";
        App other;
        other.start(quietly());
        other.stop();
        EXPECT_FALSE(other.isRunning());
        response.text("done");
    });
    TestClient asking(host);
    EXPECT_EQ(asking.get("/").body(), "done");
}

TEST(Ends, AnAppMayBeStoppedWhileItStarts) {
    App app;
    RunOptions options = quietly();
    options.server = [&app](ql::http::ServerOptions&) {
        EXPECT_THROW(app.wait(), std::logic_error);
        app.stop();
    };
    app.start(options);
    app.wait();
    EXPECT_FALSE(app.isRunning());
}

TEST(Ends, ALateAnswerGoesByTheRulesOfItsRun) {
    Event filling;
    Event mayThrow;
    std::atomic<int> former{0};
    std::atomic<int> latter{0};
    std::thread late;
    App app;
    app.onError([&former](const Failure&, Request&, Response&) { ++former; });
    app.get("/", [&](Request&, Response& response) {
        late = std::thread([&, later = response.later()] {
            later.answer([&](Response&) {
                filling.set();
                EXPECT_TRUE(mayThrow.wait());
                throw HttpError(400);
            });
        });
    });
    app.start(quietly());
    RawClient client(app.port());
    client.send(get("/"));
    EXPECT_TRUE(filling.wait());
    app.stop();
    app.onError([&latter](const Failure&, Request&, Response&) { ++latter; });
    app.start(quietly());
    mayThrow.set();
    late.join();
    EXPECT_EQ(former, 1);
    EXPECT_EQ(latter, 0);
}

TEST(Ends, TwoThreadsMayStopAtOnce) {
    App app;
    app.get("/", [](Request&, Response& response) { response.text(""); });
    for (int i = 0; i < 20; ++i) {
        app.start(quietly(1000));
        std::thread other([&app] { app.stop(); });
        app.stop();
        other.join();
        EXPECT_FALSE(app.isRunning());
    }
}

TEST(Ends, StartsAndStopsLeaveNothingBehind) {
    std::thread late;
    App app;
    app.get("/", [](Request&, Response& response) { response.text("here"); });
    app.get("/later", [&late](Request&, Response& response) {
        late = std::thread([later = response.later()] { later.text("late"); });
    });
    for (int i = 0; i < 60; ++i) {
        app.start({.port = 0, .workers = 2, .threads = 2, .patience = std::chrono::milliseconds(0), .quiet = true});
        RawClient client(app.port());
        client.send(get(i % 2 == 0 ? "/" : "/later"));
        if (i % 3 == 0) {
            EXPECT_EQ(client.readResponse().status, 200);
        }
        app.stop();
        if (late.joinable()) {
            late.join();
        }
    }
}

TEST(Ends, ALaterMayGoUnderALockThatTheUsersFunctionsWant) {
    const TestLog log;
    std::mutex lock;
    std::optional<Later> kept;
    Event left;
    App app;
    const auto wantLock = [&lock] { const std::lock_guard guard(lock); };
    app.onError([&wantLock](const Failure&, Request&, Response&) { wantLock(); });
    app.get("/", [&](Request&, Response& response) {
        response.beforeSend([&wantLock](Response&) { wantLock(); });
        kept.emplace(response.later());
        left.set();
    });
    app.start(quietly());
    RawClient client(app.port());
    client.send(get("/"));
    ASSERT_TRUE(left.wait());
    {
        const std::lock_guard guard(lock);
        kept.reset();
    }
    EXPECT_EQ(client.readResponse().status, 500);
}

TEST(Ends, AnEventChannelKeepsNoHandler) {
    auto captured = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = captured;
    const EventChannel channel;
    {
        App app;
        app.get("/", [captured, channel](Request&, Response& response) { response.events(channel); });
        captured.reset();
        app.start(quietly());
        RawClient client(app.port());
        client.send(get("/"));
        EXPECT_EQ(client.readHead().status, 200);
        EXPECT_TRUE(waitUntil([&] { return channel.listeners() == 1; }));
    }
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(channel.listeners(), 0U);
}

} // namespace
} // namespace vireo
