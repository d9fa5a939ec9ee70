#include "vireo/app/Timeout.h"

#include "app/kernel/Answer.h"
#include "app/kernel/Courier.h"
#include "app/kernel/Service.h"
#include "support/Event.h"
#include "support/WaitUntil.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

using namespace std::chrono_literals;
using vireo::App;
using vireo::Later;
using vireo::Output;
using vireo::Request;
using vireo::Response;
using vireo::TestClient;
using vireotest::Event;
using vireotest::waitUntil;

namespace {

/// So long that what is quick is never late.
constexpr auto Long = 3600s;
constexpr auto Short = 20ms;

} // namespace

TEST(Timeout, AnswersInPlaceOfAHandlerThatTakesTooLong) {
    Event wasGone;
    App app;
    app.use(vireo::timeout(Short, 504));
    app.get("/", [&wasGone](Request& request, Response& response) {
        response.header("X-Half", "done");
        if (waitUntil([&request] { return request.isGone(); })) {
            wasGone.set();
        }
        response.text("too late");
    });
    TestClient client(app);
    const vireo::TestResponse response = client.get("/");
    EXPECT_EQ(response.status(), 504);
    EXPECT_EQ(response.header("X-Half"), "");
    EXPECT_TRUE(wasGone.wait());
}

TEST(Timeout, LeavesThoseAloneThatAreInTime) {
    App app;
    app.use(vireo::timeout(Long));
    app.get("/", [](Request&, Response& response) { response.text("in time"); });
    TestClient client(app);
    EXPECT_EQ(client.get("/").body(), "in time");
}

TEST(Timeout, HoldsForALater) {
    App app;
    std::optional<Later> kept;
    app.group("/short").use(vireo::timeout(Short)).get("/", [&kept](Request&, Response& response) {
        kept = response.later();
    });
    app.group("/long").use(vireo::timeout(Long)).get("/", [](Request&, Response& response) {
        response.later().text("in time");
    });
    TestClient client(app);
    EXPECT_EQ(client.get("/short/").status(), 503);
    EXPECT_FALSE(kept->text("too late"));
    EXPECT_TRUE(waitUntil([&kept] { return kept->isGone(); }));
    EXPECT_EQ(client.get("/long/").body(), "in time");
}

TEST(Timeout, LeavesStreamsAloneThatHaveBegun) {
    Event begun;
    Event mayGoOn;
    App app;
    app.use(vireo::timeout(Short));
    app.get("/stream", [&](Request&, Response& response) {
        response.stream([&](Output& out) {
            out << "one ";
            begun.set();
            EXPECT_TRUE(mayGoOn.wait());
            out << "two";
        });
    });
    app.get("/slow", [&mayGoOn](Request&, Response& response) {
        EXPECT_TRUE(mayGoOn.wait());
        response.text("too late");
    });
    TestClient client(app);
    std::future<std::string> stream = std::async(std::launch::async, [url = client.url()] {
        TestClient other(url);
        other.setPatience(30s);
        return other.get("/stream").body();
    });
    ASSERT_TRUE(begun.wait());
    // Due later than the stream's.
    EXPECT_EQ(client.get("/slow").status(), 503);
    mayGoOn.set();
    EXPECT_EQ(stream.get(), "one two");
}

TEST(Timeout, NothingIsLeftOfAnswersThatWereInTime) {
    std::shared_ptr<vireo::impl::Courier> courier;
    App app;
    app.use([&courier](Request&, Response& response, vireo::Next& next) {
        courier = vireo::impl::ResponseAccess::state(response).work->service->courier();
        next();
    });
    app.use(vireo::timeout(Long));
    app.get("/", [&courier](Request&, Response& response) {
        EXPECT_EQ(courier->timers(), 1);
        response.text("x");
    });
    app.get("/error", [](Request&, Response&) { throw vireo::HttpError(404); });
    app.get("/stream", [](Request&, Response& response) { response.stream([](Output& out) { out << "x"; }); });
    app.get("/later", [](Request&, Response& response) { response.later().text("x"); });
    TestClient client(app);
    for (const char* path : {"/", "/error", "/stream", "/later"}) {
        client.get(path);
        EXPECT_TRUE(waitUntil([&courier] { return courier->timers() == 0; })) << path;
    }
}

TEST(Timeout, RefusesWhatIsNoTimeOrNoError) {
    EXPECT_THROW(vireo::timeout(0ms), std::invalid_argument);
    EXPECT_THROW(vireo::timeout((std::chrono::milliseconds::max)()), std::invalid_argument);
    EXPECT_NO_THROW(vireo::timeout(std::chrono::hours(876600)));
    EXPECT_THROW(vireo::timeout(1ms, 399), std::invalid_argument);
    EXPECT_THROW(vireo::timeout(1ms, 600), std::invalid_argument);
}
