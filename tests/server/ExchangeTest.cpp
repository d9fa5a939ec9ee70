#include "server/Exchange.h"

#include "streams/PollingWait.h"
#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "support/FakeSuspension.h"
#include "vireo/support/qlSystemUtils.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using ql::impl::DeadlineMarks;
using ql::impl::EngineConnection;
using ql::impl::Exchange;
using ql::impl::PollingWait;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::FakeSuspension;

constexpr auto NoSocket = static_cast<std::uint64_t>(-1);

class ExchangeTest : public testing::Test {
protected:
    ~ExchangeTest() override { exchange_.finish(); }

    void wait() { exchange_.wait(request_, qlSystemUtils::GetTimeBaseMs()); }
    void waitTwice() {
        wait();
        wait();
    }

    FakeClock clock_;
    const FakeSuspension engine_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    DeadlineMarks marks_;
    Exchange exchange_{EngineConnection(nullptr), NoSocket, 0, marks_};
};

TEST_F(ExchangeTest, FirstWaitLetsTheEngineCallAgain) {
    wait();
    EXPECT_EQ(FakeSuspension::suspended, 0);
}

TEST_F(ExchangeTest, EveryLaterWaitSuspendsUntilThereIsNews) {
    wait();
    for (int i = 1; i <= 3; ++i) {
        wait();
        EXPECT_TRUE(FakeSuspension::isSuspended());
        exchange_.news();
        EXPECT_FALSE(FakeSuspension::isSuspended());
        EXPECT_EQ(FakeSuspension::suspended, i);
    }
}

/// Counts the looks of a wait, and releases a response at one of them.
class LookCounter {
public:
    explicit LookCounter(ql::HttpResponseDevice& device) {
        looks = 0;
        device_ = &device;
        before_ = Exchange::pauseOfLooks.exchange([] {
            if (++looks == releaseAt) {
                device_->releaseResponse();
            }
        });
    }
    ~LookCounter() {
        Exchange::pauseOfLooks = before_;
        releaseAt = 0;
    }
    LookCounter(const LookCounter&) = delete;
    LookCounter& operator=(const LookCounter&) = delete;

    static inline int looks = 0;
    static inline int releaseAt = 0; ///< 0 for never

private:
    static inline ql::HttpResponseDevice* device_ = nullptr;
    void (*before_)() = nullptr;
};

TEST_F(ExchangeTest, AnswerThatComesAtOnceSparesTheSuspension) {
    const LookCounter counter(request_.editInternalResponseDevice());
    LookCounter::releaseAt = 3;
    waitTwice();
    EXPECT_EQ(LookCounter::looks, 3);
    EXPECT_EQ(FakeSuspension::suspended, 0);
}

TEST_F(ExchangeTest, LooksAFewTimesOnce) {
    const LookCounter counter(request_.editInternalResponseDevice());
    waitTwice();
    EXPECT_EQ(LookCounter::looks, 40);
    EXPECT_TRUE(FakeSuspension::isSuspended());
    exchange_.news();
    wait();
    EXPECT_EQ(LookCounter::looks, 40);
    EXPECT_TRUE(FakeSuspension::isSuspended());
}

TEST_F(ExchangeTest, LooksForNoAnswerWhereAnotherOneWaitsToo) {
    const LookCounter counter(request_.editInternalResponseDevice());
    FakeRequest otherRequest(application_);
    Exchange other(EngineConnection(nullptr), NoSocket, 0, marks_);
    wait();
    other.wait(otherRequest, qlSystemUtils::GetTimeBaseMs());
    wait();
    EXPECT_EQ(LookCounter::looks, 0);
    EXPECT_TRUE(FakeSuspension::isSuspended());
}

TEST_F(ExchangeTest, NewsBeforeAWaitSparesTheSuspensionOnce) {
    wait();
    exchange_.news();
    exchange_.news();
    wait();
    EXPECT_EQ(FakeSuspension::suspended, 0);
    wait();
    EXPECT_TRUE(FakeSuspension::isSuspended());
}

TEST_F(ExchangeTest, NewsOfOneSuspensionResumesOnce) {
    waitTwice();
    exchange_.news();
    exchange_.news();
    EXPECT_EQ(FakeSuspension::resumed, 1);
}

TEST_F(ExchangeTest, FinishedOneIsResumedAndPolledFor) {
    waitTwice();
    exchange_.finish();
    EXPECT_EQ(FakeSuspension::resumed, 1);
    PollingWait::ofThisThread().progress();
    wait();
    EXPECT_EQ(FakeSuspension::suspended, 1);
    clock_.advanceMs(100);
    EXPECT_NE(PollingWait::ofThisThread().takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()), 0) << "it counts";
    PollingWait::ofThisThread().progress();
    exchange_.news();
    EXPECT_EQ(FakeSuspension::resumed, 1);
}

TEST_F(ExchangeTest, CountsItsBodyWhereTheLengthIsKnown) {
    Exchange known(EngineConnection(nullptr), NoSocket, 10, marks_);
    known.countBody(4);
    EXPECT_EQ(known.bodyLeft(), 6U);
    Exchange unknown(EngineConnection(nullptr), NoSocket, Exchange::UnknownLength, marks_);
    unknown.countBody(4);
    EXPECT_EQ(unknown.bodyLeft(), Exchange::UnknownLength);
}

} // namespace
