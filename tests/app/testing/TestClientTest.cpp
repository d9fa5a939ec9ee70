#include "vireo/app/TestClient.h"
#include "support/Event.h"
#include "support/TestLog.h"
#include "vireo/app.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vireo {
namespace {

/// An App that tells what it was asked.
class TestClientTest : public ::testing::Test {
protected:
    TestClientTest() {
        app.get("/hello/{name}",
                [](Request& request, Response& response) { response.text("hello " + request.path("name") + "\n"); });
        app.post("/echo", [](Request& request, Response& response) {
            response.bytes(request.body().text(), request.header("Content-Type"));
        });
        app.put("/echo", [](Request& request, Response& response) { response.text("put " + request.body().text()); });
        app.patch("/echo", [](Request&, Response& response) { response.status(202).text("patched"); });
        app.del("/echo", [](Request&, Response& response) { response.empty(); });
        app.get("/cookies", [](Request& request, Response& response) { response.text(request.header("Cookie")); });
        app.get("/cookies/{name}/{value}", [](Request& request, Response& response) {
            ql::http::SetCookie cookie(request.path("name"), request.path("value"));
            if (request.path("value") == "none") {
                cookie.setMaxAge(0);
            }
            response.cookie(cookie);
            response.empty();
        });
        app.get("/pieces", [](Request&, Response& response) {
            response.stream([](Output& out) {
                out << "one, "
                    << "two";
            });
        });
    }

    App app;
};

TEST_F(TestClientTest, AsksTheAppOnAPortOfItsOwn) {
    TestClient client(app);
    const TestResponse response = client.get("/hello/you");
    EXPECT_EQ(response.status(), 200);
    EXPECT_EQ(response.header("content-type"), "text/plain; charset=utf-8");
    EXPECT_EQ(response.body(), "hello you\n");
    EXPECT_EQ(client.url(), "http://127.0.0.1:" + std::to_string(app.port()));
    EXPECT_EQ(client.get("/nothing").status(), 404);
}

TEST_F(TestClientTest, SendsEachMethod) {
    TestClient client(app);
    EXPECT_EQ(client.post("/echo", "abc", "text/x-abc").header("Content-Type"), "text/x-abc");
    EXPECT_EQ(client.put("/echo", "abc").body(), "put abc");
    EXPECT_EQ(client.patch("/echo").status(), 202);
    EXPECT_EQ(client.del("/echo").status(), 204);
    EXPECT_EQ(client.options("/echo").header("Allow"), "DELETE, OPTIONS, PATCH, POST, PUT");
    const TestResponse head = client.head("/hello/you");
    EXPECT_EQ(head.header("Content-Length"), "10");
    EXPECT_EQ(head.body(), "");
}

TEST_F(TestClientTest, SendsBodiesInChunks) {
    TestClient client(app);
    const std::string body(100000, 'x');
    EXPECT_EQ(client.send(TestRequest("POST", "/echo").body(body, "text/plain").chunked(777)).body(), body);
}

TEST_F(TestClientTest, ReadsAnswersThatComeInPieces) {
    TestClient client(app);
    EXPECT_EQ(client.get("/pieces").body(), "one, two");
    EXPECT_EQ(client.get("/hello/you").body(), "hello you\n");
}

TEST_F(TestClientTest, SendsHeadersWithAllRequests) {
    app.get("/asked", [](Request& request, Response& response) {
        response.text(request.header("X-Tenant") + " " + request.header("Authorization"));
    });
    TestClient client(app);
    client.setHeader("X-Tenant", "a");
    client.setHeader("x-tenant", "b");
    client.setBasic("ada", "pass:word");
    EXPECT_EQ(client.get("/asked").body(), "b Basic YWRhOnBhc3M6d29yZA==");
    client.setBearer("abc");
    EXPECT_EQ(client.get("/asked").body(), "b Bearer abc");
    EXPECT_EQ(client.send(TestRequest("GET", "/asked").header("X-Tenant", "c").bearer("own")).body(), "c Bearer own");
    client.setHeader("Authorization", "");
    EXPECT_EQ(client.get("/asked").body(), "b ");
}

TEST_F(TestClientTest, KeepsCookies) {
    TestClient client(app);
    EXPECT_EQ(client.get("/cookies/a/1").cookie("a"), "1");
    client.get("/cookies/b/2");
    EXPECT_EQ(client.get("/cookies").body(), "a=1; b=2");
    client.get("/cookies/a/none");
    EXPECT_EQ(client.get("/cookies").body(), "b=2");
    client.clearCookies();
    EXPECT_EQ(client.get("/cookies").body(), "");
}

TEST_F(TestClientTest, ReadsAnAnswerThatComesBeforeTheBodyIsSent) {
    TestClient client(app);
    const TestResponse response = client.post("/echo", std::string(64000000, 'x'));
    EXPECT_EQ(response.status(), 413);
    EXPECT_EQ(client.get("/hello/you").status(), 200);
}

TEST_F(TestClientTest, AsksAServerThatRunsAlready) {
    app.start({.port = 0, .quiet = true});
    TestClient client(app.urls().front());
    EXPECT_EQ(client.get("/hello/you").status(), 200);
    TestClient beside(client.url());
    EXPECT_EQ(beside.get("/hello/you").status(), 200);
}

TEST_F(TestClientTest, StartsAndStopsTheAppThatItIsGiven) {
    for (int i = 0; i < 30; ++i) {
        TestClient client(app);
        EXPECT_TRUE(app.isRunning());
        EXPECT_EQ(client.get("/hello/you").status(), 200);
        EXPECT_THROW(TestClient{app}, std::logic_error);
        EXPECT_TRUE(app.isRunning());
    }
    EXPECT_FALSE(app.isRunning());
}

TEST_F(TestClientTest, RefusesWhatIsNotForTests) {
    EXPECT_THROW(TestClient(app, {.listen = {"*:0"}}), std::logic_error);
    EXPECT_THROW(TestClient(app, {.certificate = "a", .key = "b"}), std::logic_error);
    EXPECT_FALSE(app.isRunning());
    EXPECT_THROW(TestClient("https://127.0.0.1"), std::invalid_argument);
}

TEST_F(TestClientTest, TellsNothingOfItsStart) {
    const vireotest::TestLog log;
    TestClient client(app);
    EXPECT_TRUE(log.texts(qlLogType::Server, "http://").empty());
}

TEST_F(TestClientTest, SaysWhatDidNotComeInTime) {
    std::optional<Later> kept;
    app.get("/never", [&](Request&, Response& response) { kept = response.later(); });
    TestClient client(app);
    client.setPatience(std::chrono::milliseconds(50));
    try {
        client.get("/never");
        FAIL() << "an answer came";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "the answer to GET /never did not come in time");
    }
}

TEST_F(TestClientTest, SaysThatNobodyIsThere) {
    std::string url;
    {
        TestClient client(app);
        url = client.url();
    }
    TestClient late(url);
    EXPECT_THROW(late.get("/hello/you"), std::runtime_error);
}

/// Declared before the App whose handlers use it.
struct Upload {
    vireotest::Event entered;
    vireotest::Event brokenOff;
};

TEST(TestClient, BreaksOffWhatItHasBegun) {
    Upload upload;
    App app;
    app.post("/upload", [&](Request& request, Response& response) {
        upload.entered.set();
        try {
            response.text(request.body().text());
        } catch (const ClientGone&) {
            upload.brokenOff.set();
            throw;
        }
    });
    TestClient client(app);
    client.begin(TestRequest("POST", "/upload").body(std::string(2000000, 'x')), 1500000);
    ASSERT_TRUE(upload.entered.wait());
    EXPECT_FALSE(upload.brokenOff.isSet());
    client.abort();
    EXPECT_TRUE(upload.brokenOff.wait());
}

TEST(TestClient, ClosesItsConnectionsBeforeItStopsTheApp) {
    std::vector<Later> kept;
    vireotest::Event entered;
    App app;
    app.get("/never", [&](Request&, Response& response) {
        kept.push_back(response.later());
        entered.set();
    });
    {
        TestClient client(app);
        client.begin(TestRequest("GET", "/never"), 0);
        ASSERT_TRUE(entered.wait());
    }
    EXPECT_FALSE(app.isRunning());
    EXPECT_TRUE(kept.front().isGone());
}

} // namespace
} // namespace vireo
