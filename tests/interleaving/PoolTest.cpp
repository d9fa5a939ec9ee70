#include "websocket/PoolFixture.h"

#include "interleaving/Explore.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using vireotest::exploreAll;
using vireotest::exploreRandomly;
using wstest::PoolSocket;
using wstest::UpgradeHandle;
using wstest::Watch;

/// A pool without the time limits of its polls: who is not woken sleeps for ever.
struct Pool {
    wstest::FakeEngine engine;
    wstest::UnlimitedPolls polls;
    Watch watch;
    ql::http::WebSocketThread pool;

    ~Pool() { pool.stopThreads(true); }

    void add(std::unique_ptr<PoolSocket> socket) {
        std::unique_ptr<ql::http::WebSocket> added = std::move(socket);
        pool.addWebSocket(added);
        EXPECT_EQ(added, nullptr);
    }

    void end(std::size_t connections) {
        pool.stopThreads(true);
        pool.closeAll();
        EXPECT_EQ(watch.destroyed.count(), connections);
    }
};

std::string receiveText(UpgradeHandle& handle) {
    const std::vector<wstest::ServerFrame> frames =
        wstest::parseServerFrames(wstest::receiveFrame(handle.sockets.client));
    return frames.size() == 1 ? wstest::toText(frames[0].payload) : "no frame";
}

/// Another thread writes to a connection while that joins the poll, others perhaps as well.
void writeWhileTheyJoin(std::size_t others) {
    UpgradeHandle writtenTo;
    std::vector<UpgradeHandle> otherPeers(others);
    Pool pool;
    pool.pool.startThreads(1);
    auto socket = std::make_unique<PoolSocket>(writtenTo, pool.watch);
    PoolSocket& connection = *socket;
    std::thread writer([&] { connection.writeMessage(wstest::toBytes("news").data(), 4, false); });
    std::vector<std::thread> adders;
    for (UpgradeHandle& other : otherPeers) {
        adders.emplace_back([&] { pool.add(std::make_unique<PoolSocket>(other, pool.watch)); });
    }
    pool.add(std::move(socket));
    EXPECT_EQ(receiveText(writtenTo), "news");
    writer.join();
    for (std::thread& adder : adders) {
        adder.join();
    }
    pool.end(1 + others);
}

TEST(PoolInterleavingTest, WhatIsWrittenWhileOthersJoinLeaves) {
    ASSERT_GT(exploreAll([] { writeWhileTheyJoin(0); }, 1), 1000U);
    exploreRandomly([] { writeWhileTheyJoin(2); }, 500);
}

/// Messages of two peers, a third joins, and the pool stops in between.
void echoUntilTheStop(bool stopsEarly) {
    UpgradeHandle first;
    UpgradeHandle second;
    Pool pool;
    pool.pool.startThreads(2);
    pool.add(std::make_unique<PoolSocket>(first, pool.watch));
    std::thread joining([&] { pool.add(std::make_unique<PoolSocket>(second, pool.watch)); });
    const auto send = [](UpgradeHandle& handle, const std::string& text) {
        EXPECT_TRUE(wstest::sendAll(handle.sockets.client, wstest::clientFrame(0x81, wstest::toBytes(text))));
    };
    send(first, "a");
    send(second, "b");
    if (!stopsEarly) {
        EXPECT_EQ(receiveText(first), "a");
        EXPECT_EQ(receiveText(second), "b");
    }
    joining.join();
    pool.end(2);
}

TEST(PoolInterleavingTest, EachPeerIsServed) {
    exploreRandomly([] { echoUntilTheStop(false); }, 500);
}

TEST(PoolInterleavingTest, StopEndsEachConnectionOnce) {
    exploreRandomly([] { echoUntilTheStop(true); }, 500);
}

} // namespace
