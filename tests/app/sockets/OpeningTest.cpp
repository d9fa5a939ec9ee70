#include "support/Event.h"
#include "support/TestFile.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include "vireo/ExchangeObserver.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/HeaderLine.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/ServerOptions.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/support/IpAddress.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using vireo::App;
using vireo::Next;
using vireo::Request;
using vireo::Response;
using vireo::Room;
using vireo::Rooms;
using vireo::Socket;
using vireo::SocketOpening;
using vireo::SocketSend;
using vireo::TestClient;
using vireo::TestRequest;
using vireo::TestSocket;
using vireotest::Event;
using vireotest::TestDirectory;
using vireotest::TestLog;

namespace {

/// Answers each text with itself behind `before`.
void echo(SocketOpening& opening, const std::string& before = "") {
    opening.accept().onText(
        [before](Socket& socket, std::string_view text) { socket.send(before + std::string(text)); });
}

} // namespace

TEST(SocketRoutes, MessagesOfBothKindsReachTheirHandlers) {
    App app;
    app.webSocket("/echo", [](Request&, SocketOpening& opening) {
        opening.accept()
            .onText([](Socket& socket, std::string_view text) { socket.send("text " + std::string(text)); })
            .onBinary([](Socket& socket, std::span<const unsigned char> bytes) { socket.sendBinary(bytes); });
    });
    TestClient client(app);
    TestSocket socket = client.webSocket("/echo");
    ASSERT_EQ(socket.status(), 101);
    socket.sendText("one");
    EXPECT_EQ(socket.receive(), "text one");
    socket.sendBinary("two");
    EXPECT_EQ(socket.receive(), "two");
}

TEST(SocketRoutes, HandlersMayReferToTheRequestAsLongAsTheSocketLives) {
    Event closed;
    App app;
    app.webSocket("/rooms/{room}", [&closed](Request& request, SocketOpening& opening) {
        opening.accept()
            .onText([&request](Socket& socket, std::string_view) {
                socket.send(request.path("room") + " " + request.query("q") + " " + request.header("X-Who") + " " +
                            request.cookie("c") + " " + request.target() + " " + request.client());
            })
            .onClose([&request, &closed](Socket&, std::uint16_t, std::string_view) {
                EXPECT_TRUE(request.isGone());
                EXPECT_EQ(request.path("room"), "tea");
                closed.set();
            });
    });
    TestClient client(app);
    TestSocket socket = client.webSocket("/rooms/tea?q=1", TestRequest().header("X-Who", "me").header("Cookie", "c=2"));
    ASSERT_EQ(socket.status(), 101);
    socket.sendText("who?");
    EXPECT_EQ(socket.receive(), "tea 1 me 2 /rooms/tea?q=1 127.0.0.1");
    socket.close();
    EXPECT_TRUE(closed.wait());
}

TEST(SocketRoutes, OpenComesFirstAndCloseLastWithTheClientsCode) {
    Event closed;
    std::atomic<int> calls{0};
    App app;
    app.webSocket("/", [&](Request&, SocketOpening& opening) {
        opening.accept()
            .onOpen([&](Socket& socket) {
                EXPECT_EQ(calls++, 0);
                EXPECT_TRUE(socket.isOpen());
                socket.send("welcome");
            })
            .onClose([&](Socket& socket, std::uint16_t code, std::string_view) {
                EXPECT_EQ(calls++, 1);
                EXPECT_EQ(code, 4001);
                EXPECT_FALSE(socket.isOpen());
                closed.set();
            });
    });
    TestClient client(app);
    TestSocket socket = client.webSocket("/");
    EXPECT_EQ(socket.receive(), "welcome");
    socket.close(4001);
    EXPECT_TRUE(closed.wait());
}

TEST(SocketRoutes, HandlerThatThrowsClosesItsSocketAndTheLogNamesTheRoute) {
    const TestLog log;
    App app;
    app.webSocket("/rooms/{room}", [](Request&, SocketOpening& opening) {
        opening.accept().onText([](Socket&, std::string_view) { throw std::runtime_error("expected by a test"); });
    });
    TestClient client(app);
    TestSocket socket = client.webSocket("/rooms/tea");
    socket.sendText("x");
    EXPECT_EQ(socket.receive(), std::nullopt);
    EXPECT_EQ(socket.closeCode(), 1011);
    EXPECT_TRUE(log.waitFor(qlLogType::Failure, "/rooms/tea (route /rooms/{room}) : expected by a test"));
}

TEST(SocketRoutes, WhatHandlersHoldGoesWithTheConnection) {
    App app;
    auto held = std::make_shared<int>();
    const std::weak_ptr<int> watched = held;
    app.webSocket("/", [&held](Request&, SocketOpening& opening) {
        opening.accept().onText([held](Socket& socket, std::string_view) { socket.send("x"); });
    });
    TestClient client(app);
    TestSocket socket = client.webSocket("/");
    socket.sendText("x");
    EXPECT_EQ(socket.receive(), "x");
    held.reset();
    EXPECT_FALSE(watched.expired());
    socket.close();
    EXPECT_TRUE(vireotest::waitUntil([&] { return watched.expired(); }));
}

TEST(SocketRoutes, RefusalSaysStatusTextAndHeaders) {
    App app;
    app.webSocket("/full", [](Request&, SocketOpening& opening) {
        opening.header("Retry-After", "7");
        opening.refuse(503, "full");
    });
    app.webSocket("/gone", [](Request&, SocketOpening& opening) { opening.refuse(410); });
    TestClient client(app);
    const vireo::TestResponse full = client.webSocket("/full").answer();
    EXPECT_EQ(full.status(), 503);
    EXPECT_EQ(full.header("Retry-After"), "7");
    EXPECT_EQ(full.body(), "full\n");
    EXPECT_EQ(client.webSocket("/gone").status(), 410);
    EXPECT_EQ(client.webSocket("/none").status(), 404);
}

TEST(SocketRoutes, RefusalByAFileIsOfOneThatFitsIntoMemory) {
    const TestLog log;
    const TestDirectory directory;
    const std::string page = directory.write("page.html", std::string(100000, 'x')).string();
    App app;
    app.group("/large")
        .use([&page](Request&, Response& response, Next&) { response.status(403).file(page); })
        .webSocket("/socket", [](Request&, SocketOpening& opening) { echo(opening); });
    TestClient client(app);
    const vireo::TestResponse refused = client.webSocket("/large/socket").answer();
    EXPECT_EQ(refused.status(), 403);
    EXPECT_EQ(refused.body(), "Forbidden\n");
    EXPECT_EQ(log.texts(qlLogType::Failure, "so large a file").size(), 1U);
}

TEST(SocketRoutes, LastDecisionCounts) {
    App app;
    app.webSocket("/accepted", [](Request&, SocketOpening& opening) {
        opening.refuse(403);
        echo(opening);
    });
    app.webSocket("/refused", [](Request&, SocketOpening& opening) {
        echo(opening);
        opening.refuse(403);
    });
    TestClient client(app);
    TestSocket socket = client.webSocket("/accepted");
    ASSERT_EQ(socket.status(), 101);
    socket.sendText("x");
    EXPECT_EQ(socket.receive(), "x");
    EXPECT_EQ(client.webSocket("/refused").status(), 403);
}

TEST(SocketRoutes, HookThatRefusesWhatWasAcceptedSaysNothingOfAnEarlierRefusal) {
    App app;
    app.after([](Request&, Response& response) { response.status(403); });
    app.webSocket("/", [](Request&, SocketOpening& opening) {
        opening.refuse(401, "log in first");
        echo(opening);
    });
    TestClient client(app);
    const TestSocket socket = client.webSocket("/");
    EXPECT_EQ(socket.status(), 403);
    EXPECT_EQ(socket.answer().body(), "");
}

TEST(SocketRoutes, HandlerThatDecidesNothingIsA500) {
    App app;
    app.webSocket("/", [](Request&, SocketOpening&) {});
    TestClient client(app);
    EXPECT_EQ(client.webSocket("/").status(), 500);
}

TEST(SocketRoutes, WhatAnOpeningHandlerThrowsIsAnAnswer) {
    App app;
    app.webSocket("/error", [](Request&, SocketOpening& opening) {
        opening.accept();
        throw vireo::HttpError(402, "pay first");
    });
    app.webSocket("/other", [](Request&, SocketOpening&) { throw std::runtime_error("expected by a test"); });
    TestClient client(app);
    EXPECT_EQ(client.webSocket("/error").status(), 402);
    EXPECT_EQ(client.webSocket("/other").status(), 500);
}

TEST(SocketRoutes, MiddlewaresStandAroundOpenings) {
    std::vector<std::string> order;
    App app;
    app.use([&order](Request&, Response&, Next& next) {
        order.emplace_back("app");
        next();
        order.emplace_back("back");
    });
    auto group = app.group("/closed");
    group.before([](Request& request, Response& response) {
        if (request.query("key") != "open") {
            response.error(401, "no key");
        }
    });
    group.webSocket("/door", [&order](Request&, SocketOpening& opening) {
        order.emplace_back("handler");
        echo(opening);
    });
    TestClient client(app);
    EXPECT_EQ(client.webSocket("/closed/door").status(), 401);
    EXPECT_EQ(order, (std::vector<std::string>{"app", "back"}));
    order.clear();
    EXPECT_EQ(client.webSocket("/closed/door?key=open").status(), 101);
    EXPECT_EQ(order, (std::vector<std::string>{"app", "handler", "back"}));
}

TEST(SocketRoutes, AnswerBelow300InsteadOfASocketIsA500ThatTheLogExplains) {
    const TestLog log;
    App app;
    app.use([](Request&, Response& response, Next&) { response.text("no socket"); });
    app.webSocket("/", [](Request&, SocketOpening& opening) { echo(opening); });
    TestClient client(app);
    EXPECT_EQ(client.webSocket("/").status(), 500);
    EXPECT_EQ(log.texts(qlLogType::Failure, "GET / (route /): a WebSocket cannot be refused with 200").size(), 1U);
}

TEST(SocketRoutes, WhatNeedsAnAnswerOfItsOwnThrowsInAnOpening) {
    std::atomic<int> thrown{0};
    App app;
    const auto counted = [&thrown](const auto& call) {
        EXPECT_THROW(call(), std::logic_error);
        ++thrown;
    };
    vireo::EventChannel channel;
    app.use([&](Request& request, Response& response, Next& next) {
        counted([&] { response.later(); });
        counted([&] { response.stream([](vireo::Output&) {}); });
        counted([&] { response.events(channel); });
        counted([&] { request.body(); });
        next();
    });
    app.webSocket("/", [](Request&, SocketOpening& opening) { echo(opening); });
    TestClient client(app);
    EXPECT_EQ(client.webSocket("/").status(), 101);
    EXPECT_EQ(thrown, 4);
}

TEST(SocketRoutes, RequestOfTheLibraryBelowIsThereUntilTheHandlerReturns) {
    App app;
    app.webSocket("/", [](Request& request, SocketOpening& opening) {
        EXPECT_FALSE(request.core().getHeaderLines().empty());
        opening.accept().onText([&request](Socket& socket, std::string_view) {
            EXPECT_THROW(request.core(), std::logic_error);
            socket.send("x");
        });
    });
    TestClient client(app);
    TestSocket socket = client.webSocket("/");
    socket.sendText("x");
    EXPECT_EQ(socket.receive(), "x");
}

TEST(SocketRoutes, SubprotocolIsOneThatTheClientOffers) {
    App app;
    app.webSocket("/", [](Request&, SocketOpening& opening) {
        EXPECT_EQ(opening.subprotocols(), (std::vector<std::string>{"a", "b"}));
        EXPECT_THROW(opening.subprotocol("c"), std::invalid_argument);
        opening.subprotocol("b");
        echo(opening);
    });
    TestClient client(app);
    TestSocket socket = client.webSocket("/", TestRequest().header("Sec-WebSocket-Protocol", "a, b"));
    EXPECT_EQ(socket.status(), 101);
    EXPECT_EQ(socket.subprotocol(), "b");
}

TEST(SocketRoutes, WhatTheLibrarySaysIsNoHeaderOfAnOpening) {
    App app;
    app.webSocket("/", [](Request&, SocketOpening& opening) {
        for (const char* name : {"Upgrade", "connection", "Sec-WebSocket-Accept", "Content-Length", "a b", ""}) {
            EXPECT_THROW(opening.header(name, "x"), std::invalid_argument) << name;
        }
        EXPECT_THROW(opening.header("X-A", "a\r\nb"), std::invalid_argument);
        EXPECT_THROW(opening.refuse(299), std::invalid_argument);
        EXPECT_THROW(opening.refuse(600), std::invalid_argument);
        echo(opening);
    });
    TestClient client(app);
    EXPECT_EQ(client.webSocket("/").status(), 101);
}

TEST(SocketRoutes, WhatAMiddlewareSaysOfTheConnectionIsLeftOut) {
    App app;
    app.use([](Request&, Response& response, Next& next) {
        response.header("Connection", "close");
        response.beforeSend([](Response& sent) { sent.header("Upgrade", "h2c"); });
        next();
    });
    app.webSocket("/", [](Request&, SocketOpening& opening) { echo(opening); });
    TestClient client(app);
    TestSocket socket = client.webSocket("/");
    ASSERT_EQ(socket.status(), 101);
    socket.sendText("x");
    EXPECT_EQ(socket.receive(), "x");
}

TEST(SocketRoutes, RecordsNameTheClientBehindATrustedProxy) {
    class Observer : public ql::http::ExchangeObserver {
    public:
        void onExchange(const ql::http::ExchangeRecord& record) override {
            seen = record.getForwardedClient().toString() + " " + record.getRequestId();
            completed.set();
        }
        std::string seen;
        Event completed;
    };
    const auto observer = std::make_shared<Observer>();
    App app;
    app.trustProxies({"127.0.0.1"});
    app.webSocket("/", [](Request&, SocketOpening& opening) { opening.refuse(403); });
    vireo::RunOptions options;
    options.server = [&observer](ql::http::ServerOptions& server) { server.addExchangeObserver(observer); };
    TestClient client(app, options);
    client.webSocket("/", TestRequest().header("X-Forwarded-For", "10.1.2.3").header("X-Request-Id", "r-1"));
    ASSERT_TRUE(observer->completed.wait());
    EXPECT_EQ(observer->seen, "10.1.2.3 r-1");
}

TEST(SocketRoutes, OptionsOfAnOpeningHoldForItsSocket) {
    App app;
    app.webSocket("/", [](Request&, SocketOpening& opening) {
        ql::http::WebSocketOptions options;
        options.setMaxMessageBytes(4);
        opening.options(options);
        echo(opening);
    });
    TestClient client(app);
    TestSocket socket = client.webSocket("/");
    socket.sendText("1234");
    EXPECT_EQ(socket.receive(), "1234");
    socket.sendText("12345");
    EXPECT_EQ(socket.receive(), std::nullopt);
    EXPECT_EQ(socket.closeCode(), 1009);
}

TEST(SocketRoutes, OptionsOfTheAppHoldForAllItsSockets) {
    App app;
    ql::http::WebSocketOptions options;
    options.setMaxMessageBytes(4);
    options.addAllowedOrigin("https://friend.example");
    app.webSocketOptions(options);
    app.webSocket("/", [](Request&, SocketOpening& opening) { echo(opening); });
    app.webSocket("/large", [](Request&, SocketOpening& opening) {
        opening.options({});
        echo(opening);
    });
    TestClient client(app);
    EXPECT_EQ(client.webSocket("/", TestRequest().header("Origin", "https://other.example")).status(), 403);
    TestSocket socket = client.webSocket("/", TestRequest().header("Origin", "https://friend.example"));
    ASSERT_EQ(socket.status(), 101);
    socket.sendText("1234");
    EXPECT_EQ(socket.receive(), "1234");
    socket.sendText("12345");
    EXPECT_EQ(socket.receive(), std::nullopt);
    EXPECT_EQ(socket.closeCode(), 1009);
    TestSocket large = client.webSocket("/large", TestRequest().header("Origin", "https://friend.example"));
    large.sendText("12345");
    EXPECT_EQ(large.receive(), "12345") << "an opening's options go before";
}

TEST(SocketRoutes, WhoSendsMoreThanItsClientTakesIsToldAndToldAgainWhenThereIsRoom) {
    const std::string message(65536, 'm');
    Event full;
    std::atomic<int> queued{0};
    std::atomic<bool> wasDrained{false};
    App app;
    ql::http::WebSocketOptions options;
    options.setMaxQueuedBytes(1048576);
    options.setQueuePolicy(ql::http::WebSocketOptions::QueuePolicy::Wait);
    app.webSocketOptions(options);
    app.webSocket("/", [&](Request&, SocketOpening& opening) {
        opening.accept()
            .onText([&](Socket& socket, std::string_view) {
                SocketSend sent = SocketSend::Queued;
                while ((sent = socket.send(message)) == SocketSend::Queued) {
                    ++queued;
                }
                EXPECT_EQ(sent, SocketSend::Full) << "handlers do not wait for their client";
                EXPECT_TRUE(socket.isOpen());
                EXPECT_GT(socket.queuedBytes(), 0U);
                full.set();
            })
            .onDrained([&](Socket& socket) {
                if (!wasDrained.exchange(true)) {
                    EXPECT_EQ(socket.send("room again"), SocketSend::Queued);
                }
            });
    });
    TestClient client(app);
    client.setPatience(std::chrono::seconds(30));
    TestSocket socket = client.webSocket("/");
    socket.sendText("send all that I take");
    ASSERT_TRUE(full.wait());
    for (int i = 0; i < queued; ++i) {
        ASSERT_EQ(socket.receive(), message) << i;
    }
    EXPECT_EQ(socket.receive(), "room again");
}

TEST(SocketRoutes, ClientThatTakesNothingIsClosedByDefault) {
    const std::string message(65536, 'm');
    Event full;
    App app;
    ql::http::WebSocketOptions options;
    options.setMaxQueuedBytes(1048576);
    app.webSocketOptions(options);
    app.webSocket("/", [&](Request&, SocketOpening& opening) {
        opening.accept().onText([&](Socket& socket, std::string_view) {
            SocketSend sent = SocketSend::Queued;
            while ((sent = socket.send(message)) == SocketSend::Queued) {
            }
            EXPECT_EQ(sent, SocketSend::Closed);
            full.set();
        });
    });
    TestClient client(app);
    client.setPatience(std::chrono::seconds(30));
    TestSocket socket = client.webSocket("/");
    socket.sendText("send all that I take");
    ASSERT_TRUE(full.wait());
    while (socket.receive()) {
    }
    EXPECT_EQ(socket.closeCode(), 1013);
}

TEST(SocketRoutes, PagesBehindATrustedProxyAreOfItsSchemeAndHost) {
    const auto statusOf = [](const std::vector<std::string>& proxies, const char* origin) {
        App app;
        app.trustProxies(proxies);
        app.webSocket("/", [](Request&, SocketOpening& opening) {
            EXPECT_TRUE(opening.isSameOrigin());
            echo(opening);
        });
        TestClient client(app);
        return client
            .webSocket("/", TestRequest()
                                .header("X-Forwarded-Proto", "https")
                                .header("X-Forwarded-Host", "outer.example")
                                .header("Origin", *origin != '\0' ? std::string(origin) : client.url()))
            .status();
    };
    EXPECT_EQ(statusOf({"127.0.0.1"}, "https://outer.example"), 101);
    EXPECT_EQ(statusOf({"127.0.0.1"}, "http://outer.example"), 403);
    EXPECT_EQ(statusOf({"127.0.0.1"}, ""), 403) << "what the proxy's own Host says is nobody's origin";
    EXPECT_EQ(statusOf({}, "https://outer.example"), 403);
    EXPECT_EQ(statusOf({}, ""), 101);
}

TEST(SocketRoutes, PagesOfOtherOriginsAreRefused) {
    App app;
    app.webSocket("/", [](Request&, SocketOpening& opening) {
        EXPECT_TRUE(opening.isSameOrigin());
        EXPECT_FALSE(opening.origin().empty());
        echo(opening);
    });
    TestClient client(app);
    EXPECT_EQ(client.webSocket("/", TestRequest().header("Origin", "https://example.org")).status(), 403);
    EXPECT_EQ(client.webSocket("/", TestRequest().header("Origin", client.url())).status(), 101);
}

TEST(SocketRoutes, MessagesOfARoomReachAllButTheSender) {
    App app;
    const Rooms rooms;
    app.webSocket("/chat/{room}", [rooms](Request& request, SocketOpening& opening) {
        const Room room = rooms[request.path("room")];
        EXPECT_FALSE(room.add(Socket()));
        opening.accept()
            .onOpen([room](Socket& socket) {
                EXPECT_TRUE(room.add(socket));
                EXPECT_FALSE(room.add(socket));
                socket.send("in");
            })
            .onText([room](Socket& socket, std::string_view text) {
                socket.send(std::to_string(room.send(text, socket)));
            });
    });
    TestClient client(app);
    TestSocket one = client.webSocket("/chat/tea");
    TestSocket two = client.webSocket("/chat/tea");
    TestSocket other = client.webSocket("/chat/coffee");
    for (TestSocket* socket : {&one, &two, &other}) {
        ASSERT_EQ(socket->receive(), "in");
    }
    one.sendText("hello");
    EXPECT_EQ(one.receive(), "1");
    EXPECT_EQ(two.receive(), "hello");
    other.sendText("alone");
    EXPECT_EQ(other.receive(), "0");
    EXPECT_EQ(rooms.count(), 2);
    other.close();
    EXPECT_TRUE(vireotest::waitUntil([&] { return rooms.count() == 1; }));
}

TEST(SocketRoutes, RoomsStayAsLongAsSomebodyIsInThem) {
    const Rooms rooms;
    Event entered;
    App app;
    app.webSocket("/", [&](Request&, SocketOpening& opening) {
        opening.accept().onOpen([&](Socket& socket) {
            EXPECT_TRUE(rooms["tea"].add(socket));
            entered.set();
        });
    });
    TestClient client(app);
    TestSocket socket = client.webSocket("/");
    ASSERT_TRUE(entered.wait());
    EXPECT_EQ(rooms.count(), 1U);
    EXPECT_EQ(rooms["tea"].send("hello"), 1U);
    EXPECT_EQ(socket.receive(), "hello");
    socket.close();
    EXPECT_TRUE(vireotest::waitUntil([&] { return rooms.count() == 0; }));
}

TEST(SocketRoutes, KeptSocketOutlivesItsConnectionAndTheApp) {
    Socket kept;
    {
        Event opened;
        App app;
        app.webSocket("/", [&](Request&, SocketOpening& opening) {
            opening.accept().onOpen([&](Socket& socket) {
                kept = socket;
                opened.set();
            });
        });
        TestClient client(app);
        TestSocket socket = client.webSocket("/");
        ASSERT_TRUE(opened.wait());
        EXPECT_EQ(kept.send("from elsewhere"), vireo::SocketSend::Queued);
        EXPECT_EQ(socket.receive(), "from elsewhere");
    }
    EXPECT_EQ(kept.send("x"), vireo::SocketSend::Closed);
}
