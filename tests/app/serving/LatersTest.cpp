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
#include <vector>

namespace vireo {
namespace {

using vireotest::Event;
using vireotest::get;
using vireotest::RawClient;
using vireotest::TestLog;
using vireotest::waitUntil;

const RunOptions Quietly{.port = 0, .patience = std::chrono::milliseconds(0), .quiet = true};

/// What a handler has left to others.
class Mailbox {
public:
    void put(Later later) {
        {
            const std::lock_guard lock(mutex_);
            later_.emplace(std::move(later));
        }
        here_.set();
    }

    Later take() {
        EXPECT_TRUE(here_.wait());
        const std::lock_guard lock(mutex_);
        Later later = *later_;
        later_.reset();
        return later;
    }

private:
    Event here_;
    std::mutex mutex_;
    std::optional<Later> later_;
};

TEST(Laters, AnswerFromAnyThreadWithWhatWasSetBefore) {
    for (const bool isQuick : {false, true}) {
        Mailbox mailbox;
        App app;
        Route route = app.get("/{name}", [&mailbox](Request&, Response& response) {
            response.header("X-Before", "1").beforeSend([](Response& sent) { sent.header("X-Hook", "1"); });
            const Later later = response.later();
            EXPECT_TRUE(response.isSet());
            EXPECT_FALSE(response.isSent());
            EXPECT_THROW(response.text("no"), std::logic_error);
            mailbox.put(later);
        });
        if (isQuick) {
            route.quick();
        }
        app.start(Quietly);
        RawClient client(app.port());
        client.send(get("/me"));
        const Later later = mailbox.take();
        EXPECT_FALSE(later.isGone());
        EXPECT_EQ(later.request().path("name"), "me");
        EXPECT_TRUE(later.answer([&later](Response& response) {
            EXPECT_EQ(response.header("X-Before"), "1");
            response.text(later.request().path("name"));
        }));
        const auto response = client.readResponse();
        EXPECT_EQ(response.body, "me");
        EXPECT_EQ(response.value("X-Before"), "1");
        EXPECT_EQ(response.value("X-Hook"), "1");
        EXPECT_FALSE(later.text("again")) << "it was answered";
        EXPECT_EQ(later.request().path("name"), "me") << "the request lives as long as the Later";
    }
}

TEST(Laters, AreOneHoweverOftenTheyAreAskedFor) {
    App app;
    app.get("/", [](Request&, Response& response) {
        const Later first = response.later();
        const Later second = response.later();
        EXPECT_TRUE(second.text("second"));
        EXPECT_FALSE(first.text("first"));
    });
    TestClient client(app);
    EXPECT_EQ(client.get("/").body(), "second");
}

TEST(Laters, LeaveNoBodyToBeRead) {
    App app;
    app.post("/", [](Request& request, Response& response) {
        Body& body = request.body();
        const Later later = response.later();
        EXPECT_THROW(body.read(), std::logic_error);
        EXPECT_THROW(request.body(), std::logic_error);
        EXPECT_TRUE(later.text("answered"));
    });
    TestClient client(app);
    EXPECT_EQ(client.post("/", "body").body(), "answered");
}

TEST(Laters, ThatThrowAnswerAsHandlersDo) {
    const TestLog log;
    App app;
    app.onError([](const Failure& failure, Request&, Response& response) { response.text("E " + failure.text()); });
    app.get("/throw", [](Request&, Response& response) {
        EXPECT_TRUE(response.later().answer([](Response&) { throw std::runtime_error("swordfish"); }));
    });
    app.get("/fail", [](Request&, Response& response) { EXPECT_TRUE(response.later().fail(410, "no more")); });
    app.get("/forget", [](Request&, Response& response) { EXPECT_TRUE(response.later().answer([](Response&) {})); });
    TestClient client(app);
    EXPECT_EQ(client.get("/throw").body(), "E internal error");
    EXPECT_EQ(client.get("/fail").status(), 410);
    EXPECT_EQ(client.get("/fail").body(), "E no more");
    EXPECT_EQ(client.get("/forget").status(), 500);
    EXPECT_EQ(log.texts(qlLogType::Failure, "swordfish").size(), 1U);
}

TEST(Laters, ThatGoUnansweredAre500WithTheRouteInTheLog) {
    const TestLog log;
    App app;
    app.onError([](const Failure&, Request&, Response&) { ADD_FAILURE() << "it may be under any lock"; });
    app.get("/x/{id}", [](Request&, Response& response) {
        response.beforeSend([](Response&) { ADD_FAILURE() << "it may be under any lock"; });
        response.later();
    });
    TestClient client(app);
    EXPECT_EQ(client.get("/x/7").status(), 500);
    EXPECT_EQ(log.texts(qlLogType::Failure, "Later went unanswered"),
              std::vector<std::string>{"GET /x/7 (route /x/{id}) : the last Later went unanswered"});
}

TEST(Laters, ThatAreLeftBehindByAHandlerThatThrowsAnswerAllTheSame) {
    const TestLog log;
    Mailbox mailbox;
    App app;
    app.get("/", [&mailbox](Request&, Response& response) {
        mailbox.put(response.later());
        throw HttpError(400, "too late");
    });
    app.start(Quietly);
    RawClient client(app.port());
    client.send(get("/"));
    const Later later = mailbox.take();
    EXPECT_TRUE(waitUntil([&] { return !log.texts(qlLogType::Failure, "too late").empty(); }));
    EXPECT_TRUE(later.text("answered"));
    EXPECT_EQ(client.readResponse().body, "answered");
}

TEST(Laters, ThatAHandlerThatThrowsHasKeptToItselfAnswerWithWhatItThrows) {
    const TestLog log;
    for (const bool isQuick : {false, true}) {
        App app;
        app.onError([](const Failure& failure, Request&, Response& response) { response.text("E " + failure.text()); });
        Route route = app.get("/{how}", [](Request& request, Response& response) {
            response.beforeSend([](Response& sent) { sent.header("X-Hook", "1"); });
            { const Later dropped = response.later(); }
            const Later later = response.later();
            if (request.path("how") == "answered") {
                EXPECT_TRUE(later.text("answered"));
            }
            throw HttpError(400, "bad\x1B");
        });
        if (isQuick) {
            route.quick();
        }
        TestClient client(app);
        const TestResponse response = client.get("/kept");
        EXPECT_EQ(response.status(), 400);
        EXPECT_EQ(response.body(), "E bad\x1B");
        EXPECT_EQ(response.header("X-Hook"), "1");
        EXPECT_EQ(log.texts(qlLogType::Failure, "nobody is told of").size(), isQuick ? 1U : 0U);
        EXPECT_EQ(client.get("/answered").body(), "answered");
        app.stop();
        EXPECT_EQ(log.texts(qlLogType::Failure, "nobody is told of : bad ").size(), isQuick ? 2U : 1U);
    }
    EXPECT_TRUE(log.texts(qlLogType::Failure, "went unanswered").empty());
}

TEST(Laters, OfClientsThatHaveGoneAreTold) {
    Mailbox mailbox;
    App app;
    app.get("/", [&mailbox](Request&, Response& response) { mailbox.put(response.later()); });
    app.start(Quietly);
    std::optional<RawClient> client(app.port());
    client->send(get("/"));
    const Later later = mailbox.take();
    client->reset();
    EXPECT_TRUE(waitUntil([&] { return later.isGone(); }));
    EXPECT_TRUE(waitUntil([&] { return !later.answer([](Response& response) { response.text(""); }); }));
}

TEST(Laters, AreWonByOneOfManyThreads) {
    std::atomic<int> answers{0};
    std::mutex mutex;
    App app;
    std::vector<std::thread> threads;
    app.get("/", [&](Request&, Response& response) {
        const Later later = response.later();
        const std::lock_guard lock(mutex);
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([later, i, &answers] {
                if (later.text(std::to_string(i))) {
                    ++answers;
                }
            });
        }
    });
    {
        TestClient client(app);
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(client.get("/").status(), 200);
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answers, 20);
}

TEST(Laters, HoldNeitherHandlersNorTheRun) {
    auto captured = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = captured;
    Mailbox mailbox;
    std::optional<Later> kept;
    std::optional<Group> group;
    {
        App app;
        group.emplace(app.group("/g"));
        const auto handler = [&mailbox, captured, app = static_cast<Group>(app), group = *group](Request&,
                                                                                                 Response& response) {
            response.beforeSend([captured](Response&) {});
            mailbox.put(response.later());
        };
        group->get("/", handler);
        group->use([captured](Request&, Response&, Next& next) { next(); });
        app.onError([captured](const Failure&, Request&, Response&) {});
        app.notFound([captured](Request&, Response&) {});
        captured.reset();
        app.start(Quietly);
        RawClient client(app.port());
        client.send(get("/g/"));
        kept.emplace(mailbox.take());
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
    EXPECT_TRUE(kept->isGone());
    EXPECT_FALSE(kept->text("late"));
    EXPECT_EQ(kept->request().path(), "/g/");
    EXPECT_THROW(group->get("/late", [](Request&, Response&) {}), std::logic_error);
}

} // namespace
} // namespace vireo
