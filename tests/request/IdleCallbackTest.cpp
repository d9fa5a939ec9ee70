#include "vireo/HttpBaseRequest.h"

#include "support/FakeClock.h"
#include "support/FakeRequest.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>

namespace {

using Holder = ql::HttpBaseRequest::IdleCallbackHolder;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;

class IdleCallbackTest : public testing::Test {
protected:
    IdleCallbackTest() { request_.handleOnThisThread(); }

    std::function<void()> counting() {
        return [this] { ++calls_; };
    }

    FakeClock clock_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    std::unique_ptr<Holder> holder_;
    int calls_ = 0;
};

TEST_F(IdleCallbackTest, RunsOnceThePeriodHasPassed) {
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    clock_.advanceMs(999);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 0);
    clock_.advanceMs(1);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 1);
}

TEST_F(IdleCallbackTest, PeriodBeginsAgainAfterEachRun) {
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    clock_.advanceMs(1500);
    request_.updateIdleCallback();
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 1);
    clock_.advanceMs(999);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 1);
    clock_.advanceMs(1);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 2);
}

TEST_F(IdleCallbackTest, PeriodBeginsAgainWhenTheRunEnds) {
    request_.setIdleCallback(
        [this] {
            ++calls_;
            clock_.advanceMs(600);
        },
        1000, &holder_, false);
    clock_.advanceMs(1000);
    request_.updateIdleCallback();
    clock_.advanceMs(999);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 1);
}

TEST_F(IdleCallbackTest, RunsAtOnceWhenAsked) {
    request_.setIdleCallback(counting(), 1000, &holder_, true);
    EXPECT_EQ(calls_, 1);
    clock_.advanceMs(999);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 1);
    clock_.advanceMs(1);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 2);
}

TEST_F(IdleCallbackTest, DoesNotRunAtOnceUnlessAsked) {
    request_.setIdleCallback(counting(), 0, &holder_, false);
    EXPECT_EQ(calls_, 0);
}

TEST_F(IdleCallbackTest, RunAtOnceComesBeforeTheHolderIsReplaced) {
    const Holder sentinel{};
    const Holder* seen = &sentinel;
    request_.setIdleCallback([&] { seen = holder_.get(); }, 1000, &holder_, true);
    EXPECT_EQ(seen, nullptr);
    EXPECT_NE(holder_, nullptr);
}

TEST_F(IdleCallbackTest, PeriodOfZeroRunsAtEveryUpdate) {
    request_.setIdleCallback(counting(), 0, &holder_, false);
    request_.updateIdleCallback();
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 2);
}

TEST_F(IdleCallbackTest, ResetBeginsThePeriodAgainWithoutRunning) {
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    clock_.advanceMs(999);
    request_.resetIdleCallbackTimer();
    clock_.advanceMs(999);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 0);
    clock_.advanceMs(1);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 1);
}

TEST_F(IdleCallbackTest, ResetWithoutACallbackDoesNotReadTheClock) {
    const int before = clock_.readings();
    request_.resetIdleCallbackTimer();
    EXPECT_EQ(clock_.readings(), before);
}

TEST_F(IdleCallbackTest, WithoutHolderItDisarmsTheFormerOne) {
    request_.setIdleCallback([] {}, 1000, &holder_, false);
    request_.setIdleCallback(counting(), 1000, nullptr, false);
    clock_.advanceMs(100000);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 0);
}

TEST_F(IdleCallbackTest, ResetArmsAStoredCallbackWithoutHolder) {
    request_.setIdleCallback([] {}, 1000, &holder_, false);
    request_.setIdleCallback(counting(), 1000, nullptr, false);
    request_.resetIdleCallbackTimer();
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 1) << "its period is 0";
}

TEST_F(IdleCallbackTest, WithoutHolderItIsStoredButNeverRuns) {
    request_.setIdleCallback(counting(), 500, nullptr, true);
    EXPECT_EQ(calls_, 0);
    clock_.advanceMs(100000);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 0);
}

TEST_F(IdleCallbackTest, LaterCallbackReplacesTheFormer) {
    int later = 0;
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    holder_.reset();
    request_.setIdleCallback([&] { ++later; }, 2000, &holder_, false);
    clock_.advanceMs(1999);
    request_.updateIdleCallback();
    EXPECT_EQ(later, 0);
    clock_.advanceMs(1);
    request_.updateIdleCallback();
    EXPECT_EQ(later, 1);
    EXPECT_EQ(calls_, 0);
}

TEST_F(IdleCallbackTest, EmptyCallbackRemovesTheFormer) {
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    request_.setIdleCallback({}, 1000, &holder_, true);
    clock_.advanceMs(100000);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 0);
}

TEST_F(IdleCallbackTest, EmptyCallbackLeavesTheHolderAlone) {
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    const Holder* const before = holder_.get();
    request_.setIdleCallback({}, 0, &holder_, false);
    EXPECT_EQ(holder_.get(), before);
    EXPECT_EQ(holder_->request, &request_);
}

TEST_F(IdleCallbackTest, HolderNamesTheRequest) {
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    ASSERT_NE(holder_, nullptr);
    EXPECT_EQ(holder_->request, &request_);
}

TEST_F(IdleCallbackTest, InstallingElsewhereWithTheSameHolderDetachesTheFormerRequest) {
    FakeRequest other(application_);
    other.handleOnThisThread();
    int others = 0;
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    other.setIdleCallback([&] { ++others; }, 1000, &holder_, false);
    EXPECT_EQ(holder_->request, &other);
    clock_.advanceMs(1000);
    request_.updateIdleCallback();
    other.updateIdleCallback();
    EXPECT_EQ(calls_, 0);
    EXPECT_EQ(others, 1);
}

TEST_F(IdleCallbackTest, DetachingDestroysTheFormerCallback) {
    FakeRequest other(application_);
    auto held = std::make_shared<int>(0);
    request_.setIdleCallback([held] { ++*held; }, 1000, &holder_, false);
    ASSERT_EQ(held.use_count(), 2);
    other.setIdleCallback(counting(), 1000, &holder_, false);
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(IdleCallbackTest, InstallingOnTheSameRequestWithTheSameHolderDetachesThatToo) {
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    clock_.advanceMs(1000);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 0);
}

TEST_F(IdleCallbackTest, HoldersOfTheirOwnDoNotTouchEachOther) {
    FakeRequest other(application_);
    std::unique_ptr<Holder> otherHolder;
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    other.setIdleCallback([] {}, 1000, &otherHolder, false);
    clock_.advanceMs(1000);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 1);
}

TEST_F(IdleCallbackTest, HolderThatNamesNoRequestIsReplaced) {
    holder_ = std::make_unique<Holder>();
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    EXPECT_EQ(holder_->request, &request_);
    clock_.advanceMs(1000);
    request_.updateIdleCallback();
    EXPECT_EQ(calls_, 1);
}

TEST_F(IdleCallbackTest, StoppedWorkerTakesTheCallbackAway) {
    auto held = std::make_shared<int>(0);
    request_.setIdleCallback([held] { ++*held; }, 0, &holder_, false);
    request_.workerThreadStopHandling("");
    EXPECT_EQ(held.use_count(), 1);
    request_.handleOnThisThread();
    request_.updateIdleCallback();
    EXPECT_EQ(*held, 0);
}

TEST_F(IdleCallbackTest, UpdateNotifiesTheImplementationInEveryCase) {
    request_.updateIdleCallback();
    EXPECT_EQ(application_.notified, 1) << "no callback";
    request_.setIdleCallback(counting(), 1000, &holder_, false);
    request_.updateIdleCallback();
    EXPECT_EQ(application_.notified, 2) << "not due";
    clock_.advanceMs(1000);
    request_.updateIdleCallback();
    EXPECT_EQ(application_.notified, 3) << "due";
}

TEST_F(IdleCallbackTest, NotificationComesAfterTheCallback) {
    int callsWhenNotified = -1;
    application_.onNotify = [&] { callsWhenNotified = calls_; };
    request_.setIdleCallback(counting(), 0, &holder_, false);
    request_.updateIdleCallback();
    EXPECT_EQ(callsWhenNotified, 1);
}

TEST_F(IdleCallbackTest, InstallingAndResettingDoNotNotify) {
    request_.setIdleCallback(counting(), 0, &holder_, true);
    request_.resetIdleCallbackTimer();
    EXPECT_EQ(application_.notified, 0);
}

TEST_F(IdleCallbackTest, UpdateOnAnotherThreadDoesNothing) {
    request_.setIdleCallback(counting(), 0, &holder_, false);
    std::thread([this] { request_.updateIdleCallback(); }).join();
    EXPECT_EQ(calls_, 0);
    EXPECT_EQ(application_.notified, 0);
}

TEST_F(IdleCallbackTest, UpdateWithoutAWorkerDoesNothing) {
    FakeRequest unhandled(application_);
    unhandled.setIdleCallback(counting(), 0, &holder_, false);
    unhandled.updateIdleCallback();
    EXPECT_EQ(calls_, 0);
    EXPECT_EQ(application_.notified, 0);
}

} // namespace
