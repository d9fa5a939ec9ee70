#include "app/middleware/TokenBuckets.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace {

using vireo::impl::TokenBuckets;

constexpr std::int64_t Now = 5000;

TEST(TokenBuckets, PayForABurstAndThenForWhatFlowsIn) {
    TokenBuckets buckets(4, 1000, 2);
    EXPECT_EQ(buckets.take("a", Now), 0);
    EXPECT_EQ(buckets.take("a", Now), 0);
    EXPECT_EQ(buckets.take("a", Now), 250);
    EXPECT_EQ(buckets.take("a", Now + 249), 1);
    EXPECT_EQ(buckets.take("a", Now + 250), 0);
    EXPECT_EQ(buckets.take("a", Now + 250), 250);
    EXPECT_EQ(buckets.take("a", Now + 750), 0);
    EXPECT_EQ(buckets.take("a", Now + 750), 0);
    EXPECT_EQ(buckets.take("a", Now + 750), 250);
}

TEST(TokenBuckets, HoldNoMoreThanABurst) {
    TokenBuckets buckets(10, 1000, 3);
    EXPECT_EQ(buckets.take("a", Now), 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(buckets.take("a", Now + 1000000), 0);
    }
    EXPECT_GT(buckets.take("a", Now + 1000000), 0);
}

TEST(TokenBuckets, WhatIsRefusedCostsNothing) {
    TokenBuckets buckets(1, 1000, 1);
    EXPECT_EQ(buckets.take("a", Now), 0);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(buckets.take("a", Now), 1000);
    }
    EXPECT_EQ(buckets.take("a", Now + 1000), 0);
}

TEST(TokenBuckets, EachClientHasItsOwn) {
    TokenBuckets buckets(1, 1000, 1);
    EXPECT_EQ(buckets.take("a", Now), 0);
    EXPECT_EQ(buckets.take("b", Now), 0);
    EXPECT_GT(buckets.take("a", Now), 0);
}

TEST(TokenBuckets, NamesOfClientsAreShortAndTellThemApart) {
    const TokenBuckets buckets(1, 1000, 1);
    for (const std::string& client : {std::string(), std::string("a"), std::string(1000, 'x')}) {
        const std::string name = buckets.nameOf(client);
        EXPECT_EQ(name.size(), 32U);
        EXPECT_EQ(buckets.nameOf(client), name);
        EXPECT_NE(buckets.nameOf(client + "1"), name);
    }
}

TEST(TokenBuckets, NobodyCanForeseeTheNamesOfClients) {
    EXPECT_NE(TokenBuckets(1, 1000, 1).nameOf("a"), TokenBuckets(1, 1000, 1).nameOf("a"));
}

TEST(TokenBuckets, KnowOnlySoManyClients) {
    TokenBuckets buckets(1, 1000, 1);
    for (std::size_t i = 0; i < 3 * TokenBuckets::MaxClients; ++i) {
        EXPECT_EQ(buckets.take(std::to_string(i), Now), 0);
    }
    EXPECT_EQ(buckets.size(), TokenBuckets::MaxClients);
}

TEST(TokenBuckets, TheFullestOnesAreForgotten) {
    TokenBuckets buckets(1000, 1000, 1000);
    // The greedy ones have nearly nothing left, and are more than fit into no sample.
    constexpr int Greedy = 64;
    for (int client = 0; client < Greedy; ++client) {
        for (int i = 0; i < 1000; ++i) {
            ASSERT_EQ(buckets.take("greedy" + std::to_string(client), Now), 0);
        }
    }
    for (std::size_t i = 0; i < 2 * TokenBuckets::MaxClients; ++i) {
        buckets.take(std::to_string(i), Now);
    }
    for (int client = 0; client < Greedy; ++client) {
        EXPECT_GT(buckets.take("greedy" + std::to_string(client), Now), 0) << client;
    }
}

TEST(TokenBuckets, ThreadsGetNoMoreThanThereIs) {
    constexpr unsigned int Burst = 500;
    TokenBuckets buckets(1, 1000000, Burst);
    std::atomic<unsigned int> taken{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&buckets, &taken] {
            for (unsigned int j = 0; j < Burst; ++j) {
                taken += buckets.take("a", Now) == 0 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(taken, Burst);
}

} // namespace
