#include "session/pool/TurnState.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

using namespace ql::impl;

namespace {

/// A task, the queue of a pool, and what its threads may do to both, one step at a time.
struct World {
    TurnState state;
    int queued = 0;
    int serving = 0;
    bool inPool = true;
    unsigned noted = 0;
    unsigned seen = 0;

    World() {
        state.enter();
        queue();
    }

    void queue() {
        if (inPool) {
            ++queued;
            EXPECT_EQ(queued, 1) << "it stands in the queue twice";
        }
    }
};

/// One thread: does its next step, if it has one now.
using Thread = std::function<bool(World&)>;
using Threads = std::vector<Thread>;

/// Brings a piece of news and, where that makes the task Queued, puts it into the queue: two steps.
Thread notifier(unsigned news) {
    return [news, step = 0](World& world) mutable {
        if (step == 0) {
            world.noted |= news;
            world.seen &= ~news;
            step = world.state.note(news) ? 1 : 2;
            return true;
        }
        if (step == 1) {
            world.queue();
            step = 2;
            return true;
        }
        return false;
    };
}

/// Serves the task as long as it finds it in the queue.
Thread server() {
    return [step = 0](World& world) mutable {
        switch (step) {
        case 0:
            if (world.queued == 0) {
                return false;
            }
            --world.queued;
            world.seen |= world.state.begin();
            ++world.serving;
            EXPECT_EQ(world.serving, 1) << "two threads serve it";
            step = 1;
            return true;
        case 1:
            step = world.state.end() ? 0 : 2;
            world.serving -= step == 0 ? 1 : 0;
            return true;
        default:
            --world.serving;
            world.state.endAgain();
            world.queue();
            step = 0;
            return true;
        }
    };
}

/// Takes the task out of the pool, unless it is being served.
Thread remover() {
    return [isDone = false](World& world) mutable {
        if (isDone) {
            return false;
        }
        isDone = true;
        if (world.state.claim()) {
            EXPECT_EQ(world.serving, 0) << "it is being served";
            world.inPool = false;
            world.queued = 0;
        }
        return true;
    };
}

/// Goes every way through the threads' steps. @return how many there are.
std::size_t walk(const std::function<Threads()>& makeThreads, const std::function<void(World&)>& atEnd) {
    std::size_t ways = 0;
    std::vector<std::size_t> path;
    const std::size_t threadCount = makeThreads().size();
    const std::function<void()> goOn = [&] {
        bool isEnd = true;
        for (std::size_t next = 0; next < threadCount; ++next) {
            World world;
            Threads threads = makeThreads();
            for (const std::size_t thread : path) {
                threads[thread](world);
            }
            if (threads[next](world)) {
                isEnd = false;
                path.push_back(next);
                goOn();
                path.pop_back();
            } else if (isEnd && next + 1 == threadCount) {
                ++ways;
                atEnd(world);
            }
        }
    };
    goOn();
    return ways;
}

} // namespace

TEST(TurnState, NoNewsAreMissedAndNoTwoThreadsServeWhateverTheOrder) {
    const std::size_t ways = walk(
        [] {
            return Threads{notifier(InputCame), notifier(TimerExpired), notifier(RoomCame), server(), server()};
        },
        [](World& world) {
            EXPECT_EQ(world.seen, world.noted);
            EXPECT_EQ(world.serving, 0);
            EXPECT_TRUE(world.state.note(Wished)) << "it is not idle at the end";
        });
    EXPECT_GT(ways, 1000U);
}

TEST(TurnState, ClaimedTaskIsServedNoMoreWhateverTheOrder) {
    std::size_t claimed = 0;
    walk(
        [] {
            return Threads{notifier(InputCame), remover(), notifier(RoomCame), server(), server()};
        },
        [&](World& world) {
            claimed += world.inPool ? 0 : 1;
            if (world.inPool) {
                EXPECT_EQ(world.seen, world.noted);
            } else {
                EXPECT_FALSE(world.state.note(Wished));
                EXPECT_FALSE(world.state.claim());
            }
        });
    EXPECT_GT(claimed, 100U);
}

TEST(TurnState, NewsBeforeATaskIsInThePoolWaitForItsFirstTurn) {
    TurnState state;
    EXPECT_FALSE(state.note(InputCame));
    EXPECT_FALSE(state.claim());
    state.enter();
    EXPECT_EQ(state.begin(), InputCame);
    EXPECT_TRUE(state.end());
}

TEST(TurnState, NewsWhileATaskWaitsForItsTurnBringNoSecondOne) {
    TurnState state;
    state.enter();
    state.note(InputCame);
    EXPECT_FALSE(state.note(RoomCame));
    EXPECT_EQ(state.begin(), InputCame | RoomCame);
    EXPECT_TRUE(state.end());
}
