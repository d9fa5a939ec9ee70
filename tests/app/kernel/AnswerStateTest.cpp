#include "app/kernel/AnswerState.h"
#include "support/Interleavings.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

using vireo::impl::AnswerState;
using vireotest::Interleavings;

namespace {

using State = AnswerState<vireotest::ScheduledAtomic>;
using Stage = State::Stage;

/// An exchange: its state, and the one thing that belongs to whoever has won it.
struct Exchange {
    State state;
    /// Whether something lies with it, as the Work does.
    bool hasWork = true;
    int claims = 0;
    int workTaken = 0;
    int ends = 0;

    void takeWork() {
        if (!hasWork) {
            Interleavings::fail("what lay with the exchange was taken twice, or before it lay there");
        }
        hasWork = false;
        ++workTaken;
    }

    void countClaim() {
        if (++claims > 1) {
            Interleavings::fail("two have claimed it");
        }
    }
};

using Step = std::function<void(Exchange&)>;

void begin(Exchange& exchange) {
    if (exchange.state.begin()) {
        exchange.takeWork();
    }
}

/// The chain's thread: it runs, leaves the answer to a Later, or answers.
void beginAndDefer(Exchange& exchange) {
    if (!exchange.state.begin()) {
        return;
    }
    exchange.takeWork();
    // As it is done: laid there before the stage says so, and taken back where somebody was quicker.
    exchange.hasWork = true;
    if (!exchange.state.defer()) {
        exchange.takeWork();
    }
}

void beginAndAnswer(Exchange& exchange) {
    if (!exchange.state.begin()) {
        return;
    }
    exchange.takeWork();
    if (exchange.state.claim(Stage::Open)) {
        exchange.countClaim();
    }
}

void answerLater(Exchange& exchange) {
    if (exchange.state.claim(Stage::Deferred)) {
        exchange.countClaim();
        exchange.takeWork();
    }
}

void answerInstead(Exchange& exchange) {
    if (exchange.state.claim(Stage::Open)) {
        exchange.countClaim();
    } else if (exchange.state.claim(Stage::Deferred)) {
        exchange.countClaim();
        exchange.takeWork();
    }
}

void end(Exchange& exchange) {
    ++exchange.ends;
    const Stage ended = exchange.state.end();
    if (!exchange.state.isOver()) {
        Interleavings::fail("it is not over behind its end");
    }
    if (ended == Stage::Waiting || ended == Stage::Deferred) {
        exchange.takeWork();
    }
}

struct Named {
    const char* name;
    Step step;
};

const std::vector<Named>& steps() {
    static const std::vector<Named> all = {{"begin", begin},
                                           {"beginAndDefer", beginAndDefer},
                                           {"beginAndAnswer", beginAndAnswer},
                                           {"answerLater", answerLater},
                                           {"answerInstead", answerInstead},
                                           {"end", end}};
    return all;
}

/// Only one thread begins, and the engine ends an exchange once.
bool canMeet(const std::vector<const Named*>& chosen) {
    int begins = 0;
    int ends = 0;
    for (const Named* each : chosen) {
        begins += std::string(each->name).rfind("begin", 0) == 0 ? 1 : 0;
        ends += std::string(each->name) == "end" ? 1 : 0;
    }
    return begins <= 1 && ends <= 1;
}

std::string runAll(const std::vector<const Named*>& chosen) {
    const Interleavings::Case makeCase = [&chosen] {
        auto exchange = std::make_shared<Exchange>();
        auto left = std::make_shared<std::size_t>(chosen.size());
        std::vector<Interleavings::Body> bodies;
        for (const Named* each : chosen) {
            bodies.emplace_back([exchange, left, each] {
                each->step(*exchange);
                if (--*left != 0) {
                    return;
                }
                const Stage stage = exchange->state.stage();
                const bool holdsWork = stage == Stage::Waiting || stage == Stage::Deferred;
                if (exchange->hasWork != holdsWork) {
                    Interleavings::fail("what lay with the exchange was left behind, or lost");
                }
                if (exchange->ends != 0 && stage != Stage::Claimed && stage != Stage::Over) {
                    Interleavings::fail("it can be claimed behind its end");
                }
            });
        }
        return bodies;
    };
    return Interleavings::all(makeCase, 3).failure;
}

} // namespace

TEST(AnswerStateTest, OfAnyTwoOneWinsAndTakesWhatLiesThere) {
    for (const Named& first : steps()) {
        for (const Named& second : steps()) {
            if (canMeet({&first, &second})) {
                EXPECT_EQ(runAll({&first, &second}), "") << first.name << ", " << second.name;
            }
        }
    }
}

TEST(AnswerStateTest, OfAnyThreeOneWinsAndTakesWhatLiesThere) {
    for (const Named& first : steps()) {
        for (const Named& second : steps()) {
            for (const Named& third : steps()) {
                if (canMeet({&first, &second, &third})) {
                    EXPECT_EQ(runAll({&first, &second, &third}), "")
                        << first.name << ", " << second.name << ", " << third.name;
                }
            }
        }
    }
}

TEST(AnswerStateTest, NothingIsClaimedBeforeItsHandlerRuns) {
    AnswerState<> state;
    EXPECT_FALSE(state.claim(AnswerState<>::Stage::Open));
    EXPECT_FALSE(state.claim(AnswerState<>::Stage::Deferred));
    EXPECT_TRUE(state.begin());
    EXPECT_FALSE(state.begin());
    EXPECT_TRUE(state.claim(AnswerState<>::Stage::Open));
    EXPECT_FALSE(state.defer());
}

TEST(AnswerStateTest, WhatWasClaimedStaysSoBehindTheEnd) {
    AnswerState<> state;
    state.begin();
    state.claim(AnswerState<>::Stage::Open);
    EXPECT_EQ(state.end(), AnswerState<>::Stage::Claimed);
    EXPECT_EQ(state.stage(), AnswerState<>::Stage::Claimed);
    EXPECT_TRUE(state.isOver());
}
