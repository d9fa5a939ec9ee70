#include "websocket/pool/PollWaker.h"

#include "websocket/Fakes.h"
#include "websocket/pool/PollSet.h"

#include <gtest/gtest.h>

using namespace wstest;
using namespace ql::impl;

namespace {

class PollWakerTest : public testing::Test {
protected:
    PollWakerTest() {
        waker.open();
        set.reserve(1);
        system.poll = [this](void* entries, std::size_t count, int) {
            const int events = systemSocketFunctions.poll(entries, count, 0);
            woken = events > 0;
            return events;
        };
    }

    bool isRaised() {
        EXPECT_EQ(set.wait(0), 0);
        return woken;
    }

    FakeSystem system;
    PollWaker waker;
    PollSet set{waker.signal()};
    bool woken = false;
};

} // namespace

TEST_F(PollWakerTest, PollThreadThatIsNotWaitingIsNotWoken) {
    waker.wake();
    EXPECT_FALSE(isRaised());
    waker.beginWait();
    waker.endWait();
    waker.wake();
    EXPECT_FALSE(isRaised());
}

TEST_F(PollWakerTest, WaitIsEndedOnceHoweverOftenItIsAskedFor) {
    waker.beginWait();
    waker.wake();
    EXPECT_TRUE(isRaised());
    waker.wake();
    EXPECT_FALSE(isRaised());
    waker.endWait();
    waker.beginWait();
    waker.wake();
    EXPECT_TRUE(isRaised());
}

TEST_F(PollWakerTest, WriteIsNotedAlsoWhileNobodyWaits) {
    EXPECT_FALSE(waker.takeNotedWrite());
    waker.noteWrite();
    EXPECT_FALSE(isRaised());
    EXPECT_TRUE(waker.takeNotedWrite());
    EXPECT_FALSE(waker.takeNotedWrite());
    waker.beginWait();
    waker.noteWrite();
    EXPECT_TRUE(isRaised());
    EXPECT_TRUE(waker.takeNotedWrite());
}
