#include "app/events/ChannelState.h"
#include "app/events/FakeListener.h"
#include "app/kernel/Courier.h"
#include "support/FailingAllocation.h"
#include "support/TestLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>

using namespace eventtest;
using testing::HasSubstr;
using vireo::impl::ChannelState;
using vireo::impl::Courier;
using vireo::impl::EventRules;
using vireo::impl::Subscription;

namespace {

std::int64_t testNowMs = 0;

/// A channel with a listener that takes all and one that lags, and the courier, on one thread.
struct Channel {
    Channel() {
        rules.heartbeatMs = 1000;
        listen(fast);
        listen(slow);
        slow->isSlow = true;
        settle();
    }
    ~Channel() {
        courier->stop();
        settle();
    }

    void listen(const std::shared_ptr<Received>& received) {
        const auto listener =
            std::make_shared<Subscription>(state, courier, std::make_unique<FakeOutput>(received), "");
        EXPECT_TRUE(state->add(listener, courier, *state->reserve({})));
    }
    void publish(std::string_view data) { state->publish({data, {}, {}, {}}); }
    void settle() {
        while (courier->turn()) {
        }
    }

    EventRules rules;
    std::shared_ptr<Courier> courier = std::make_shared<Courier>([] { return testNowMs; });
    std::shared_ptr<ChannelState> state = std::make_shared<ChannelState>(rules, "");
    std::shared_ptr<Received> fast = std::make_shared<Received>();
    std::shared_ptr<Received> slow = std::make_shared<Received>();
};

/// Does it with a channel of its own each time, the first, the second, … allocation failing, until none fails.
void withEachFailureOnce(const std::function<void(Channel&)>& act, const std::function<void(Channel&)>& check) {
    const vireotest::TestLog log;
    bool hasFailed = true;
    for (std::size_t nth = 1; hasFailed; ++nth) {
        SCOPED_TRACE(nth);
        Channel channel;
        const std::size_t before = vireotest::allocationFailures;
        vireotest::failAllocation(nth);
        try {
            act(channel);
        } catch (const std::bad_alloc&) {
            // Who asked for it is told.
        }
        vireotest::failAllocation(0);
        hasFailed = vireotest::allocationFailures != before;
        check(channel);
    }
}

} // namespace

TEST(ChannelMemoryTest, EventThatFailsHoldsUpNoLaterOne) {
    withEachFailureOnce([](Channel& channel) { channel.publish("one"); },
                        [](Channel& channel) {
                            channel.publish("two");
                            channel.settle();
                            EXPECT_THAT(channel.fast->all(), HasSubstr("data: two\n"));
                        });
}

TEST(ChannelMemoryTest, WakingThatFailsHoldsUpNoEvent) {
    withEachFailureOnce([](Channel& channel) { channel.state->wake(*channel.courier); },
                        [](Channel& channel) {
                            channel.publish("two");
                            channel.settle();
                            EXPECT_THAT(channel.fast->all(), HasSubstr("data: two\n"));
                        });
}

TEST(ChannelMemoryTest, WhoLagsGetsTheRestWithoutAnotherEvent) {
    withEachFailureOnce(
        [](Channel& channel) {
            channel.publish("one");
            channel.settle();
            channel.publish("two");
            channel.settle();
        },
        [](Channel& channel) {
            channel.slow->isSlow = false;
            channel.slow->isEmpty = true;
            for (int i = 0; i < 20; ++i) {
                testNowMs += 100;
                channel.settle();
            }
            const bool isThere = channel.slow->all().find("data: two\n") != std::string::npos;
            const bool wasPublished = channel.fast->all().find("data: two\n") != std::string::npos;
            EXPECT_TRUE(isThere || channel.slow->wasCut || !wasPublished) << channel.slow->all();
        });
}
