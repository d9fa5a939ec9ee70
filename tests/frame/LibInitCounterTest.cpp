#include "vireo/support/LibInitCounter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using ql::impl::GetThirdPartyLibVersionInfos;
using ql::impl::LibInitCounter;
using ql::impl::RegisterThirdPartyLibVersionInfo;
using ql::impl::UnRegisterThirdPartyLibVersionInfo;
using testing::Contains;
using testing::Key;
using testing::Not;
using testing::Pair;

TEST(LibInitCounter, StartsUninitializedWithItsName) {
    const LibInitCounter counter("library", true);
    EXPECT_FALSE(counter.isInitialized());
    EXPECT_STREQ(counter.getName(), "library");
}

TEST(LibInitCounter, OnlyTheFirstIncrementBringsUp) {
    LibInitCounter counter("library", true);
    EXPECT_TRUE(counter.incrementInitCounter());
    EXPECT_FALSE(counter.incrementInitCounter());
    EXPECT_FALSE(counter.incrementInitCounter());
    EXPECT_TRUE(counter.isInitialized());
}

TEST(LibInitCounter, OnlyTheLastDecrementTakesDown) {
    LibInitCounter counter("library", true);
    counter.incrementInitCounter();
    counter.incrementInitCounter();
    EXPECT_FALSE(counter.decrementInitCounter());
    EXPECT_TRUE(counter.isInitialized());
    EXPECT_TRUE(counter.decrementInitCounter());
    EXPECT_FALSE(counter.isInitialized());
}

TEST(LibInitCounter, DecrementAtZeroIsRefusedAndStaysAtZero) {
    LibInitCounter counter("library", true);
    EXPECT_FALSE(counter.decrementInitCounter());
    EXPECT_FALSE(counter.isInitialized());
    EXPECT_TRUE(counter.incrementInitCounter());
    EXPECT_TRUE(counter.decrementInitCounter());
}

TEST(LibInitCounter, CanComeUpAgain) {
    LibInitCounter counter("library", true);
    counter.incrementInitCounter();
    counter.decrementInitCounter();
    EXPECT_TRUE(counter.incrementInitCounter());
    EXPECT_TRUE(counter.isInitialized());
}

TEST(LibInitCounter, UncountedOneGoesDownAtTheFirstDecrement) {
    LibInitCounter counter("library", false);
    EXPECT_TRUE(counter.incrementInitCounter());
    EXPECT_FALSE(counter.incrementInitCounter());
    EXPECT_TRUE(counter.decrementInitCounter());
    EXPECT_FALSE(counter.isInitialized());
    EXPECT_FALSE(counter.decrementInitCounter());
}

TEST(LibInitCounter, ThreadsAgreeOnOneFirstAndOneLast) {
    constexpr int threadCount = 4;
    constexpr int pairsPerThread = 200;
    LibInitCounter counter("library", true);
    std::atomic<int> ups{0};
    std::atomic<int> downs{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            for (int pair = 0; pair < pairsPerThread; ++pair) {
                ups += counter.incrementInitCounter() ? 1 : 0;
                EXPECT_TRUE(counter.isInitialized());
                downs += counter.decrementInitCounter() ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GE(ups, 1);
    EXPECT_EQ(ups, downs);
    EXPECT_FALSE(counter.isInitialized());
}

TEST(ThirdPartyVersions, RegisteredComponentIsListed) {
    RegisterThirdPartyLibVersionInfo("component", "1.2");
    EXPECT_THAT(GetThirdPartyLibVersionInfos(), Contains(Pair("component", "1.2")));
    UnRegisterThirdPartyLibVersionInfo("component");
    EXPECT_THAT(GetThirdPartyLibVersionInfos(), Not(Contains(Key("component"))));
}

TEST(ThirdPartyVersions, RegisteringAgainReplacesTheVersion) {
    RegisterThirdPartyLibVersionInfo("component", "1.2");
    RegisterThirdPartyLibVersionInfo("component", "1.3");
    EXPECT_THAT(GetThirdPartyLibVersionInfos(), Contains(Pair("component", "1.3")));
    UnRegisterThirdPartyLibVersionInfo("component");
    EXPECT_THAT(GetThirdPartyLibVersionInfos(), Not(Contains(Key("component"))));
}

TEST(ThirdPartyVersions, UnknownComponentIsIgnored) {
    const auto before = GetThirdPartyLibVersionInfos();
    UnRegisterThirdPartyLibVersionInfo("never registered");
    EXPECT_EQ(GetThirdPartyLibVersionInfos(), before);
}

TEST(ThirdPartyVersions, TheTextsAreCopied) {
    std::string name = "component";
    std::string version = "1.2";
    RegisterThirdPartyLibVersionInfo(name.c_str(), version.c_str());
    name.assign(9, '#');
    version.assign(3, '#');
    EXPECT_THAT(GetThirdPartyLibVersionInfos(), Contains(Pair("component", "1.2")));
    UnRegisterThirdPartyLibVersionInfo("component");
}

} // namespace
