#include "app/kernel/Answer.h"
#include "support/RawClient.h"
#include "support/TestFile.h"
#include "support/TestLog.h"
#include "vireo/RequestOwner.h"
#include "vireo/ServerOptions.h"
#include "vireo/WebSocketAcceptor.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace vireo {
namespace {

using vireotest::get;
using vireotest::RawClient;
using vireotest::RawResponse;
using vireotest::TestLog;

using Headers = std::vector<std::pair<std::string, std::string>>;

/// All but what differs from time to time.
Headers headersOf(const TestResponse& response) {
    Headers headers;
    for (const auto& header : response.headers()) {
        if (header.first != "Date") {
            headers.push_back(header);
        }
    }
    return headers;
}

TEST(Answers, AreSentOnceTheHandlerHasReturned) {
    App app;
    app.get("/", [](Request&, Response& response) {
        response.text("first");
        response.status(201).header("X-A", "1").addHeader("X-A", "2").cookie(SetCookie("c", "d"));
        EXPECT_TRUE(response.isSet());
        EXPECT_FALSE(response.isSent());
        response.html("last");
    });
    TestClient client(app);
    const TestResponse response = client.get("/");
    EXPECT_EQ(response.status(), 201);
    EXPECT_EQ(response.body(), "last");
    EXPECT_EQ(headersOf(response), (Headers{{"X-A", "1"},
                                            {"X-A", "2"},
                                            {"Set-Cookie", "c=d"},
                                            {"Content-Type", "text/html; charset=utf-8"},
                                            {"Content-Length", "4"}}));
}

TEST(Answers, HaveNumbersAndPlainCookies) {
    App app;
    app.get("/", [](Request&, Response& response) {
        response.header("X-Count", 5).header("X-Large", std::uint64_t{18446744073709551615U}).header("X-None", 0);
        response.cookie("theme", "dark");
        EXPECT_THROW(response.cookie("theme", "a;b"), std::invalid_argument);
        response.text("");
    });
    TestClient client(app);
    const TestResponse response = client.get("/");
    EXPECT_EQ(response.header("X-Count"), "5");
    EXPECT_EQ(response.header("X-Large"), "18446744073709551615");
    EXPECT_EQ(response.header("X-None"), "0");
    EXPECT_EQ(response.header("Set-Cookie"), "theme=dark; Path=/");
}

TEST(Answers, AreNotSetByThreadsOfOnesOwn) {
    App app;
    app.get("/", [](Request&, Response& response) {
        std::string refusal;
        std::thread([&] {
            try {
                response.text("of another thread");
            } catch (const std::logic_error& error) {
                refusal = error.what();
            }
        }).join();
        EXPECT_NE(refusal.find("other threads answer by Response::later()"), std::string::npos) << refusal;
        response.text("of the handler");
    });
    TestClient client(app);
    EXPECT_EQ(client.get("/").body(), "of the handler");
}

TEST(Answers, LoseHeadersThatAreTakenAway) {
    App app;
    app.get("/", [](Request&, Response& response) {
        response.header("X-A", "1").addHeader("X-A", "2").header("X-B", "3").removeHeader("x-a").removeHeader("X-None");
        EXPECT_EQ(response.header("X-A"), "");
        response.empty();
    });
    TestClient client(app);
    EXPECT_EQ(client.get("/").header("X-A"), "");
    EXPECT_EQ(client.get("/").header("X-B"), "3");
}

TEST(Answers, ToHeadAreThoseToGetWithoutTheBody) {
    App app;
    const std::string large(100000, 'x');
    app.get("/small", [](Request&, Response& response) { response.text("1234567"); });
    app.get("/large", [&large](Request&, Response& response) { response.text(large); });
    app.get("/sized", [](Request&, Response& response) { response.stream(5, [](Output& out) { out << "12345"; }); });
    app.get("/error", [](Request&, Response&) { throw HttpError(409, "no"); });
    TestClient client(app);
    for (const char* target : {"/small", "/large", "/sized", "/error", "/nothing"}) {
        const TestResponse whole = client.get(target);
        const TestResponse head = client.head(target);
        EXPECT_EQ(head.status(), whole.status()) << target;
        EXPECT_EQ(headersOf(head), headersOf(whole)) << target;
        EXPECT_EQ(head.body(), "") << target;
    }
}

TEST(Answers, ToHeadCallNoStreamsFunction) {
    App app;
    app.get("/", [](Request&, Response& response) {
        response.stream([](Output&) { ADD_FAILURE() << "nobody takes what it writes"; });
    });
    TestClient client(app);
    EXPECT_EQ(client.head("/").status(), 200);
    EXPECT_EQ(client.head("/").header("Content-Length"), "");
}

TEST(Answers, StatusHasItsBounds) {
    App app;
    app.get("/{status}", [](Request& request, Response& response) {
        try {
            response.status(std::stoi(request.path("status"))).text("taken");
        } catch (const std::invalid_argument& error) {
            response.status(400).text(error.what());
        }
    });
    TestClient client(app);
    for (const int status : {200, 299, 599}) {
        EXPECT_EQ(client.get("/" + std::to_string(status)).status(), status);
    }
    EXPECT_EQ(client.get("/199").body(), "the status is 199, not 200 to 599");
    EXPECT_EQ(client.get("/600").body(), "the status is 600, not 200 to 599");
}

TEST(Answers, ThatAHandlerForgotAre500AndLogged) {
    const TestLog log;
    App app;
    app.get("/x/{id}", [](Request&, Response& response) { response.header("X-A", "1"); });
    app.get("/named", [](Request&, Response&) {}).named("the one");
    app.get("/status", [](Request&, Response& response) { response.status(204); });
    Group group = app.group("/group");
    group.use([](Request&, Response&, Next&) {});
    group.get("/y", [](Request&, Response& response) { response.text("never"); });
    TestClient client(app);
    EXPECT_EQ(client.get("/x/7").status(), 500);
    EXPECT_EQ(client.get("/x/7").body(), "internal error\n");
    EXPECT_EQ(client.get("/x/7").header("X-A"), "");
    EXPECT_EQ(client.get("/named").status(), 500);
    EXPECT_EQ(client.get("/group/y").status(), 500);
    EXPECT_EQ(client.get("/status").status(), 500);
    const auto lines = log.texts(qlLogType::Failure, "set no answer");
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0], "GET /x/7 (route /x/{id}) : the handler set no answer");
    EXPECT_EQ(lines[3], "GET /named (route the one) : the handler set no answer");
    EXPECT_EQ(lines[4], "GET /status (route /status) : the handler set no answer: a status alone is none, "
                        "Response::empty() is");
    EXPECT_EQ(log.texts(qlLogType::Failure, "neither"),
              std::vector<std::string>{
                  "GET /group/y (route /group/y) : a middleware neither set an answer nor called next()"});
}

TEST(Answers, ThatWereForgottenAreTheErrorHandlers) {
    const TestLog log;
    App app;
    app.onError([](const Failure& failure, Request&, Response& response) { response.text("E " + failure.text()); });
    app.get("/", [](Request&, Response&) {});
    app.get("/later", [](Request&, Response& response) {
        EXPECT_TRUE(response.later().answer([](Response& late) { late.status(201); }));
    });
    TestClient client(app);
    for (const char* target : {"/", "/later"}) {
        EXPECT_EQ(client.get(target).status(), 500) << target;
        EXPECT_EQ(client.get(target).body(), "E internal error") << target;
    }
    EXPECT_EQ(log.texts(qlLogType::Failure, "Later::answer() was given a function that set no answer").size(), 2U);
    EXPECT_EQ(log.texts(qlLogType::Failure, "threw an exception").size(), 0U);
}

TEST(Answers, WithAStatusThatAllowsNoBodyAreTheHeadAloneAndLogged) {
    const TestLog log;
    const vireotest::TestDirectory directory;
    const std::string file = directory.write("file.txt", "lost").string();
    App app;
    for (const int status : {204, 205}) {
        const std::string path = "/" + std::to_string(status);
        app.get(path + "/text", [status](Request&, Response& response) { response.status(status).text("lost"); });
        app.get(path + "/file", [&, status](Request&, Response& response) { response.status(status).file(file); });
        app.get(path + "/empty", [status](Request&, Response& response) { response.empty(status); });
    }
    TestClient client(app);
    for (const int status : {204, 205}) {
        const std::string path = "/" + std::to_string(status);
        const std::string length = status == 204 ? "" : "0";
        const TestResponse text = client.get(path + "/text");
        EXPECT_EQ(text.status(), status);
        EXPECT_EQ(text.body(), "");
        EXPECT_EQ(text.header("Content-Type"), "");
        EXPECT_EQ(text.header("Content-Length"), length);
        const TestResponse sent = client.get(path + "/file");
        EXPECT_EQ(sent.status(), status);
        EXPECT_EQ(sent.body(), "");
        EXPECT_EQ(sent.header("Content-Length"), length);
        EXPECT_EQ(client.get(path + "/empty").status(), status);
        EXPECT_EQ(log.texts(qlLogType::Failure, "status " + std::to_string(status) + " has no body").size(), 2U)
            << "of the text and of the file";
    }
}

TEST(Answers, ToWhatHandlersThrowHaveNothingOfTheirs) {
    const TestLog log;
    App app;
    const auto set = [](Response& response) {
        response.status(201).header("ETag", "\"1\"").header("Cache-Control", "max-age=9").type("image/png");
        response.cookie(SetCookie("c", "d"));
        response.bytes("bytes", "image/png");
        response.beforeSend([](Response& sent) { sent.header("X-Hook", std::to_string(sent.status())); });
    };
    app.get("/error", [set](Request&, Response& response) {
        set(response);
        throw HttpError(404, "no such note").header("X-Mine", "1");
    });
    app.get("/secret", [set](Request&, Response& response) {
        set(response);
        throw std::runtime_error("the password is swordfish");
    });
    TestClient client(app);
    const TestResponse error = client.get("/error");
    EXPECT_EQ(error.status(), 404);
    EXPECT_EQ(error.body(), "no such note\n");
    EXPECT_EQ(headersOf(error), (Headers{{"Content-Type", "text/plain; charset=utf-8"},
                                         {"X-Mine", "1"},
                                         {"X-Hook", "404"},
                                         {"Content-Length", "13"}}));
    const TestResponse secret = client.get("/secret");
    EXPECT_EQ(secret.status(), 500);
    EXPECT_EQ(secret.body(), "internal error\n");
    EXPECT_EQ(headersOf(secret),
              (Headers{{"Content-Type", "text/plain; charset=utf-8"}, {"X-Hook", "500"}, {"Content-Length", "15"}}));
    EXPECT_EQ(log.texts(qlLogType::Failure, "swordfish").size(), 1U);
    EXPECT_EQ(log.texts(qlLogType::Failure, "no such note").size(), 0U);
}

TEST(Answers, ToErrorsAreTheErrorHandlersOfTheInnermostGroup) {
    const TestLog log;
    App app;
    app.onError([](const Failure& failure, Request&, Response& response) {
        EXPECT_EQ(response.status(), failure.status());
        response.text("app: " + failure.text());
    });
    Group api = app.group("/api");
    api.onError([](const Failure& failure, Request& request, Response& response) {
        try {
            std::rethrow_exception(failure.exception());
        } catch (const std::out_of_range&) {
            response.status(422).jsonText("{\"range\":\"" + request.path() + "\"}");
        } catch (...) {
        }
    });
    Group broken = app.group("/broken");
    broken.onError([](const Failure&, Request&, Response&) { throw std::runtime_error("again"); });
    for (Group group : {Group(app), api, broken}) {
        group.get("/range", [](Request&, Response&) { throw std::out_of_range("17"); });
        group.get("/teapot", [](Request&, Response&) { throw HttpError(418, "tea"); });
    }
    TestClient client(app);
    EXPECT_EQ(client.get("/range").body(), "app: internal error");
    EXPECT_EQ(client.get("/range").status(), 500);
    EXPECT_EQ(client.get("/teapot").body(), "app: tea");
    EXPECT_EQ(client.get("/teapot").status(), 418);
    EXPECT_EQ(client.get("/api/range").body(), "{\"range\":\"/api/range\"}");
    EXPECT_EQ(client.get("/api/range").status(), 422);
    EXPECT_EQ(client.get("/api/teapot").body(), "tea\n") << "it set no answer";
    EXPECT_EQ(client.get("/api/teapot").status(), 418);
    EXPECT_EQ(client.get("/broken/teapot").body(), "internal error\n");
    EXPECT_EQ(client.get("/broken/teapot").status(), 500);
    EXPECT_FALSE(log.texts(qlLogType::Failure, "again").empty());
}

TEST(Answers, FindTheMiddlewaresInTheirOrder) {
    std::vector<std::string> order;
    App app;
    const auto around = [&order](const std::string& name) {
        return [&order, name](Request&, Response& response, Next& next) {
            order.push_back(name);
            response.beforeSend([&order, name](Response&) { order.push_back("send " + name); });
            next();
            order.push_back("behind " + name);
        };
    };
    Group group = app.group("/g");
    group.get("/", [&order](Request&, Response& response) {
        order.push_back("handler");
        response.text("");
    });
    group.use(around("inner"));
    app.use(around("outer")).use(around("second"));
    TestClient client(app);
    EXPECT_EQ(client.get("/g/").status(), 200);
    EXPECT_EQ(order, (std::vector<std::string>{"outer", "second", "inner", "handler", "behind inner", "behind second",
                                               "behind outer", "send inner", "send second", "send outer"}));
}

TEST(Answers, OfABeforeEndTheChainAndAftersSeeThemAll) {
    App app;
    app.after([](Request& request, Response& response) {
        response.header("X-After", request.method() + " " + std::to_string(response.status()));
    });
    app.before([](Request& request, Response& response) {
        if (request.header("Authorization").empty()) {
            response.error(401, "who are you?");
        }
    });
    app.get("/", [](Request&, Response& response) { response.text("in"); });
    TestClient client(app);
    EXPECT_EQ(client.get("/").status(), 401);
    EXPECT_EQ(client.get("/").header("X-After"), "GET 401");
    const TestResponse in = client.send(TestRequest("GET", "/").header("Authorization", "me"));
    EXPECT_EQ(in.body(), "in");
    EXPECT_EQ(in.header("X-After"), "GET 200");
    EXPECT_EQ(client.get("/nothing").header("X-After"), "GET 401");
}

TEST(Answers, OfAMiddlewareThatCallsNextBehindThemAreItsOwn) {
    App app;
    Group error = app.group("/error");
    error.use([](Request&, Response& response, Next& next) {
        response.error(403, "not you");
        next();
        response.header("X-Behind", "1");
    });
    Group later = app.group("/later");
    later.use([](Request&, Response& response, Next& next) {
        const Later answer = response.later();
        next();
        EXPECT_TRUE(answer.text("late"));
    });
    Group head = app.group("/head");
    head.use([](Request&, Response& response, Next& next) {
        response.status(201).header("X-Before", "1");
        next();
    });
    for (Group group : {error, later}) {
        group.use([](Request&, Response&, Next&) { ADD_FAILURE() << "there is an answer"; });
        group.get("", [](Request&, Response&) { ADD_FAILURE() << "there is an answer"; });
    }
    head.get("", [](Request&, Response& response) { response.text("made"); });
    TestClient client(app);
    const TestResponse refused = client.get("/error");
    EXPECT_EQ(refused.status(), 403);
    EXPECT_EQ(refused.body(), "not you\n");
    EXPECT_EQ(refused.header("X-Behind"), "1");
    EXPECT_EQ(client.get("/later").body(), "late");
    const TestResponse made = client.get("/head");
    EXPECT_EQ(made.status(), 201);
    EXPECT_EQ(made.header("X-Before"), "1");
    EXPECT_EQ(made.body(), "made");
}

TEST(Answers, ThatAMiddlewareChangesTooLateAreSentAndLoggedOnce) {
    const TestLog log;
    App app;
    app.use([](Request& request, Response& response, Next& next) {
        next();
        if (request.hasQuery("fail")) {
            throw std::runtime_error("the disk is full");
        }
        response.header("X-Behind", "1");
    });
    app.get("/later/{n}", [](Request&, Response& response) { EXPECT_TRUE(response.later().text("late")); });
    app.get("/stream", [](Request&, Response& response) { response.stream([](Output& out) { out << "piece"; }); });
    TestClient client(app);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(client.get("/later/7").body(), "late");
        EXPECT_EQ(client.get("/stream").body(), "piece");
        EXPECT_EQ(client.get("/stream?fail=1").body(), "piece");
    }
    app.stop();
    EXPECT_EQ(log.texts(qlLogType::Failure, "beforeSend()").size(), 2U);
    EXPECT_EQ(log.texts(qlLogType::Failure,
                        "GET /later/7 (route /later/{n}) : a middleware, behind next(), threw an exception")
                  .size(),
              1U);
    EXPECT_EQ(log.texts(qlLogType::Failure, "the disk is full").size(), 3U);
}

TEST(Answers, OfAMiddlewareThatCallsNextTwiceAre500) {
    const TestLog log;
    App app;
    app.use([](Request&, Response&, Next& next) {
        next();
        next();
    });
    app.get("/", [](Request&, Response& response) { response.text(""); });
    TestClient client(app);
    EXPECT_EQ(client.get("/").status(), 500);
    EXPECT_EQ(log.texts(qlLogType::Failure, "next() twice").size(), 1U);
}

TEST(Answers, WhereNoRouteIsRunTheChainOfTheScope) {
    App app;
    app.use([](Request&, Response& response, Next& next) {
        next();
        response.header("X-App", "1");
    });
    Group api = app.group("/api");
    api.use([](Request&, Response& response, Next& next) {
        next();
        response.header("X-Api", "1");
    });
    api.put("/notes", [](Request&, Response& response) { response.text("put"); }).maxBody(10);
    api.get("/notes", [](Request&, Response& response) { response.text("got"); });
    api.get("/slash/", [](Request&, Response& response) { response.text("slash"); });
    TestClient client(app);

    const TestResponse options = client.options("/api/notes");
    EXPECT_EQ(options.status(), 204);
    EXPECT_EQ(options.header("Allow"), "GET, HEAD, OPTIONS, PUT");
    EXPECT_EQ(options.header("X-Api"), "1");
    EXPECT_EQ(options.header("X-App"), "1");

    const TestResponse other = client.del("/api/notes");
    EXPECT_EQ(other.status(), 405);
    EXPECT_EQ(other.header("Allow"), "GET, HEAD, OPTIONS, PUT");
    EXPECT_EQ(other.header("X-Api"), "1");

    const TestResponse nothing = client.get("/api/nothing");
    EXPECT_EQ(nothing.status(), 404);
    EXPECT_EQ(nothing.header("X-Api"), "1");
    const TestResponse outside = client.get("/nothing");
    EXPECT_EQ(outside.status(), 404);
    EXPECT_EQ(outside.header("X-Api"), "");
    EXPECT_EQ(outside.header("X-App"), "1");

    const TestResponse moved = client.get("/api/slash?a=b");
    EXPECT_EQ(moved.status(), 308);
    EXPECT_EQ(moved.header("Location"), "/api/slash/?a=b");
    EXPECT_EQ(moved.header("X-Api"), "1");

    const TestResponse large = client.put("/api/notes", std::string(11, 'x'));
    EXPECT_EQ(large.status(), 413);
    EXPECT_EQ(large.body(), "the body is larger than 10 bytes\n");
    EXPECT_EQ(client.put("/api/notes", std::string(10, 'x')).status(), 200);
}

TEST(Answers, WhereNoRouteIsCanBeReplaced) {
    App app;
    app.notFound([](Request& request, Response& response) { response.html("no " + request.path()); });
    app.group("/api")
        .methodNotAllowed([](Request& request, Response& response) {
            EXPECT_EQ(response.header("Allow"), "GET, HEAD, OPTIONS");
            response.text("not " + request.method());
        })
        .get("/x", [](Request&, Response& response) { response.text(""); });
    TestClient client(app);
    EXPECT_EQ(client.get("/nothing").status(), 404);
    EXPECT_EQ(client.get("/nothing").body(), "no /nothing");
    EXPECT_EQ(client.del("/api/x").status(), 405);
    EXPECT_EQ(client.del("/api/x").body(), "not DELETE");
    EXPECT_EQ(client.del("/api/x").header("Allow"), "GET, HEAD, OPTIONS");
    EXPECT_EQ(client.options("/api/x").status(), 204);
}

TEST(Answers, ToOptionsAreThoseOfTheRoutesThatHaveThem) {
    App app;
    app.get("/x", [](Request&, Response& response) { response.text("x"); });
    app.options("/x", [](Request&, Response& response) {
        response.header("Allow", "GET, OPTIONS").header("X-Own", "yes").empty();
    });
    app.get("/y", [](Request&, Response& response) { response.text("y"); });
    TestClient client(app);
    const TestResponse own = client.options("/x");
    EXPECT_EQ(own.status(), 204);
    EXPECT_EQ(own.header("X-Own"), "yes");
    EXPECT_EQ(own.header("Allow"), "GET, OPTIONS");
    EXPECT_EQ(client.get("/x").body(), "x");
    EXPECT_EQ(client.del("/x").header("Allow"), "GET, HEAD, OPTIONS");
    EXPECT_EQ(client.options("/y").header("X-Own"), "");
}

TEST(Answers, WhereNoRouteIsAreTheErrorHandlersToo) {
    std::thread::id daemon;
    App app;
    app.get("/quick",
            [&daemon](Request&, Response& response) {
                daemon = std::this_thread::get_id();
                response.text("");
            })
        .quick();
    app.onError([&daemon](const Failure& failure, Request&, Response& response) {
        EXPECT_NE(std::this_thread::get_id(), daemon);
        response.error(failure.status(), "E " + failure.text());
    });
    app.get("/x", [](Request&, Response& response) { response.text(""); });
    app.webSocket("/socket", [](Request&, SocketOpening& opening) { opening.accept(); });
    TestClient client(app, {.threads = 1});
    EXPECT_EQ(client.get("/quick").status(), 200);
    const TestResponse nothing = client.get("/nothing");
    EXPECT_EQ(nothing.status(), 404);
    EXPECT_EQ(nothing.body(), "E Not Found\n");
    const TestResponse other = client.del("/x");
    EXPECT_EQ(other.status(), 405);
    EXPECT_EQ(other.body(), "E Method Not Allowed\n");
    EXPECT_EQ(other.header("Allow"), "GET, HEAD, OPTIONS");
    EXPECT_EQ(client.get("/socket").body(), "E Upgrade Required\n");
    EXPECT_EQ(client.options("/x").status(), 204);
}

TEST(Answers, OfAnErrorHandlerWhereNoRouteIsAreSeenByMiddlewares) {
    App app;
    app.onError([](const Failure&, Request&, Response& response) { response.text("E"); });
    app.use([](Request&, Response& response, Next& next) {
        next();
        EXPECT_TRUE(response.isSet());
        response.header("X-App", "1");
    });
    TestClient client(app);
    const TestResponse nothing = client.get("/nothing");
    EXPECT_EQ(nothing.status(), 404);
    EXPECT_EQ(nothing.body(), "E");
    EXPECT_EQ(nothing.header("X-App"), "1");
}

TEST(Answers, ToOtherMethodsSayWhichAreAllowedWhateverReplacesThem) {
    App app;
    app.group("/set")
        .methodNotAllowed([](Request&, Response& response) { response.error(405, "set"); })
        .get("", [](Request&, Response& response) { response.text(""); });
    app.group("/thrown")
        .methodNotAllowed([](Request&, Response&) { throw HttpError(405, "thrown"); })
        .get("", [](Request&, Response& response) { response.text(""); });
    app.group("/other")
        .methodNotAllowed([](Request&, Response& response) { response.error(404, "other"); })
        .get("", [](Request&, Response& response) { response.text(""); });
    TestClient client(app);
    for (const std::string name : {"set", "thrown"}) {
        const TestResponse response = client.del("/" + name);
        EXPECT_EQ(response.status(), 405);
        EXPECT_EQ(response.body(), name + "\n");
        EXPECT_EQ(response.header("Allow"), "GET, HEAD, OPTIONS");
    }
    EXPECT_EQ(client.del("/other").header("Allow"), "");
}

TEST(Answers, SendNobodyToAnotherHost) {
    App app;
    app.get("/{rest:path}", [](Request&, Response& response) { response.text(""); });
    app.get("/x/", [](Request&, Response& response) { response.text(""); });
    app.start({.port = 0, .patience = std::chrono::milliseconds(0), .quiet = true});
    for (const char* target : {"//evil.example/", "//evil.example", "//x", "//x/", "///x"}) {
        RawClient client(app.port());
        const RawResponse response = client.exchange(get(target));
        EXPECT_NE(response.value("Location").substr(0, 2), "//") << target;
    }
}

TEST(Answers, ToTargetsThatAreNoneAre400) {
    App app;
    app.get("/{rest:path}", [](Request&, Response& response) { response.text(""); });
    app.start({.port = 0, .patience = std::chrono::milliseconds(0), .quiet = true});
    for (const char* target : {"/%00", "/%zz", "/%c3%28", "/a/../b", "/a/%2e%2e/b", "/./x"}) {
        RawClient client(app.port());
        EXPECT_EQ(client.exchange(get(target)).status, 400) << target;
    }
    RawClient client(app.port());
    client.send(vireotest::head("OPTIONS", "*"));
    EXPECT_EQ(client.readHead().status, 204);
}

TEST(Answers, ThatCannotBeSentKeepNobodyWaiting) {
    class Failing final : public impl::BodyEncoder {
    public:
        std::string_view coding() const override { return "none"; }
        std::optional<std::string> whole(std::string_view) override { throw std::runtime_error("no room"); }
        void piece(std::string_view, bool, std::string&) override { throw std::runtime_error("no room"); }
        void end(std::string&) override { throw std::runtime_error("no room"); }
    };
    const TestLog log;
    App app;
    app.after([](Request&, Response& response) {
        impl::ResponseAccess::state(response).answer.encoder = std::make_unique<Failing>();
    });
    app.get("/whole", [](Request&, Response& response) { response.text("whole"); });
    app.get("/later", [](Request&, Response& response) { EXPECT_TRUE(response.later().text("late")); });
    app.get("/stream", [](Request&, Response& response) { response.stream([](Output& out) { out << "piece"; }); });
    app.get("/events", [](Request&, Response& response) {
        impl::Answer& answer = impl::ResponseAccess::state(response).answer;
        answer.begin = [](const std::shared_ptr<impl::AppExchange>&, impl::Service&) {
            throw std::runtime_error("no room");
        };
        answer.isSet = true;
    });
    app.start({.port = 0, .quiet = true});
    for (const char* target : {"/whole", "/later"}) {
        RawClient client(app.port());
        EXPECT_EQ(client.exchange(get(target)).status, 500) << target;
    }
    for (const char* target : {"/stream", "/events"}) {
        // A 500, or broken off where the head has gone already.
        RawClient client(app.port());
        client.send(get(target, "Connection: close\r\n"));
        EXPECT_EQ(client.readToEnd().find("0\r\n\r\n"), std::string::npos) << target;
    }
    app.stop();
    EXPECT_EQ(log.texts(qlLogType::Failure, "no room").size(), 4U);
}

TEST(Answers, OfOwnMethodsAreServed) {
    App app;
    app.route("PROPFIND", "/", [](Request& request, Response& response) { response.text(request.method()); });
    TestClient client(app);
    EXPECT_EQ(client.send(TestRequest("PROPFIND", "/")).body(), "PROPFIND");
    EXPECT_EQ(client.get("/").status(), 405);
}

TEST(Answers, AreRefusedWhatIsNoneAtOnce) {
    App app;
    app.get("/", [](Request&, Response& response) {
        EXPECT_THROW(response.status(199), std::invalid_argument);
        EXPECT_THROW(response.status(600), std::invalid_argument);
        EXPECT_THROW(response.error(399), std::invalid_argument);
        EXPECT_THROW(response.error(600, "far"), std::invalid_argument);
        EXPECT_THROW(response.header("a b", ""), std::invalid_argument);
        EXPECT_THROW(response.header("A", "\n"), std::invalid_argument);
        EXPECT_THROW(response.header("Content-Length", "1"), std::invalid_argument);
        response.header("ETag", "\"1\"");
        EXPECT_THROW(response.addHeader("etag", "\"2\""), std::invalid_argument);
        EXPECT_THROW(response.redirect("/", 200), std::invalid_argument);
        EXPECT_THROW(response.redirect("/\r\nX: y"), std::invalid_argument);
        EXPECT_THROW(response.redirect(""), std::invalid_argument);
        response.redirect("/there");
    });
    TestClient client(app);
    EXPECT_EQ(client.get("/").status(), 303);
    EXPECT_EQ(client.get("/").header("Location"), "/there");
    EXPECT_THROW(app.get("/y", [](Request&, Response&) {}), std::logic_error) << "the app runs";
}

TEST(Routes, ThatAreNoneAreRefusedAtOnce) {
    App app;
    const Handler handler = [](Request&, Response& response) { response.text(""); };
    EXPECT_THROW(app.get("x", handler), std::invalid_argument);
    EXPECT_THROW(app.get("", handler), std::invalid_argument);
    EXPECT_THROW(app.get("/{a}/{a}", handler), std::invalid_argument);
    EXPECT_THROW(app.get("/", nullptr), std::invalid_argument);
    EXPECT_THROW(app.route("A B", "/", handler), std::invalid_argument);
    EXPECT_THROW(app.route("get", "/", handler), std::invalid_argument);
    EXPECT_THROW(app.route("Propfind", "/", handler), std::invalid_argument);
    EXPECT_THROW(app.group("/x/"), std::invalid_argument);
    EXPECT_THROW(app.group("/x").get("y", handler), std::invalid_argument);
    EXPECT_THROW(app.get("/quick", handler).quick().maxBody(1048577), std::invalid_argument);
    EXPECT_THROW(app.get("/quick", handler).maxBody(1048577).quick(), std::logic_error);
    EXPECT_THROW(app.files("/listed", ".", FileOptions().listing()).quick(), std::logic_error);
    app.files("/files", ".").quick();
    EXPECT_THROW(app.use(nullptr), std::invalid_argument);
    EXPECT_THROW(app.trustProxies({"nobody"}), std::invalid_argument);
}

TEST(Routes, ThatCannotBeToldApartAreRefusedAtTheStart) {
    App app;
    const Handler handler = [](Request&, Response& response) { response.text(""); };
    app.get("/{a}", handler);
    app.group("").get("/{b}", handler);
    EXPECT_THROW(app.start({.port = 0}), std::invalid_argument);
    EXPECT_FALSE(app.isRunning());
}

TEST(Routes, AreServedByTheOptionsThatTheToolkitNeeds) {
    App app;
    using ql::http::ServerOptions;
    const auto startWith = [&app](const std::function<void(ServerOptions&)>& change) {
        app.start({.port = 0, .quiet = true, .server = change});
    };
    EXPECT_THROW(startWith([](ServerOptions& options) { options.setWaiting(ServerOptions::Waiting::Polling); }),
                 std::invalid_argument);
    EXPECT_THROW(startWith([](ServerOptions& options) { options.setStrictHttp(false); }), std::invalid_argument);
    EXPECT_THROW(startWith([](ServerOptions& options) { options.setFiling(ServerOptions::Filing::Maps); }),
                 std::invalid_argument);
    EXPECT_THROW(startWith([](ServerOptions& options) {
                     class Owner : public ql::http::RequestOwner {
                         void onRequestDone(ql::HttpBaseRequest&, std::string_view) override {}
                     };
                     options.setRequestOwner(std::make_shared<Owner>());
                 }),
                 std::invalid_argument);
    EXPECT_THROW(startWith([](ServerOptions& options) {
                     class Acceptor : public ql::http::WebSocketAcceptor {
                         ql::http::WebSocketAnswer decide(const ql::http::WebSocketOpening&) override {
                             return ql::http::WebSocketAnswer::Pass();
                         }
                     };
                     options.setWebSockets(std::make_shared<Acceptor>());
                 }),
                 std::invalid_argument);
    EXPECT_FALSE(app.isRunning());
    startWith([](ServerOptions& options) { options.setMaxHeadBytes(1000); });
    EXPECT_TRUE(app.isRunning());
}

} // namespace
} // namespace vireo
