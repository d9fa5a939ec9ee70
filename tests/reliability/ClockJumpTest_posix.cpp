// The clock that tells the time of day is put forward or back by a day while a server serves: what shows a time
// follows, what has to end by a time ends by the new one, and nobody waits longer or shorter.

#include "support/Event.h"
#include "support/RawClient.h"
#include "support/TestFile.h"
#include "support/WaitUntil.h"
#include "support/WallClock.h"
#include "vireo/ExchangeObserver.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/ServerOptions.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/app.h"
#include "vireo/app/RateLimit.h"
#include "vireo/app/Session.h"
#include "vireo/app/TestClient.h"
#include "vireo/app/Timeout.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlThread.h"
#include "vireo/support/qlWaitCondition.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vireotest {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::system_clock;
using vireo::App;
using vireo::Later;
using vireo::Request;
using vireo::Response;
using vireo::RunOptions;
using vireo::Sessions;
using vireo::TestClient;
using vireo::TestRequest;
using vireo::TestResponse;

constexpr hours Day{24};
/// A reading of the clock may be of the second before.
constexpr std::chrono::seconds Grain{1};

class ClockJump : public testing::TestWithParam<hours> {
protected:
    void jump() { clock_.put(GetParam()); }
    void put(hours ahead) { clock_.put(ahead); }

private:
    WallClock clock_;
};

INSTANTIATE_TEST_SUITE_P(By, ClockJump, testing::Values(Day, -Day), [](const auto& by) {
    return by.param > hours(0) ? std::string("ADayForwards") : std::string("ADayBackwards");
});

system_clock::time_point timeOf(const std::string& date) {
    std::tm fields{};
    EXPECT_NE(::strptime(date.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &fields), nullptr) << date;
    return system_clock::from_time_t(::timegm(&fields));
}

/// Keeps what is told of each exchange.
class Records : public ql::http::ExchangeObserver {
public:
    void onExchange(const ql::http::ExchangeRecord& record) override {
        const std::lock_guard lock(mutex_);
        records_.push_back(record);
    }

    /// Waits for it.
    ql::http::ExchangeRecord at(std::size_t index) {
        const auto isThere = [&] {
            const std::lock_guard lock(mutex_);
            return index < records_.size();
        };
        EXPECT_TRUE(waitUntil(isThere));
        const std::lock_guard lock(mutex_);
        return records_.at(index);
    }

private:
    std::mutex mutex_;
    std::vector<ql::http::ExchangeRecord> records_;
};

TEST_P(ClockJump, AnswersAndRecordsShowTheNewTime) {
    const auto records = std::make_shared<Records>();
    App app;
    app.get("/", [](Request&, Response& response) { response.text("now"); });
    app.get("/jump", [this](Request&, Response& response) {
        jump();
        response.text("later");
    });
    RunOptions options;
    options.server = [&records](ql::http::ServerOptions& server) { server.addExchangeObserver(records); };
    TestClient client(app, options);
    std::size_t count = 0;
    for (const char* const target : {"/", "/jump", "/", "/"}) {
        const system_clock::time_point before = system_clock::now() - Grain;
        const TestResponse answer = client.get(target);
        const bool hasJumped = std::string(target) == "/jump";
        const system_clock::time_point date = timeOf(answer.header("Date"));
        EXPECT_GE(date, before + (hasJumped ? GetParam() : hours(0))) << target;
        EXPECT_LE(date, system_clock::now()) << target;
        const ql::http::ExchangeRecord record = records->at(count++);
        EXPECT_GE(record.getStartTime(), before) << target;
        EXPECT_LE(record.getStartTime(), system_clock::now() - (hasJumped ? GetParam() : hours(0))) << target;
        EXPECT_GE(record.getTotalDurationMs(), 0) << target;
        EXPECT_LT(milliseconds(record.getTotalDurationMs()), hours(1)) << target;
        if (count == 3) {
            put(hours(0));
        }
    }
}

TEST_P(ClockJump, SessionsEndByTheNewTime) {
    const Sessions sessions(vireo::SessionOptions(vireo::newKey()).maxAge(2 * Day).lifetime(3 * Day));
    App app;
    app.use(sessions.middleware());
    app.get("/login", [&](Request& request, Response& response) {
        sessions.of(request).clear();
        sessions.of(request).set("user", "ada");
        response.empty();
    });
    app.get("/", [&](Request& request, Response& response) { response.text(sessions.of(request).get("user")); });
    app.get("/jump", [&](Request& request, Response& response) {
        jump();
        sessions.of(request).set("more", "x");
        response.text(sessions.of(request).get("user"));
    });
    TestClient client(app);
    EXPECT_NE(client.get("/login").header("Set-Cookie").find("Max-Age=172800;"), std::string::npos);
    jump();
    EXPECT_EQ(client.get("/").body(), "ada");
    put(hours(0));
    EXPECT_EQ(client.get("/jump").body(), "ada");
    EXPECT_EQ(client.get("/").body(), "ada");
    put(hours(0));
    EXPECT_EQ(client.get("/").body(), "ada");
    // By whichever time it was given out, and however often it was renewed.
    put(3 * Day);
    EXPECT_EQ(client.get("/").body(), "");
    jump();
    EXPECT_NE(client.get("/login").header("Set-Cookie").find("Max-Age=172800;"), std::string::npos);
    EXPECT_EQ(client.get("/").body(), "ada");
}

TEST_P(ClockJump, RatesNeitherShutOutNorOpenUp) {
    App app;
    app.group("/hourly").use(vireo::rateLimit(1, hours(1))).get("", [](Request&, Response& response) {
        response.empty();
    });
    app.group("/often").use(vireo::rateLimit(1, milliseconds(20))).get("", [](Request&, Response& response) {
        response.empty();
    });
    TestClient client(app);
    EXPECT_EQ(client.get("/hourly").status(), 204);
    EXPECT_EQ(client.get("/often").status(), 204);
    jump();
    const TestResponse refused = client.get("/hourly");
    EXPECT_EQ(refused.status(), 429);
    EXPECT_LE(std::stoi(refused.header("Retry-After")), 3600);
    EXPECT_TRUE(waitUntil([&] { return client.get("/often").status() == 204; }));
}

TEST_P(ClockJump, WaitsTakeTheirTime) {
    const auto begin = std::chrono::steady_clock::now();
    jump();
    constexpr unsigned long Ms = 20;
    qlMutex mutex;
    qlWaitCondition condition;
    int wakes = 0;
    {
        const qlMutexLocker locker(mutex);
        // Nobody wakes it; it may wake by itself, which is rare.
        while (condition.wait(&mutex, Ms)) {
            ++wakes;
        }
    }
    EXPECT_LT(wakes, 10) << "it spins";
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(Ms));
    qlThread::msleep(Ms);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(2 * Ms));
}

TEST_P(ClockJump, TimeOutsAreOfNoClockOfTheDay) {
    std::vector<Later> unanswered;
    std::optional<Later> patient;
    App app;
    app.group("/short").use(vireo::timeout(milliseconds(50))).get("", [&](Request&, Response& response) {
        unanswered.push_back(response.later());
        jump();
    });
    app.group("/long").use(vireo::timeout(hours(1))).get("", [&](Request&, Response& response) {
        patient = response.later();
    });
    TestClient client(app);
    RawClient other(app.port());
    other.send(get("/long"));
    ASSERT_TRUE(waitUntil([&] { return client.get("/short").status() == 503; }));
    ASSERT_TRUE(patient->text("in time"));
    EXPECT_EQ(other.readResponse().body, "in time");
}

TEST_P(ClockJump, DeadlinesAreOfNoClockOfTheDay) {
    std::optional<Later> unanswered;
    App app;
    // At once, so that a busy machine makes no other answer late.
    app.get("/", [](Request&, Response& response) { response.text("served"); }).quick();
    app.get("/never", [&](Request&, Response& response) {
        unanswered = response.later();
        jump();
    });
    RunOptions options;
    options.server = [](ql::http::ServerOptions& server) { server.setAnswerTimeoutMs(500); };
    // Which has received of the slow one what that has sent when it serves the late one.
    options.threads = 1;
    TestClient client(app, options);
    RawClient idle(app.port());
    EXPECT_EQ(idle.exchange(get("/")).body, "served");
    RawClient slow(app.port());
    slow.send("GET / HTTP/1.1\r\n");
    RawClient late(app.port());
    late.send(get("/never"));
    // Deadlines have been looked at once this one is over.
    late.readToEnd();
    slow.send("Host: here\r\n\r\n");
    EXPECT_EQ(slow.readResponse().body, "served");
    EXPECT_EQ(idle.exchange(get("/")).body, "served");
}

TEST_P(ClockJump, IdleConnectionsEndInTheirTime) {
    App app;
    app.get("/", [](Request&, Response& response) { response.text("served"); });
    RunOptions options;
    options.idle = milliseconds(1000);
    TestClient client(app, options);
    RawClient idle(app.port());
    EXPECT_EQ(idle.exchange(get("/")).body, "served");
    jump();
    EXPECT_EQ(idle.readToEnd(), "");
}

TEST_P(ClockJump, SocketsAreAskedForASignOfLifeInTheirTime) {
    App app;
    ql::http::WebSocketOptions options;
    options.setPingIntervalMs(100);
    app.webSocketOptions(options);
    app.webSocket("/", [](Request&, vireo::SocketOpening& opening) {
        opening.accept().onText([](vireo::Socket& socket, std::string_view) { socket.send(""); });
    });
    TestClient client(app);
    const auto open = [&] {
        RawClient peer(app.port());
        peer.send(head("GET", "/",
                       "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                       "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"));
        EXPECT_EQ(peer.readHead().status, 101);
        return peer;
    };
    const auto takePing = [](RawClient& peer) {
        const std::string begin = peer.read(2);
        EXPECT_EQ(begin[0], '\x89');
        peer.read(static_cast<std::size_t>(begin[1]));
    };
    RawClient asked = open();
    takePing(asked);
    RawClient silent = open();
    silent.send(std::string_view("\x81\x80\0\0\0\0", 6));
    EXPECT_EQ(silent.read(2), std::string_view("\x81\0", 2)) << "it is served";
    jump();
    takePing(silent);
    // Times have been looked at once this one is asked.
    RawClient late = open();
    takePing(late);
    asked.send(std::string_view("\x8A\x80\0\0\0\0", 6));
    takePing(asked);
}

TEST_P(ClockJump, EventStreamsBeatInTheirTime) {
    vireo::EventChannel news(vireo::EventOptions().heartbeat(milliseconds(50)));
    App app;
    app.get("/", [&](Request&, Response& response) { response.events(news); });
    TestClient client(app);
    RawClient listener(app.port());
    listener.send(get("/"));
    EXPECT_EQ(listener.readHead().status, 200);
    listener.readUntil(":\n\n");
    jump();
    for (int i = 0; i < 3; ++i) {
        listener.readUntil(":\n\n");
    }
}

TEST_P(ClockJump, StopHasNoMoreThanItsPatience) {
    std::optional<Later> unanswered;
    Event asked;
    App app;
    app.get("/never", [&](Request&, Response& response) {
        unanswered = response.later();
        asked.set();
    });
    app.start({.port = 0, .patience = milliseconds(50), .quiet = true});
    RawClient client(app.port());
    client.send(get("/never"));
    ASSERT_TRUE(asked.wait());
    jump();
    app.stop();
    app.wait();
    EXPECT_FALSE(app.isRunning());
    unanswered.reset();
}

TEST_P(ClockJump, FilesAreServedAndFoundUnchanged) {
    const TestDirectory directory;
    directory.write("a.txt", "unchanged");
    App app;
    app.files("/", directory.path().string());
    TestClient client(app);
    jump();
    const TestResponse whole = client.get("/a.txt");
    EXPECT_EQ(whole.body(), "unchanged");
    EXPECT_LE(timeOf(whole.header("Last-Modified")), timeOf(whole.header("Date")));
    const TestResponse same = client.send(TestRequest("GET", "/a.txt").header("If-None-Match", whole.header("ETag")));
    EXPECT_EQ(same.status(), 304);
    EXPECT_LE(timeOf(same.header("Last-Modified")), timeOf(same.header("Date")));
}

TEST(CoarseClock, ThatIsStillInTheLastSecondDatesNoFileIntoTheFuture) {
    const TestDirectory directory;
    directory.write("a.txt", "new");
    App app;
    app.files("/", directory.path().string());
    TestClient client(app);
    WallClock clock;
    clock.put(-Day);
    clock.delayCoarse(std::chrono::seconds(1));
    const TestResponse answer = client.get("/a.txt");
    EXPECT_LE(timeOf(answer.header("Last-Modified")), timeOf(answer.header("Date")));
}

} // namespace
} // namespace vireotest
