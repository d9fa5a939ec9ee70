#include "support/Event.h"
#include "support/WaitUntil.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using vireo::App;
using vireo::EventChannel;
using vireo::EventOptions;
using vireo::Request;
using vireo::Response;
using vireo::TestClient;
using vireo::TestEvents;
using vireo::TestRequest;
using vireotest::Event;
using vireotest::waitUntil;

namespace {

void serve(App& app, const EventChannel& channel) {
    app.get("/events", [channel](Request&, Response& response) { response.events(channel); });
}

/// A listener that is there already.
TestEvents listen(TestClient& client, const EventChannel& channel, const std::string& lastId = {}) {
    const std::size_t before = channel.listeners();
    TestEvents events = client.events("/events", lastId);
    EXPECT_EQ(events.status(), 200);
    EXPECT_TRUE(waitUntil([&] { return channel.listeners() > before; }));
    return events;
}

/// The last part of an id that the channel has given.
int numberOf(const TestEvents& events) {
    return std::stoi(events.id().substr(events.id().find('-') + 1));
}

std::string nextData(TestEvents& events) {
    return events.next() ? events.data() : "(end)";
}

} // namespace

TEST(EventStreams, ListenersGetWhatIsPublished) {
    App app;
    EventChannel channel;
    serve(app, channel);
    TestClient client(app);
    TestEvents events = listen(client, channel);
    channel.publish("two\nlines");
    channel.publish({.data = "21.5", .event = "temperature", .id = "t1"});
    ASSERT_TRUE(events.next());
    EXPECT_EQ(events.data(), "two\nlines");
    EXPECT_EQ(events.event(), "message");
    EXPECT_EQ(numberOf(events), 1);
    ASSERT_TRUE(events.next());
    EXPECT_EQ(events.data(), "21.5");
    EXPECT_EQ(events.event(), "temperature");
    EXPECT_EQ(events.id(), "t1");
}

TEST(EventStreams, HeadSaysThatNothingMayKeepTheEvents) {
    App app;
    EventChannel channel;
    serve(app, channel);
    TestClient client(app);
    const vireo::TestResponse response = client.head("/events");
    EXPECT_EQ(response.status(), 200);
    EXPECT_EQ(response.header("Content-Type"), "text/event-stream");
    EXPECT_EQ(response.header("Cache-Control"), "no-store");
    EXPECT_EQ(response.header("X-Accel-Buffering"), "no");
    EXPECT_EQ(channel.listeners(), 0);
}

TEST(EventStreams, ListenersThatComeBackGetWhatTheyMissed) {
    App app;
    EventChannel channel;
    serve(app, channel);
    TestClient client(app);
    TestEvents first = listen(client, channel);
    for (const char* data : {"one", "two", "three"}) {
        channel.publish(data);
    }
    EXPECT_EQ(nextData(first), "one");
    EXPECT_EQ(nextData(first), "two");
    TestEvents known = listen(client, channel, first.id());
    EXPECT_EQ(nextData(known), "three");
    TestEvents unknown = listen(client, channel, "from another life");
    EXPECT_EQ(nextData(unknown), "one");
}

TEST(EventStreams, EventsOfAnotherChannelAreNotTakenForItsOwn) {
    App app;
    EventChannel before;
    EventChannel after;
    app.get("/before", [before](Request&, Response& response) { response.events(before); });
    serve(app, after);
    TestClient client(app);
    TestEvents old = client.events("/before");
    ASSERT_TRUE(waitUntil([&] { return before.listeners() == 1; }));
    before.publish("old");
    ASSERT_TRUE(old.next());
    for (const char* data : {"one", "two"}) {
        after.publish(data);
    }
    TestEvents comesBack = listen(client, after, old.id());
    EXPECT_EQ(nextData(comesBack), "one");
    EXPECT_NE(comesBack.id(), old.id());
}

TEST(EventStreams, ListenersThatGoAreForgotten) {
    App app;
    EventChannel channel;
    serve(app, channel);
    TestClient client(app);
    std::optional<TestEvents> events = listen(client, channel);
    TestEvents other = listen(client, channel);
    events.reset();
    // Noticed by what is sent to it, at the latest.
    EXPECT_TRUE(waitUntil([&] {
        channel.publish("still there?");
        return channel.listeners() == 1;
    }));
    EXPECT_EQ(nextData(other), "still there?");
}

TEST(EventStreams, StopEndsListenersAndTheChannelGoesOn) {
    App app;
    EventChannel channel;
    serve(app, channel);
    for (int run = 1; run <= 3; ++run) {
        app.start({.port = 0, .patience = 10s, .signals = false, .quiet = true});
        TestClient client("http://127.0.0.1:" + std::to_string(app.port()));
        TestEvents events = listen(client, channel);
        channel.publish(std::to_string(run));
        EXPECT_EQ(nextData(events), std::to_string(run));
        std::future<void> stopped = std::async(std::launch::async, [&app] { app.stop(); });
        EXPECT_EQ(nextData(events), "(end)");
        stopped.get();
        EXPECT_EQ(channel.listeners(), 0);
    }
}

TEST(EventStreams, ListenersThatComeWhileTheAppStopsAreEnded) {
    Event begun;
    Event mayGoOn;
    App app;
    const EventChannel channel;
    app.get("/events", [&](Request&, Response& response) {
        begun.set();
        EXPECT_TRUE(mayGoOn.wait());
        response.events(channel);
    });
    app.start({.port = 0, .patience = 30s, .signals = false, .quiet = true});
    std::future<std::string> got = std::async(std::launch::async, [&app] {
        TestClient client("http://127.0.0.1:" + std::to_string(app.port()));
        client.setPatience(30s);
        return client.get("/events").body();
    });
    ASSERT_TRUE(begun.wait());
    std::future<void> stopped = std::async(std::launch::async, [&app] { app.stop(); });
    // It is not told when it drains, but it takes no new clients any more.
    EXPECT_TRUE(waitUntil([&app] {
        try {
            TestClient("http://127.0.0.1:" + std::to_string(app.port())).head("/none");
            return false;
        } catch (const std::runtime_error&) {
            return true;
        }
    }));
    mayGoOn.set();
    EXPECT_EQ(got.get(), "");
    stopped.get();
    EXPECT_EQ(channel.listeners(), 0);
}

TEST(EventStreams, ListenerThatIsGoneBeforeItsStreamBeginsIsForgotten) {
    Event deferred;
    App app;
    EventChannel channel;
    std::optional<vireo::Later> later;
    app.get("/events", [&](Request&, Response& response) {
        later = response.later();
        deferred.set();
    });
    {
        TestClient client(app);
        client.begin(TestRequest("GET", "/events"), 0);
        ASSERT_TRUE(deferred.wait());
        EXPECT_TRUE(later->answer([&](Response& response) {
            client.abort();
            EXPECT_TRUE(waitUntil([&] { return later->isGone(); }));
            // So that it is over, too, as far as that can be told from here.
            vireotest::letOthersRun();
            response.events(channel);
        }));
        EXPECT_TRUE(waitUntil([&] { return channel.listeners() == 0; }));
    }
    EXPECT_EQ(channel.listeners(), 0);
}

TEST(EventStreams, OneChannelServesTwoApps) {
    EventChannel channel;
    App first;
    App second;
    serve(first, channel);
    serve(second, channel);
    TestClient firstClient(first);
    TestClient secondClient(second);
    TestEvents here = listen(firstClient, channel);
    TestEvents there = listen(secondClient, channel);
    channel.publish("to all");
    EXPECT_EQ(nextData(here), "to all");
    EXPECT_EQ(nextData(there), "to all");
}

TEST(EventStreams, ClosedChannelEndsItsListenersAndTakesNoMore) {
    App app;
    EventChannel channel;
    serve(app, channel);
    TestClient client(app);
    TestEvents events = listen(client, channel);
    channel.publish("last");
    channel.close();
    channel.publish("too late");
    EXPECT_EQ(nextData(events), "last");
    EXPECT_EQ(nextData(events), "(end)");
    EXPECT_EQ(client.get("/events").status(), 204);
}

TEST(EventStreams, GoWithTheLastOfTheirChannel) {
    App app;
    std::optional<EventChannel> channel(std::in_place);
    app.get("/events", [&channel](Request&, Response& response) { response.events(*channel); });
    TestClient client(app);
    TestEvents events = listen(client, *channel);
    channel.reset();
    EXPECT_EQ(nextData(events), "(end)");
}

TEST(EventStreams, NewListenersGetWhatIsKeptWhereThatIsForAll) {
    App app;
    EventChannel progress(EventOptions().replayToAll());
    serve(app, progress);
    TestClient client(app);
    progress.publish("half");
    TestEvents between = listen(client, progress);
    EXPECT_EQ(nextData(between), "half");
    progress.publish("done");
    progress.close();
    EXPECT_EQ(nextData(between), "done");
    EXPECT_EQ(nextData(between), "(end)");
    TestEvents late = client.events("/events");
    EXPECT_EQ(nextData(late), "half");
    EXPECT_EQ(nextData(late), "done");
    EXPECT_EQ(nextData(late), "(end)");
    EXPECT_EQ(client.send(TestRequest("GET", "/events").header("Last-Event-ID", late.id())).status(), 204);
}

TEST(EventStreams, ChannelOfAHandlerGivesItsClientAllAndTheEnd) {
    App app;
    app.get("/before", [](Request&, Response& response) {
        EventChannel own;
        own.publish("one");
        own.publish("two");
        response.events(own);
    });
    app.get("/behind", [](Request&, Response& response) {
        EventChannel own;
        response.events(own);
        own.publish("one");
        own.publish("two");
    });
    TestClient client(app);
    for (const char* target : {"/before", "/behind"}) {
        TestEvents events = client.events(target);
        EXPECT_EQ(events.status(), 200);
        EXPECT_EQ(nextData(events), "one");
        EXPECT_EQ(nextData(events), "two");
        EXPECT_EQ(nextData(events), "(end)");
    }
}

TEST(EventStreams, ChannelOfOneClientEndsWithTheWorkThatIsDoneForIt) {
    Event mayGoOn;
    App app;
    std::thread job;
    app.get("/", [&](Request&, Response& response) {
        EventChannel progress;
        response.events(progress);
        job = std::thread([&mayGoOn, progress] {
            progress.publish("begun");
            EXPECT_TRUE(mayGoOn.wait());
            progress.publish("done");
        });
    });
    TestClient client(app);
    TestEvents events = client.events("/");
    EXPECT_EQ(nextData(events), "begun");
    mayGoOn.set();
    EXPECT_EQ(nextData(events), "done");
    EXPECT_EQ(nextData(events), "(end)");
    job.join();
}

TEST(EventStreams, TooManyListenersAreTold) {
    App app;
    EventChannel channel(EventOptions().maxListeners(1));
    serve(app, channel);
    TestClient client(app);
    const TestEvents events = listen(client, channel);
    EXPECT_EQ(client.get("/events").status(), 503);
}

TEST(EventStreams, BrowsersAreToldHowLongToWait) {
    App app;
    EventChannel channel(EventOptions().retry(1500ms));
    serve(app, channel);
    TestClient client(app);
    std::future<std::string> got = std::async(std::launch::async, [&client] { return client.get("/events").body(); });
    ASSERT_TRUE(waitUntil([&] { return channel.listeners() == 1; }));
    channel.publish("x");
    channel.close();
    const std::string body = got.get();
    EXPECT_TRUE(body.starts_with("retry: 1500\n\nid: ")) << body;
    EXPECT_TRUE(body.ends_with("\ndata: x\n\n")) << body;
}

TEST(EventStreams, EventsOfManyThreadsArriveWholeAndEachThreadsInOrder) {
    constexpr int Publishers = 100;
    constexpr int EventsOfEach = 50;
    App app;
    EventChannel channel;
    serve(app, channel);
    TestClient client(app);
    client.setPatience(30s);
    TestEvents events = listen(client, channel);
    std::vector<std::thread> publishers;
    for (int publisher = 0; publisher < Publishers; ++publisher) {
        publishers.emplace_back([&channel, publisher] {
            for (int i = 0; i < EventsOfEach; ++i) {
                channel.publish({.data = std::to_string(i), .event = std::to_string(publisher)});
            }
        });
    }
    std::map<std::string, int> next;
    for (int i = 1; i <= Publishers * EventsOfEach; ++i) {
        if (!events.next()) {
            ADD_FAILURE() << "the stream ended before event " << i;
            break;
        }
        EXPECT_EQ(numberOf(events), i);
        EXPECT_EQ(events.data(), std::to_string(next[events.event()]++));
    }
    for (std::thread& publisher : publishers) {
        publisher.join();
    }
}

TEST(EventStreams, ListenerThatTakesNothingHoldsUpNobodyWithEventsOfAnySize) {
    for (const std::size_t size : {65400U, 65536U, 65600U, 262100U, 262144U, 262200U, 3000000U}) {
        App app;
        EventChannel channel(EventOptions().slowLimit(16777216));
        serve(app, channel);
        TestClient client(app);
        client.setPatience(30s);
        client.begin(TestRequest("GET", "/events"), 0);
        ASSERT_TRUE(waitUntil([&] { return channel.listeners() == 1; }));
        TestEvents events = listen(client, channel);
        for (int i = 0; i < 4; ++i) {
            const std::string data(size, static_cast<char>('a' + i));
            channel.publish(data);
            ASSERT_TRUE(events.next());
            EXPECT_EQ(events.data(), data);
        }
    }
}

TEST(EventStreams, ReplayOfAMebibyteReachesItsListenerWhole) {
    App app;
    EventChannel channel(EventOptions().replay(100000));
    serve(app, channel);
    TestClient client(app);
    client.setPatience(30s);
    const std::string kib(1000, 'k');
    constexpr int Count = 1000;
    for (int i = 0; i < Count; ++i) {
        channel.publish(kib);
    }
    TestEvents events = listen(client, channel, "0");
    for (int i = 1; i <= Count; ++i) {
        ASSERT_TRUE(events.next()) << i;
        ASSERT_EQ(numberOf(events), i);
    }
    const std::string large(512000, 'l');
    channel.publish(large);
    EXPECT_EQ(nextData(events), large);
}

TEST(EventOptions, RefuseWhatIsOutOfBounds) {
    EventOptions options;
    EXPECT_THROW(options.slowLimit(0), std::invalid_argument);
    EXPECT_THROW(options.heartbeat(9ms), std::invalid_argument);
    EXPECT_THROW(options.heartbeat((std::chrono::milliseconds::max)()), std::invalid_argument);
    EXPECT_NO_THROW(options.heartbeat(std::chrono::hours(876600)));
    EXPECT_THROW(options.heartbeat(-1ms), std::invalid_argument);
    EXPECT_THROW(options.retry(-1ms), std::invalid_argument);
    options.heartbeat(0ms).heartbeat(10ms).retry(0ms);
}
