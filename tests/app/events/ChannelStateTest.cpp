#include "app/events/ChannelState.h"

#include "app/events/FakeListener.h"
#include "app/kernel/Courier.h"
#include "support/Event.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using namespace eventtest;
using vireo::impl::ChannelState;
using vireo::impl::Courier;
using vireo::impl::EventRules;
using vireo::impl::Subscription;
using vireotest::Event;
using vireotest::waitUntil;

namespace {

std::atomic<std::int64_t> testNowMs = 0;

class ChannelStateTest : public testing::Test {
protected:
    ChannelStateTest() { testNowMs = 1000; }
    /// What a courier is asked to do holds the channel, which holds the courier.
    ~ChannelStateTest() override {
        for (const std::shared_ptr<Courier>& made : couriers) {
            made->stop();
            while (made->turn()) {
            }
        }
    }

    std::shared_ptr<Courier> newCourier() {
        return couriers.emplace_back(std::make_shared<Courier>([] { return testNowMs.load(); }));
    }

    /// A listener of the first run.
    std::shared_ptr<Received> listen(std::string_view lastId = {}, bool isSlow = false) {
        return listenOf(courier, lastId, isSlow);
    }

    std::shared_ptr<Received> listenOf(const std::shared_ptr<Courier>& run, std::string_view lastId = {},
                                       bool isSlow = false) {
        auto received = std::make_shared<Received>();
        received->isSlow = isSlow;
        last = std::make_shared<Subscription>(channel, run, std::make_unique<FakeOutput>(received), greeting);
        const std::shared_ptr<ChannelState::Place> place = channel->reserve(lastId);
        wasAdded = place != nullptr && channel->add(last, run, *place);
        return received;
    }

    /// A listener of the first run whose place was taken before.
    std::shared_ptr<Received> come(ChannelState::Place& place) {
        auto received = std::make_shared<Received>();
        last = std::make_shared<Subscription>(channel, courier, std::make_unique<FakeOutput>(received), greeting);
        wasAdded = channel->add(last, courier, place);
        return received;
    }

    void publish(std::string_view data) { channel->publish({data, {}, {}, {}}); }

    /// All that there is to be done now.
    void settle() {
        while (courier->turn()) {
        }
    }

    void passMs(std::int64_t ms) {
        testNowMs += ms;
        settle();
    }

    void begin(const EventRules& rules) { channel = std::make_shared<ChannelState>(rules, ""); }

    std::vector<std::shared_ptr<Courier>> couriers;
    std::shared_ptr<Courier> courier = newCourier();
    std::shared_ptr<ChannelState> channel = std::make_shared<ChannelState>(EventRules(), "");
    std::shared_ptr<Subscription> last;
    std::string greeting;
    bool wasAdded = false;
};

std::string event(int number, const std::string& data) {
    return "id: " + std::to_string(number) + "\ndata: " + data + "\n\n";
}

} // namespace

TEST_F(ChannelStateTest, ListenersGetWhatIsPublishedAfterTheyCame) {
    publish("before");
    const auto listener = listen();
    publish("one");
    settle();
    publish("two");
    settle();
    EXPECT_EQ(listener->handOvers, (std::vector<std::string>{event(2, "one"), event(3, "two")}));
}

TEST_F(ChannelStateTest, EventsThatWereNotDeliveredYetGoTogether) {
    const auto listener = listen();
    publish("one");
    publish("two");
    settle();
    EXPECT_EQ(listener->handOvers, std::vector<std::string>{event(1, "one") + event(2, "two")});
}

TEST_F(ChannelStateTest, ListenersThatComeBackGetWhatTheyMissed) {
    for (const char* data : {"one", "two", "three"}) {
        publish(data);
    }
    const auto known = listen("2");
    const auto unknown = listen("before the restart");
    settle();
    EXPECT_EQ(known->all(), event(3, "three"));
    EXPECT_EQ(unknown->all(), event(1, "one") + event(2, "two") + event(3, "three"));
}

TEST_F(ChannelStateTest, IdsAreOfTheChannelUnlessTheyAreGiven) {
    channel = std::make_shared<ChannelState>(EventRules(), "ab-");
    const auto listener = listen();
    publish("one");
    channel->publish({"two", {}, "its own", {}});
    publish("three");
    const auto known = listen("ab-1");
    const auto ofAnother = listen("cd-2");
    settle();
    const std::string behind = "id: its own\ndata: two\n\nid: ab-3\ndata: three\n\n";
    EXPECT_EQ(listener->all(), "id: ab-1\ndata: one\n\n" + behind);
    EXPECT_EQ(known->all(), behind);
    EXPECT_EQ(ofAnother->all(), listener->all());
}

TEST_F(ChannelStateTest, GreetingComesFirst) {
    greeting = "retry: 5\n\n";
    const auto listener = listen();
    settle();
    EXPECT_EQ(listener->all(), greeting);
    publish("one");
    const auto late = listen("0");
    settle();
    EXPECT_EQ(listener->all(), greeting + event(1, "one"));
    EXPECT_EQ(late->all(), greeting + event(1, "one"));
    EXPECT_EQ(late->handOvers.size(), 1);
}

TEST_F(ChannelStateTest, ThoseWhoHaveNotTakenWhatTheyGotGetNothingMore) {
    constexpr int Events = 10000;
    std::vector<std::shared_ptr<Received>> listeners;
    for (int i = 0; i < 100; ++i) {
        listeners.push_back(listen({}, true));
    }
    std::string all;
    for (int i = 1; i <= Events; ++i) {
        publish(std::to_string(i));
        settle();
        all += event(i, std::to_string(i));
    }
    for (const auto& listener : listeners) {
        EXPECT_EQ(listener->handOvers.size(), 1);
        EXPECT_FALSE(listener->wasCut);
        listener->isEmpty = true;
    }
    passMs(ChannelState::LookMs);
    for (const auto& listener : listeners) {
        ASSERT_EQ(listener->handOvers.size(), 2) << "looked at without another event";
        EXPECT_EQ(listener->all(), all.substr(0, listener->all().size()));
        listener->isEmpty = true;
    }
    passMs(ChannelState::LookMs);
    for (const auto& listener : listeners) {
        EXPECT_EQ(listener->all(), all);
    }
}

TEST_F(ChannelStateTest, ReplayLargerThanAHandOverReachesASlowListenerWhole) {
    EventRules rules;
    rules.limits = {4096, 1048576, 2097152};
    begin(rules);
    const std::string kib(1000, 'k');
    std::string all;
    for (int i = 1; i <= 1000; ++i) {
        publish(kib);
        all += event(i, kib);
    }
    const auto listener = listen("0", true);
    settle();
    const std::string large(512000, 'l');
    publish(large);
    all += event(1001, large);
    settle();
    for (int i = 0; i < 100 && listener->all().size() < all.size(); ++i) {
        EXPECT_LE(listener->handOvers.back().size(), ChannelState::MaxHandOverBytes);
        listener->isEmpty = true;
        passMs(ChannelState::LookMs);
    }
    EXPECT_EQ(listener->all(), all);
    EXPECT_EQ(listener->handOvers.back(), event(1001, large));
    EXPECT_FALSE(listener->wasCut);
}

TEST_F(ChannelStateTest, WhoIsBehindWhatIsKeptIsCutAndOthersAreNot) {
    EventRules rules;
    rules.limits = {10, 1000, 1000};
    begin(rules);
    const auto quick = listen();
    const auto slow = listen({}, true);
    std::string all;
    for (int i = 1; i <= 200; ++i) {
        publish("0123456789");
        settle();
        all += event(i, "0123456789");
    }
    EXPECT_TRUE(slow->wasCut);
    EXPECT_EQ(slow->handOvers.size(), 1);
    EXPECT_FALSE(quick->wasCut);
    EXPECT_EQ(quick->all(), all);
    EXPECT_EQ(channel->listeners(), 1);
}

TEST_F(ChannelStateTest, EventsThatAreTooLargeAreRefused) {
    EventRules rules;
    rules.limits = {10, 100, 200};
    begin(rules);
    EXPECT_THROW(publish(std::string(200, 'x')), std::invalid_argument);
    publish(std::string(200 - event(1, "").size(), 'x'));
}

TEST_F(ChannelStateTest, EachRunDeliversToItsOwnListeners) {
    const std::shared_ptr<Courier> other = newCourier();
    const auto here = listen();
    const auto there = listenOf(other);
    publish("one");
    settle();
    EXPECT_EQ(here->all(), event(1, "one"));
    EXPECT_EQ(there->all(), "");
    while (other->turn()) {
    }
    EXPECT_EQ(there->all(), event(1, "one"));
    EXPECT_EQ(channel->listeners(), 2);
}

TEST_F(ChannelStateTest, DeliversAfterARunHasEndedAndAnotherBegun) {
    const auto old = listen();
    settle();
    last->end();
    courier->stop();
    settle();
    EXPECT_TRUE(old->hasEnded);
    EXPECT_EQ(channel->listeners(), 0);
    publish("between");
    courier = newCourier();
    const auto fresh = listen("0");
    publish("after");
    settle();
    EXPECT_EQ(fresh->all(), event(1, "between") + event(2, "after"));
}

TEST_F(ChannelStateTest, RunThatHasStoppedIsForgotten) {
    const auto listener = listen();
    settle();
    courier->stop();
    EXPECT_EQ(channel->listeners(), 1);
    publish("one");
    EXPECT_EQ(channel->listeners(), 0);
    listen();
    EXPECT_FALSE(wasAdded);
    EXPECT_EQ(channel->listeners(), 0);
}

TEST_F(ChannelStateTest, RunThatStopsDuringADeliveryIsCountedOnce) {
    const auto first = listen();
    const auto second = listen();
    settle();
    first->onWrite = [this] {
        courier->stop();
        publish("two");
        last->end();
    };
    publish("one");
    settle();
    EXPECT_TRUE(second->hasEnded);
    EXPECT_EQ(channel->listeners(), 0);
}

TEST_F(ChannelStateTest, CourierThatStopsDeliversWhatWasAskedFor) {
    Event begun;
    Event mayGoOn;
    courier->start();
    courier->at(0, [&] {
        begun.set();
        EXPECT_TRUE(mayGoOn.wait());
    });
    ASSERT_TRUE(begun.wait());
    const auto listener = listen();
    publish("last");
    std::future<void> stopped = std::async(std::launch::async, [this] { courier->stop(); });
    EXPECT_TRUE(waitUntil([this] { return !courier->deliver(channel); }));
    mayGoOn.set();
    stopped.get();
    EXPECT_EQ(listener->all(), event(1, "last"));
}

TEST_F(ChannelStateTest, CloseEndsListenersBehindWhatWasPublished) {
    const auto quick = listen();
    const auto slow = listen({}, true);
    settle();
    publish("one");
    settle();
    publish("two");
    channel->close();
    publish("three");
    settle();
    EXPECT_TRUE(quick->hasEnded);
    EXPECT_EQ(quick->all(), event(1, "one") + event(2, "two"));
    EXPECT_FALSE(slow->hasEnded);
    slow->isEmpty = true;
    passMs(ChannelState::LookMs);
    EXPECT_TRUE(slow->hasEnded);
    EXPECT_EQ(slow->all(), event(1, "one") + event(2, "two"));
    EXPECT_EQ(channel->listeners(), 0);
    listen();
    EXPECT_FALSE(wasAdded);
}

TEST_F(ChannelStateTest, EndOfTheRunDoesNotWaitForASlowListener) {
    const auto listener = listen({}, true);
    publish("one");
    settle();
    publish("two");
    last->end();
    settle();
    EXPECT_TRUE(listener->hasEnded);
    EXPECT_EQ(channel->listeners(), 0);
}

TEST_F(ChannelStateTest, ListenerWhoseExchangeIsOverIsDropped) {
    const auto listener = listen();
    settle();
    const std::weak_ptr<Subscription> subscription = last;
    last->onEnd();
    last.reset();
    settle();
    EXPECT_TRUE(subscription.expired());
    EXPECT_FALSE(listener->hasEnded) << "nobody writes to what is over";
    EXPECT_EQ(channel->listeners(), 0);
}

TEST_F(ChannelStateTest, ListenerThatWasOverBeforeItCameIsDropped) {
    auto received = std::make_shared<Received>();
    auto subscription = std::make_shared<Subscription>(channel, courier, std::make_unique<FakeOutput>(received), "");
    subscription->onEnd();
    EXPECT_TRUE(channel->add(subscription, courier, *channel->reserve({})));
    publish("one");
    settle();
    EXPECT_EQ(received->all(), "");
    EXPECT_EQ(channel->listeners(), 0);
}

TEST_F(ChannelStateTest, TakesNoMoreListenersThanItMay) {
    EventRules rules;
    rules.maxListeners = 2;
    begin(rules);
    listen();
    std::shared_ptr<ChannelState::Place> place = channel->reserve({});
    ASSERT_TRUE(place);
    EXPECT_FALSE(channel->reserve({})) << "one listens, and one is to come";
    place.reset();
    place = channel->reserve({});
    ASSERT_TRUE(place);
    come(*place);
    place.reset();
    EXPECT_TRUE(wasAdded);
    EXPECT_FALSE(channel->reserve({}));
    EXPECT_EQ(channel->listeners(), 2);
    last->onEnd();
    settle();
    EXPECT_TRUE(channel->reserve({}));
}

TEST_F(ChannelStateTest, NewListenersGetWhatIsKeptWhereThatIsForAll) {
    EventRules rules;
    rules.limits = {2, 1000, 1000};
    rules.isReplayedToAll = true;
    begin(rules);
    for (const char* data : {"one", "two", "three"}) {
        publish(data);
    }
    const auto fresh = listen();
    const auto back = listen("2");
    settle();
    EXPECT_EQ(fresh->all(), event(2, "two") + event(3, "three"));
    EXPECT_EQ(back->all(), event(3, "three"));
}

TEST_F(ChannelStateTest, WhatIsPublishedUntilAListenerIsThereIsKeptForIt) {
    EventRules rules;
    rules.limits = {1, 1000, 1000};
    begin(rules);
    publish("before");
    std::shared_ptr<ChannelState::Place> place = channel->reserve({});
    publish("one");
    publish("two");
    const auto listener = come(*place);
    place.reset();
    settle();
    EXPECT_EQ(listener->all(), event(2, "one") + event(3, "two"));
}

TEST_F(ChannelStateTest, NothingIsKeptForAListenerThatDoesNotCome) {
    EventRules rules;
    rules.limits = {1, 1000, 1000};
    begin(rules);
    std::shared_ptr<ChannelState::Place> place = channel->reserve({});
    for (const char* data : {"one", "two", "three"}) {
        publish(data);
    }
    place.reset();
    const auto listener = listen("1");
    settle();
    EXPECT_EQ(listener->all(), event(3, "three"));
}

TEST_F(ChannelStateTest, ClosedChannelGivesWhatAListenerHasNotSeenAndTheEnd) {
    publish("one");
    publish("two");
    channel->close();
    EXPECT_TRUE(channel->hasMore("1"));
    const auto behind = listen("1");
    settle();
    EXPECT_EQ(behind->all(), event(2, "two"));
    EXPECT_TRUE(behind->hasEnded);
    EXPECT_FALSE(channel->hasMore("2"));
    EXPECT_FALSE(channel->hasMore({}));
    listen("2");
    EXPECT_FALSE(wasAdded);
}

TEST_F(ChannelStateTest, ChannelThatIsLeftGivesAllThatIsKeptToWhoIsToCome) {
    publish("one");
    const std::shared_ptr<ChannelState::Place> place = channel->reserve({});
    const std::shared_ptr<ChannelState::Place> known = channel->reserve("1");
    publish("two");
    channel->leave();
    const auto listener = come(*place);
    const auto other = come(*known);
    settle();
    EXPECT_EQ(listener->all(), event(1, "one") + event(2, "two"));
    EXPECT_TRUE(listener->hasEnded);
    EXPECT_EQ(other->all(), event(2, "two"));
    EXPECT_TRUE(other->hasEnded);
}

TEST_F(ChannelStateTest, ChannelThatIsClosedGivesWhatIsNewToWhoIsToCome) {
    publish("one");
    const std::shared_ptr<ChannelState::Place> place = channel->reserve({});
    publish("two");
    channel->close();
    channel->leave();
    const auto listener = come(*place);
    settle();
    EXPECT_EQ(listener->all(), event(2, "two"));
    EXPECT_TRUE(listener->hasEnded);
}

TEST_F(ChannelStateTest, HeartbeatsGoToThoseThatTakeWhatTheyGot) {
    EventRules rules;
    rules.heartbeatMs = 100;
    begin(rules);
    const auto listener = listen();
    const auto slow = listen({}, true);
    publish("one");
    settle();
    passMs(99);
    EXPECT_EQ(listener->handOvers.size(), 1);
    passMs(1);
    EXPECT_EQ(listener->all(), event(1, "one") + ":\n\n");
    EXPECT_EQ(slow->all(), event(1, "one"));
    passMs(100);
    EXPECT_EQ(listener->all(), event(1, "one") + ":\n\n:\n\n");
}

TEST_F(ChannelStateTest, NoHeartbeatsWithoutAnInterval) {
    EventRules rules;
    rules.heartbeatMs = 0;
    begin(rules);
    const auto listener = listen();
    settle();
    passMs(1000000);
    EXPECT_EQ(listener->all(), "");
}

TEST_F(ChannelStateTest, ManyHeartbeatsLeaveATurnToOthers) {
    EventRules rules;
    rules.heartbeatMs = 100;
    begin(rules);
    constexpr int Count = 10000;
    std::vector<std::shared_ptr<Received>> listeners;
    for (int i = 0; i < Count; ++i) {
        listeners.push_back(listen());
    }
    settle();
    const auto beats = [&] {
        int count = 0;
        for (const auto& listener : listeners) {
            count += static_cast<int>(listener->handOvers.size());
        }
        return count;
    };
    testNowMs += 100;
    ASSERT_TRUE(courier->turn());
    EXPECT_EQ(beats(), ChannelState::BeatsATurn);
    int beatsBefore = -1;
    courier->at(testNowMs, [&] { beatsBefore = beats(); });
    settle();
    EXPECT_EQ(beats(), Count);
    EXPECT_GE(beatsBefore, ChannelState::BeatsATurn);
    EXPECT_LE(beatsBefore, 2 * ChannelState::BeatsATurn);
    for (const auto& listener : listeners) {
        ASSERT_EQ(listener->all(), ":\n\n");
    }
}

TEST_F(ChannelStateTest, ThoseThatLagGetTheRestOfAChannelThatNobodyHasAnyMore) {
    const auto listener = listen({}, true);
    publish("one");
    settle();
    publish("two");
    const std::weak_ptr<ChannelState> gone = channel;
    channel->close();
    channel.reset();
    settle();
    passMs(ChannelState::LookMs);
    EXPECT_FALSE(listener->hasEnded);
    listener->isEmpty = true;
    passMs(ChannelState::LookMs);
    EXPECT_EQ(listener->all(), event(1, "one") + event(2, "two"));
    EXPECT_TRUE(listener->hasEnded);
    EXPECT_TRUE(gone.expired());
}

TEST_F(ChannelStateTest, NothingIsLeftOfAChannelWithoutListeners) {
    EventRules rules;
    rules.heartbeatMs = 3600000;
    begin(rules);
    const auto listener = listen({}, true);
    publish("one");
    settle();
    publish("two");
    settle();
    const std::weak_ptr<ChannelState> gone = channel;
    last->onEnd();
    passMs(ChannelState::LookMs);
    channel.reset();
    EXPECT_TRUE(gone.expired());
}
