#include "session/pool/TaskPool.h"

#include "frame/TimeSource.h"
#include "session/pool/PollReadiness.h"
#include "session/pool/PoolFakes.h"
#include "vireo/support/qlSystemUtils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace pooltest;
using namespace wstest;
using namespace ql::impl;

namespace {

using Next = TurnResult::Next;

struct Kind {
    const char* name;
    std::unique_ptr<Readiness> (*make)();
};

/// Ends the pool when a test ends, before what its tasks refer to goes: to be declared behind that.
struct EndAtExit {
    std::unique_ptr<TaskPool>& pool;
    ~EndAtExit() { pool.reset(); }
};

/// With what the system has, and with what is used where it has nothing better.
class TaskPoolTest : public testing::TestWithParam<Kind> {
protected:
    void start(unsigned threads) { pool = std::make_unique<TaskPool>(threads, GetParam().make()); }

    std::shared_ptr<Task> add(Task::Handler handler = &Task::echo) {
        auto task = std::make_shared<Task>(watch, std::move(handler));
        EXPECT_TRUE(pool->add(task));
        return task;
    }

    Watch watch;
    std::unique_ptr<TaskPool> pool;
};

INSTANTIATE_TEST_SUITE_P(
    With, TaskPoolTest,
    testing::Values(Kind{"System", &makeReadiness},
                    Kind{"Poll", []() -> std::unique_ptr<Readiness> { return std::make_unique<PollReadiness>(); }}),
    [](const auto& kind) { return kind.param.name; });

/// With news and times of the test.
class ScriptedPoolTest : public testing::Test {
protected:
    ScriptedPoolTest() {
        nowMs = 1000000;
        setTimeSource([] { return nowMs.load(); });
    }
    ~ScriptedPoolTest() override {
        pool.reset();
        setTimeSource(nullptr);
    }

    void start(unsigned threads) {
        threads_ = threads;
        pool = std::make_unique<TaskPool>(threads, std::make_unique<ScriptedReadiness>(script));
    }
    std::shared_ptr<Task> add(Task::Handler handler) {
        auto task = std::make_shared<Task>(watch, std::move(handler));
        EXPECT_TRUE(pool->add(task));
        return task;
    }
    /// The id of the task that was added as the nth.
    std::uint64_t idOf(std::size_t nth) {
        const std::lock_guard<std::mutex> lock(script->mutex);
        return script->watched[nth].id;
    }
    void tellInput(std::size_t nth) { script->tell({{idOf(nth), true, false, false}}); }
    /// Until all that was told has been served.
    void settle() { ASSERT_TRUE(script->waitForQuiet(threads_)); }
    void pass(std::int64_t ms) {
        nowMs += ms;
        script->ring();
        settle();
    }
    std::vector<std::int64_t> alarms() {
        const std::lock_guard<std::mutex> lock(script->mutex);
        return script->alarms;
    }

    static inline std::atomic<std::int64_t> nowMs{0};
    const std::shared_ptr<ScriptedReadiness::Script> script = std::make_shared<ScriptedReadiness::Script>();
    Watch watch;
    std::unique_ptr<TaskPool> pool;

private:
    unsigned threads_ = 0;
};

} // namespace

TEST_P(TaskPoolTest, TaskHasItsFirstTurnAtOnce) {
    start(1);
    add([](Task&, const Turn& turn) {
        EXPECT_FALSE(turn.hasInput() || turn.isTimerDue());
        EXPECT_EQ(turn.buffer().size(), 65536U);
        return TurnResult{};
    });
    EXPECT_TRUE(watch.turns.waitFor(1));
}

TEST_P(TaskPoolTest, InputIsServed) {
    start(2);
    const auto task = add();
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(task->answers());
    }
}

TEST_P(TaskPoolTest, InputFromBeforeIsServed) {
    start(1);
    auto task = std::make_shared<Task>(watch);
    ASSERT_TRUE(sendAll(task->pair.client, {1}));
    ASSERT_TRUE(pool->add(task));
    EXPECT_EQ(receiveExactly(task->pair.client, 1), Bytes{1});
}

TEST_P(TaskPoolTest, TaskThatWaitsForRoomIsServedWhenThereIsSome) {
    start(2);
    constexpr std::size_t Total = 8000000;
    std::size_t sent = 0;
    const EndAtExit end{pool};
    const auto task = add([&sent](Task& served, const Turn& turn) {
        while (sent < Total) {
            const SocketBuffer bytes{turn.buffer().data(), std::min(turn.buffer().size(), Total - sent)};
            const std::int64_t count = sendToSocket(served.pair.server, {&bytes, 1});
            if (count < 0) {
                return TurnResult{Next::Wait, true, true};
            }
            sent += static_cast<std::size_t>(count);
        }
        return TurnResult{};
    });
    EXPECT_EQ(receiveExactly(task->pair.client, Total).size(), Total);
}

TEST_P(TaskPoolTest, ScheduledTaskHasATurn) {
    start(2);
    const auto task = add([](Task&, const Turn&) { return TurnResult{}; });
    for (std::size_t i = 1; i < 1000; ++i) {
        ASSERT_TRUE(watch.turns.waitFor(i));
        task->schedule();
    }
}

TEST_P(TaskPoolTest, EndOfInputIsToldWithTheInputBeforeIt) {
    start(1);
    auto task = std::make_shared<Task>(watch);
    ASSERT_TRUE(sendAll(task->pair.client, {1}));
    shutdownSending(task->pair.client);
    ASSERT_TRUE(pool->add(task));
    EXPECT_EQ(receiveExactly(task->pair.client, 1), Bytes{1});
    EXPECT_TRUE(watch.left.waitFor(1));
}

TEST_P(TaskPoolTest, TaskThatLeavesIsKeptNoLonger) {
    start(2);
    auto task = add();
    task->pair.closeClient();
    task.reset();
    EXPECT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(watch.left.count(), 1U);
    pool.reset();
    EXPECT_EQ(watch.abandoned.count(), 0U);
}

TEST_P(TaskPoolTest, PoolKeepsATaskThatNobodyElseKeeps) {
    start(2);
    auto task = add();
    const std::uint64_t client = std::exchange(task->pair.client, ~std::uint64_t{0});
    task.reset();
    EXPECT_TRUE(sendAll(client, {1}));
    EXPECT_EQ(receiveExactly(client, 1), Bytes{1});
    EXPECT_EQ(watch.destroyed.count(), 0U);
    pool.reset();
    EXPECT_EQ(watch.destroyed.count(), 1U);
    closeSocket(client);
}

TEST_P(TaskPoolTest, TurnThatBlocksHoldsItsThreadOnly) {
    start(2);
    Counter go;
    const EndAtExit end{pool};
    const auto blocked = add([&](Task&, const Turn&) {
        go.waitFor(1);
        return TurnResult{};
    });
    std::vector<std::shared_ptr<Task>> others;
    for (int i = 0; i < 20; ++i) {
        others.push_back(add());
    }
    for (int round = 0; round < 5; ++round) {
        for (const auto& task : others) {
            EXPECT_TRUE(task->answers());
        }
    }
    go.add();
}

TEST_P(TaskPoolTest, TaskThatAlwaysHasMoreToDoDoesNotKeepOutTheNewsOfOthers) {
    start(1);
    std::atomic<bool> isEnough{false};
    const EndAtExit end{pool};
    add([&](Task&, const Turn&) { return TurnResult{isEnough ? Next::Wait : Next::Again}; });
    const auto other = add();
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(other->answers());
    }
    isEnough = true;
}

TEST_P(TaskPoolTest, RemovedTaskHasNoMoreTurnsAndNoEnd) {
    start(2);
    const auto task = add();
    ASSERT_TRUE(task->answers());
    while (!pool->remove(*task)) {
        std::this_thread::yield(); // until its turn is over
    }
    const std::size_t turns = watch.turns.count();
    EXPECT_FALSE(pool->remove(*task));
    ASSERT_TRUE(sendAll(task->pair.client, {1}));
    task->schedule();
    EXPECT_TRUE(add()->answers());
    pool.reset();
    EXPECT_EQ(watch.turns.count() > turns, true); // the other's
    EXPECT_EQ(watch.left.count(), 0U);
    EXPECT_EQ(watch.abandoned.count(), 1U);
    Bytes rest(1);
    const SocketBuffer room{rest.data(), rest.size()};
    EXPECT_EQ(receiveFromSocket(task->pair.server, {&room, 1}), 1) << "it was served";
}

TEST_P(TaskPoolTest, TaskCannotBeRemovedDuringItsTurn) {
    start(1);
    std::atomic<int> removed{0};
    add([&](Task& task, const Turn&) {
        removed += pool->remove(task) ? 1 : 0;
        std::thread([&] { removed += pool->remove(task) ? 1 : 0; }).join();
        return TurnResult{Next::Leave};
    });
    EXPECT_TRUE(watch.left.waitFor(1));
    EXPECT_EQ(removed, 0);
}

TEST_P(TaskPoolTest, StopWaitsForTurnsAndAbandonsTheTasks) {
    start(2);
    Counter inside;
    Counter go;
    std::atomic<bool> isOver{false};
    add([&](Task&, const Turn&) {
        inside.add();
        go.waitFor(1);
        isOver = true;
        return TurnResult{Next::Again};
    });
    const auto idle = add();
    EXPECT_TRUE(inside.waitFor(1));
    std::thread stopping([&] {
        pool->stop();
        EXPECT_TRUE(isOver);
        EXPECT_EQ(watch.abandoned.count(), 2U);
    });
    std::thread stoppingAsWell([&] { pool->stop(); });
    go.add();
    stopping.join();
    stoppingAsWell.join();
    pool->stop();
    EXPECT_FALSE(pool->add(std::make_shared<Task>(watch)));
    idle->schedule();
    EXPECT_FALSE(pool->remove(*idle));
    pool.reset();
    idle->schedule();
    EXPECT_FALSE(watch.isBroken);
}

TEST_P(TaskPoolTest, LastThreadAbandonsTheTasks) {
    start(3);
    auto task = add();
    for (int i = 0; i < 10; ++i) {
        add();
    }
    EXPECT_TRUE(task->answers());
    pool->stop();
    EXPECT_EQ(watch.abandoned.count(), 11U);
    EXPECT_FALSE(watch.isBroken);
}

TEST_P(TaskPoolTest, PoolMayBeDestroyedOnItsOwnThread) {
    start(3);
    auto idle = add();
    EXPECT_TRUE(idle->answers());
    add([&](Task&, const Turn&) {
        EXPECT_TRUE(TaskPool::IsPoolThread());
        pool->stop();
        pool.reset();
        return TurnResult{};
    });
    EXPECT_TRUE(watch.abandoned.waitFor(2));
    idle->schedule();
    idle.reset();
    EXPECT_TRUE(watch.destroyed.waitFor(2));
    EXPECT_FALSE(watch.isBroken);
    EXPECT_FALSE(TaskPool::IsPoolThread());
}

TEST_P(TaskPoolTest, ServesOnOneThreadAtATimeAndMissesNothing) {
    constexpr std::size_t Tasks = 16;
    constexpr std::size_t Threads = 4;
    constexpr int Rounds = 2000;
    struct Load {
        std::atomic<std::uint64_t> wanted{0};
        std::atomic<std::uint64_t> seen{0};
        std::shared_ptr<Task> task;
    };
    start(4);
    std::vector<Load> loads(Tasks);
    for (Load& load : loads) {
        load.task = add([&load](Task& task, const Turn& turn) {
            load.seen = load.wanted.load();
            return Task::echo(task, turn);
        });
    }
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < Threads; ++i) {
        threads.emplace_back([&, i] {
            std::mt19937 random(static_cast<unsigned>(i));
            for (int round = 0; round < Rounds; ++round) {
                Load& load = loads[random() % Tasks];
                if (random() % 4 == 0) {
                    sendAll(load.task->pair.client, {1});
                } else {
                    ++load.wanted;
                    load.task->schedule();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const auto deadline = std::chrono::steady_clock::now() + Patience;
    for (Load& load : loads) {
        while (load.seen != load.wanted && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        EXPECT_EQ(load.seen, load.wanted);
        // All its bytes and its end: none of them gets lost either.
        shutdownSending(load.task->pair.client);
    }
    EXPECT_TRUE(watch.left.waitFor(Tasks));
    EXPECT_FALSE(watch.isBroken);
}

TEST_P(TaskPoolTest, TasksComeAndGoUnderLoad) {
    constexpr std::size_t Threads = 4;
    constexpr std::size_t TasksEach = 300;
    start(3);
    std::atomic<std::size_t> removed{0};
    std::mutex pairing; // pairs of sockets are made one after another
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < Threads; ++i) {
        threads.emplace_back([&, i] {
            std::mt19937 random(static_cast<unsigned>(i));
            for (std::size_t n = 0; n < TasksEach; ++n) {
                std::shared_ptr<Task> task;
                {
                    const std::lock_guard<std::mutex> lock(pairing);
                    task = std::make_shared<Task>(watch);
                }
                EXPECT_TRUE(pool->add(task));
                EXPECT_TRUE(task->answers());
                task->schedule();
                sendAll(task->pair.client, {1});
                if (random() % 2 == 0) {
                    while (!pool->remove(*task)) {
                        std::this_thread::yield(); // until its turn is over
                    }
                    ++removed;
                    // The descriptor goes to somebody else at once.
                    task->pair.closeServer();
                } else {
                    task->pair.closeClient();
                }
                task->schedule();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(watch.destroyed.waitFor(Threads * TasksEach));
    EXPECT_EQ(watch.left.count() + removed, Threads * TasksEach);
    EXPECT_FALSE(watch.isBroken);
}

TEST_P(TaskPoolTest, TimersExpire) {
    start(2);
    std::atomic<int> expired{0};
    add([&](Task&, const Turn& turn) {
        expired += turn.isTimerDue() ? 1 : 0;
        return TurnResult{Next::Wait, true, false,
                          expired < 3 ? qlSystemUtils::GetTimeBaseMs() + 2 : TurnResult::Never};
    });
    EXPECT_TRUE(watch.turns.waitFor(4));
    EXPECT_EQ(expired, 3);
}

TEST_F(ScriptedPoolTest, IdlePoolWaitsWithoutATimeLimit) {
    start(2);
    for (int i = 0; i < 50; ++i) {
        add([](Task&, const Turn&) { return TurnResult{}; });
    }
    settle();
    EXPECT_EQ(alarms(), std::vector<std::int64_t>{});
}

TEST_F(ScriptedPoolTest, NobodyIsWokenWhileAllThreadsAreBusy) {
    start(2);
    std::vector<std::shared_ptr<Task>> tasks;
    for (int i = 0; i < 20; ++i) {
        tasks.push_back(add([](Task&, const Turn&) { return TurnResult{}; }));
    }
    Counter inside;
    Counter go;
    for (int i = 0; i < 2; ++i) {
        add([&](Task&, const Turn&) {
            inside.add();
            go.waitFor(1);
            return TurnResult{};
        });
    }
    ASSERT_TRUE(inside.waitFor(2));
    std::size_t wakes = 0;
    script->change([&] { wakes = script->wakes; });
    for (const auto& task : tasks) {
        task->schedule();
    }
    script->change([&] { EXPECT_EQ(script->wakes, wakes); });
    go.add();
    EXPECT_TRUE(watch.turns.waitFor(42));
}

TEST_F(ScriptedPoolTest, ManyThatBecomeReadyWhileAThreadWaitsWakeItOnce) {
    start(1);
    std::vector<std::shared_ptr<Task>> tasks;
    for (int i = 0; i < 20; ++i) {
        tasks.push_back(add([](Task&, const Turn&) { return TurnResult{}; }));
    }
    EXPECT_TRUE(watch.turns.waitFor(20));
    settle();
    std::size_t wakes = 0;
    // While the script is held, the thread cannot come back from its wait.
    script->change([&] { wakes = script->wakes; });
    std::thread scheduling;
    {
        const std::lock_guard<std::mutex> lock(script->mutex);
        scheduling = std::thread([&] {
            for (const auto& task : tasks) {
                task->schedule();
            }
        });
    }
    scheduling.join();
    EXPECT_TRUE(watch.turns.waitFor(40));
    settle();
    script->change([&] { EXPECT_LE(script->wakes, wakes + 20); });
}

TEST_F(ScriptedPoolTest, NewsOfOneWaitAreServedByAllThreadsThatAreFree) {
    start(2);
    Counter second;
    add([&](Task&, const Turn& turn) {
        if (turn.hasInput()) {
            EXPECT_TRUE(second.waitFor(1)) << "it waits behind the first";
        }
        return TurnResult{};
    });
    add([&](Task&, const Turn& turn) {
        if (turn.hasInput()) {
            second.add();
        }
        return TurnResult{};
    });
    settle();
    script->tell({{idOf(0), true, false, false}, {idOf(1), true, false, false}});
    EXPECT_TRUE(watch.turns.waitFor(4));
}

TEST_F(ScriptedPoolTest, WhoHasMoreToDoWaitsBehindTheOthers) {
    start(1);
    std::string order;
    std::shared_ptr<Task> other;
    int turns = 0;
    other = add([&](Task&, const Turn&) {
        order += 'b';
        return TurnResult{};
    });
    settle();
    add([&](Task&, const Turn&) {
        order += 'a';
        other->schedule();
        return TurnResult{++turns < 3 ? Next::Again : Next::Wait};
    });
    ASSERT_TRUE(watch.turns.waitFor(7));
    EXPECT_EQ(order, "bababab");
}

TEST_F(ScriptedPoolTest, WhatATurnWantsIsWhatItsSocketIsWatchedFor) {
    start(1);
    int turn = 0;
    const auto task = add([&](Task&, const Turn&) {
        switch (++turn) {
        case 1:
            return TurnResult{};
        case 2:
            return TurnResult{Next::Wait, true, true};
        case 3:
            return TurnResult{Next::Wait, false, true};
        case 4:
            return TurnResult{Next::Again};
        default:
            return TurnResult{Next::Leave};
        }
    });
    for (std::size_t i = 1; i < 4; ++i) {
        ASSERT_TRUE(watch.turns.waitFor(i));
        settle();
        task->schedule();
    }
    ASSERT_TRUE(watch.left.waitFor(1));
    const std::vector<std::string> expected{"rearm read", "rearm read write", "rearm write", "forget"};
    EXPECT_EQ(script->calls, expected);
}

TEST_F(ScriptedPoolTest, SocketIsForgottenBeforeItsTaskIsToldThatItHasLeft) {
    struct Leaving : Task {
        using Task::Task;
        void left() noexcept override {
            isForgotten = script->calls == std::vector<std::string>{"forget"};
            Task::left();
        }
        std::shared_ptr<ScriptedReadiness::Script> script;
        bool isForgotten = false;
    };
    start(1);
    const auto task = std::make_shared<Leaving>(watch, [](Task&, const Turn&) { return TurnResult{Next::Leave}; });
    task->script = script;
    ASSERT_TRUE(pool->add(task));
    ASSERT_TRUE(watch.left.waitFor(1));
    EXPECT_TRUE(task->isForgotten);
}

TEST_F(ScriptedPoolTest, NewsOfATaskThatHasLeftReachNobody) {
    start(1);
    add([](Task&, const Turn& turn) { return TurnResult{turn.hasInput() ? Next::Leave : Next::Wait}; });
    settle();
    tellInput(0);
    ASSERT_TRUE(watch.left.waitFor(1));
    settle();
    std::atomic<int> inputs{0};
    add([&](Task&, const Turn& turn) {
        inputs += turn.hasInput() ? 1 : 0;
        return TurnResult{};
    });
    settle();
    // It has the place of the first, and another name.
    EXPECT_EQ(static_cast<std::uint32_t>(idOf(1)), static_cast<std::uint32_t>(idOf(0)));
    EXPECT_NE(idOf(1), idOf(0));
    tellInput(0);
    settle();
    EXPECT_EQ(inputs, 0);
    tellInput(1);
    settle();
    EXPECT_EQ(inputs, 1);
    script->tell({{999, true, false, false}});
    settle();
}

TEST_F(ScriptedPoolTest, EndOfInputIsToldInEachTurnFromThenOn) {
    start(1);
    std::vector<bool> ended;
    const auto task = add([&](Task&, const Turn& turn) {
        ended.push_back(turn.hasInputEnded() && turn.hasInput());
        return TurnResult{};
    });
    settle();
    script->tell({{idOf(0), false, false, true}});
    ASSERT_TRUE(watch.turns.waitFor(2));
    settle();
    task->schedule();
    ASSERT_TRUE(watch.turns.waitFor(3));
    settle();
    EXPECT_EQ(ended, (std::vector<bool>{false, true, true}));
}

TEST_F(ScriptedPoolTest, TimersExpireInTheirOrder) {
    start(1);
    std::string order;
    const auto addWithTimer = [&](char name, std::int64_t inMs) {
        add([&order, name, dueMs = nowMs + inMs](Task&, const Turn& turn) {
            if (turn.isTimerDue()) {
                order += name;
            }
            return TurnResult{Next::Wait, true, false,
                              order.find(name) == std::string::npos ? dueMs : TurnResult::Never};
        });
        settle();
    };
    addWithTimer('b', 8);
    addWithTimer('c', 12);
    addWithTimer('a', 4);
    EXPECT_EQ(alarms(), (std::vector<std::int64_t>{8, 4}));
    pass(4);
    EXPECT_EQ(order, "a");
    EXPECT_EQ(alarms().back(), 4);
    pass(3);
    EXPECT_EQ(order, "a");
    pass(1);
    EXPECT_EQ(order, "ab");
    pass(100);
    EXPECT_EQ(order, "abc");
    EXPECT_EQ(watch.turns.count(), 6U);
}

TEST_F(ScriptedPoolTest, TimerThatMovesLaterWithEachTurnIsSetOnce) {
    start(1);
    int due = 0;
    add([&](Task&, const Turn& turn) {
        due += turn.isTimerDue() ? 1 : 0;
        return TurnResult{Next::Wait, true, false, nowMs + 10};
    });
    settle();
    for (std::size_t i = 0; i < 9; ++i) {
        ++nowMs;
        tellInput(0);
        ASSERT_TRUE(watch.turns.waitFor(i + 2));
        settle();
    }
    EXPECT_EQ(alarms(), std::vector<std::int64_t>{10});
    // The time of the first: nothing is due, and the task isn't bothered.
    pass(1);
    EXPECT_EQ(due, 0);
    EXPECT_EQ(watch.turns.count(), 10U);
    EXPECT_EQ(alarms(), (std::vector<std::int64_t>{10, 9}));
    pass(9);
    EXPECT_EQ(due, 1);
}

TEST_F(ScriptedPoolTest, TimerMovesEarlier) {
    start(1);
    int due = 0;
    std::int64_t dueMs = nowMs + 15;
    const auto task = add([&](Task&, const Turn& turn) {
        if (turn.isTimerDue()) {
            ++due;
            dueMs = TurnResult::Never;
        }
        return TurnResult{Next::Wait, true, false, dueMs};
    });
    settle();
    dueMs = nowMs + 5;
    task->schedule();
    ASSERT_TRUE(watch.turns.waitFor(2));
    settle();
    EXPECT_EQ(alarms(), (std::vector<std::int64_t>{15, 5}));
    pass(5);
    EXPECT_EQ(due, 1);
    pass(100);
    EXPECT_EQ(due, 1);
    EXPECT_EQ(watch.turns.count(), 3U);
}

TEST_F(ScriptedPoolTest, TimerThatIsNoLongerWantedDoesNotExpire) {
    start(1);
    std::int64_t dueMs = nowMs + 10;
    const auto task = add([&](Task&, const Turn& turn) {
        EXPECT_FALSE(turn.isTimerDue());
        return TurnResult{Next::Wait, true, false, std::exchange(dueMs, TurnResult::Never)};
    });
    settle();
    task->schedule();
    ASSERT_TRUE(watch.turns.waitFor(2));
    settle();
    pass(100);
    EXPECT_EQ(watch.turns.count(), 2U);
}

TEST_F(ScriptedPoolTest, TimerOfATaskThatHasLeftIsGone) {
    start(1);
    add([](Task&, const Turn& turn) {
        return TurnResult{turn.hasInput() ? Next::Leave : Next::Wait, true, false, nowMs + 10};
    });
    settle();
    tellInput(0);
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    settle();
    pass(100);
    EXPECT_EQ(alarms(), std::vector<std::int64_t>{10});
}

TEST_F(ScriptedPoolTest, TimersThatAreFarAwayExpireTogether) {
    constexpr std::int64_t FarMs = 30000;
    start(1);
    std::atomic<std::size_t> due{0};
    for (int i = 0; i < 100; ++i) {
        nowMs += 5;
        add([&, dueMs = nowMs + FarMs](Task&, const Turn& turn) {
            EXPECT_TRUE(!turn.isTimerDue() || nowMs >= dueMs);
            due += turn.isTimerDue() ? 1 : 0;
            return TurnResult{Next::Wait, true, false, turn.isTimerDue() ? TurnResult::Never : dueMs};
        });
        settle();
    }
    const std::int64_t lastMs = nowMs + FarMs;
    std::size_t waits = 0;
    for (std::int64_t alarmMs = alarms().back(); due < 100 && waits < 10; ++waits) {
        pass(alarmMs - (waits == 0 ? 495 : 0));
        alarmMs = alarms().back();
    }
    EXPECT_LE(waits, 2U);
    EXPECT_EQ(due, 100U);
    EXPECT_LE(nowMs, lastMs + 1100);
}
