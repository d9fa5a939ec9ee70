#include "engine/Suspension.h"

#include "support/Interleavings.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using vireotest::Interleavings;
using vireotest::ScheduledAtomic;

/// A connection of an engine that complains of everything that the real one doesn't bear. Its daemon calls the handler
/// as long as the connection isn't suspended, and goes on with a resumed one whenever it likes.
struct FakeConnection {
    bool suspended = false;
    bool gone = false;

    void suspend() {
        Interleavings::point();
        if (suspended || gone) {
            Interleavings::fail("a suspended connection, or one that is gone, is suspended");
        }
        suspended = true;
    }

    void resume() {
        Interleavings::point();
        if (!suspended || gone) {
            Interleavings::fail("a connection that is not suspended, or is gone, is resumed");
        }
        suspended = false;
        // The calling thread is still inside the engine.
        Interleavings::point();
        if (gone) {
            Interleavings::fail("the engine has gone while a thread is inside");
        }
    }
};

struct ConnectionReference {
    FakeConnection* connection;
    void suspend() { connection->suspend(); }
    void resume() { connection->resume(); }
};

using Suspension = ql::impl::Suspension<ConnectionReference, ScheduledAtomic>;
using Outcome = Suspension::Outcome;

/// What the threads of one run share.
struct World {
    FakeConnection connection;
    Suspension suspension{ConnectionReference{&connection}};
    ScheduledAtomic<int> news{0};
    bool joining = false;
    bool daemonEnded = false;

    /// The daemon thread: looks for news until there were `count`, then ends the exchange.
    void serve(int count) {
        while (news.load() < count && !joining) {
            switch (suspension.suspend()) {
            case Outcome::Suspended:
                Interleavings::waitUntil([this] { return !connection.suspended || joining; });
                break;
            case Outcome::LookAgain:
                break;
            case Outcome::Finished:
                Interleavings::waitUntil([this] { return joining; });
                break;
            }
        }
        if (!joining) {
            suspension.finish();
        }
        daemonEnded = true;
    }

    /// The server's stop: the engine leaves its loop wherever its connections are, but bears no suspended one then.
    void stop() {
        suspension.finish();
        joining = true;
        Interleavings::waitUntil([this] { return daemonEnded; });
        if (connection.suspended) {
            Interleavings::fail("the engine stops with a suspended connection");
        }
        suspension.finish();
        connection.gone = true;
    }

    void bring() {
        news.fetch_add(1);
        suspension.resume();
    }
};

/// `bringers` threads bring a piece of news each.
Interleavings::Case newsFrom(int bringers) {
    return [bringers] {
        const auto world = std::make_shared<World>();
        std::vector<Interleavings::Body> threads;
        threads.emplace_back([world, bringers] {
            world->serve(bringers);
            world->connection.gone = true;
        });
        for (int i = 0; i < bringers; ++i) {
            threads.emplace_back([world] { world->bring(); });
        }
        return threads;
    };
}

/// Like that, and a thread that stops the engine meanwhile: it joins the daemon thread before the engine goes.
Interleavings::Case newsAndStop(int bringers) {
    return [bringers] {
        const auto world = std::make_shared<World>();
        std::vector<Interleavings::Body> threads;
        threads.emplace_back([world, bringers] { world->serve(bringers); });
        threads.emplace_back([world] { world->stop(); });
        for (int i = 0; i < bringers; ++i) {
            threads.emplace_back([world] { world->bring(); });
        }
        return threads;
    };
}

void expectEveryRunEnds(const Interleavings::Result& result) {
    EXPECT_EQ(result.failure, "") << "run " << result.runs;
    testing::Test::RecordProperty("runs", std::to_string(result.runs));
}

TEST(SuspensionTest, NoNewsOfOneThreadIsLost) {
    expectEveryRunEnds(Interleavings::all(newsFrom(1), 6));
}

TEST(SuspensionTest, NoNewsOfTwoThreadsIsLost) {
    expectEveryRunEnds(Interleavings::all(newsFrom(2), 2));
}

TEST(SuspensionTest, StopLeavesNothingSuspendedAndNobodyInTheEngine) {
    expectEveryRunEnds(Interleavings::all(newsAndStop(1), 2));
}

TEST(SuspensionTest, ManyThreadsInRandomOrder) {
    expectEveryRunEnds(Interleavings::random(newsAndStop(3), 2'000, 7));
}

} // namespace
