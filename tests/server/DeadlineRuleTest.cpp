#include "server/DeadlineRule.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

namespace {

using ql::impl::checkDeadline;
using ql::impl::CutReason;
using ql::impl::DeadlineLimits;
using ql::impl::LastProgress;
using ql::impl::Progress;
using ql::impl::Stage;

constexpr std::int64_t SinceMs = 1000;

DeadlineLimits limits() {
    DeadlineLimits limits;
    limits.headMs = 30;
    limits.idleMs = 700;
    limits.bodyBytes = 100;
    limits.bodyMs = 40;
    limits.answerMs = 50;
    limits.writeMs = 60;
    return limits;
}

struct Case {
    const char* name;
    Progress before;
    Progress now;
    /// When it is due; 0 for never.
    std::int64_t dueAfterMs;
    CutReason reason = CutReason::None;
};

class DeadlineRule : public testing::TestWithParam<Case> {
protected:
    LastProgress last_{GetParam().before, SinceMs};
};

TEST_P(DeadlineRule, IsDueAfterItsTimeAndNotBefore) {
    const Case& test = GetParam();
    const std::int64_t late = test.dueAfterMs == 0 ? 1000000000 : test.dueAfterMs;
    EXPECT_EQ(checkDeadline(last_, test.now, SinceMs + late - 1, limits()), CutReason::None);
    EXPECT_EQ(checkDeadline(last_, test.now, SinceMs + late, limits()), test.reason);
    EXPECT_EQ(checkDeadline(last_, test.now, SinceMs + late + 1, limits()), test.reason) << "and stays so";
}

TEST_P(DeadlineRule, IsNeverDueWithoutLimits) {
    DeadlineLimits none;
    none.bodyBytes = 100;
    EXPECT_EQ(checkDeadline(last_, GetParam().now, SinceMs + 1000000000, none), CutReason::None);
}

INSTANTIATE_TEST_SUITE_P(
    Staying, DeadlineRule,
    testing::Values(
        Case{"FirstHead", {0, Stage::FirstHead}, {0, Stage::FirstHead}, 30, CutReason::HeadTimeout},
        Case{"NextHead", {8, Stage::NextHead}, {8, Stage::NextHead}, 730, CutReason::HeadTimeout},
        Case{"Application", {8, Stage::Application}, {8, Stage::Application}, 0},
        Case{"Held", {8, Stage::Held}, {8, Stage::Held}, 50, CutReason::AnswerTimeout},
        Case{"Body", {8, Stage::Body, 10}, {8, Stage::Body, 10}, 40, CutReason::BodyTimeout},
        Case{"BodyBelowItsRate", {8, Stage::Body, 10}, {8, Stage::Body, 109}, 40, CutReason::BodyTimeout},
        Case{"Answer", {8, Stage::Answer}, {8, Stage::Answer}, 50, CutReason::AnswerTimeout},
        Case{"Sending", {8, Stage::Sending, 0, 5}, {8, Stage::Sending, 0, 5}, 60, CutReason::WriteTimeout},
        Case{"SendingOfWhichNothingIsKnown", {8, Stage::Sending}, {8, Stage::Sending}, 0},
        Case{"Streaming", {8, Stage::Streaming, 0, 5}, {8, Stage::Streaming, 0, 5}, 60, CutReason::WriteTimeout},
        Case{"StreamingOfWhichNothingIsKnown",
             {8, Stage::Streaming},
             {8, Stage::Streaming},
             60,
             CutReason::WriteTimeout}),
    [](const auto& test) { return std::string(test.param.name); });

struct Move {
    const char* name;
    Progress before;
    Progress now;
    bool isProgress = true;
};

class DeadlineProgress : public testing::TestWithParam<Move> {};

TEST_P(DeadlineProgress, BeginsTheTimeAnew) {
    const Move& move = GetParam();
    LastProgress last{move.before, SinceMs};
    const std::int64_t nowMs = SinceMs + 10000;
    const CutReason reason = checkDeadline(last, move.now, nowMs, limits());
    EXPECT_EQ(reason == CutReason::None, move.isProgress);
    EXPECT_EQ(last.sinceMs, move.isProgress ? nowMs : SinceMs);
    if (move.isProgress) {
        EXPECT_EQ(last.progress.step, move.now.step);
        EXPECT_EQ(last.progress.bodyBytes, move.now.bodyBytes);
        EXPECT_EQ(last.progress.acknowledgedBytes, move.now.acknowledgedBytes);
    }
}

INSTANTIATE_TEST_SUITE_P(
    By, DeadlineProgress,
    testing::Values(Move{"AStepToAnotherStage", {0, Stage::FirstHead}, {8, Stage::Body}},
                    Move{"AStepOfTheSameStage", {8, Stage::Streaming}, {16, Stage::Streaming}},
                    Move{"AnotherRequestAtTheSamePoint", {8, Stage::NextHead}, {48, Stage::NextHead}},
                    Move{"EnoughOfTheBody", {8, Stage::Body, 10}, {8, Stage::Body, 110}},
                    Move{"TooLittleOfTheBody", {8, Stage::Body, 10}, {8, Stage::Body, 109}, false},
                    Move{"BytesThatTheClientHasTaken", {8, Stage::Sending, 0, 5}, {8, Stage::Sending, 0, 6}},
                    Move{"TheFirstLookAtWhatItHasTaken", {8, Stage::Streaming}, {8, Stage::Streaming, 0, 6}},
                    Move{"BytesOfAnEarlierAnswer", {8, Stage::Answer, 0, 5}, {8, Stage::Answer, 0, 6}, false},
                    Move{"BytesOfAnEarlierBody", {8, Stage::Answer, 5}, {8, Stage::Answer, 500}, false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(DeadlineRuleOfAKeptConnection, IsNoneWhereTheConnectionMayBeIdleForEver) {
    DeadlineLimits forEver = limits();
    forEver.idleMs = 0;
    LastProgress last{{8, Stage::NextHead}, SinceMs};
    EXPECT_EQ(checkDeadline(last, last.progress, SinceMs + 1000000000, forEver), CutReason::None);
}

TEST(DeadlineRuleOfAKeptConnection, IsNoneWithoutADeadlineOfHeads) {
    DeadlineLimits noHead = limits();
    noHead.headMs = 0;
    LastProgress last{{8, Stage::NextHead}, SinceMs};
    EXPECT_EQ(checkDeadline(last, last.progress, SinceMs + 1000000000, noHead), CutReason::None);
}

} // namespace
