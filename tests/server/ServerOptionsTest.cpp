#include "vireo/ServerOptions.h"

#include "vireo/ExchangeObserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <utility>

namespace {

using ql::http::ServerOptions;

class Observer : public ql::http::ExchangeObserver {
    void onExchange(const ql::http::ExchangeRecord& /*record*/) override {}
};

ServerOptions unusualOptions() {
    ServerOptions options;
    options.setConnectionMemoryBytes(32768);
    options.setTurbo(true);
    options.setWaiting(ServerOptions::Waiting::Event);
    options.setUploadWindowBytes(65536);
    options.addExchangeObserver(std::make_shared<Observer>());
    options.setEndOnClientClose(false);
    options.setMaxBodyBytes(1);
    options.setMaxHeadBytes(2);
    options.setMaxRequestsPerConnection(3);
    options.setMaxConnections(12);
    options.setMaxConnectionsPerAddress(3);
    options.setDrainGraceMs(4567);
    options.setDrainAnswer(ServerOptions::DrainAnswer::Refuse);
    options.setHeadTimeoutMs(101);
    options.setBodyProgress(102, 103);
    options.setAnswerTimeoutMs(104);
    options.setWriteTimeoutMs(105);
    options.setStrictHttp(true);
    options.addMethod("BREW");
    return options;
}

void expectUnusual(const ServerOptions& options) {
    EXPECT_EQ(options.getConnectionMemoryBytes(), 32768U);
    EXPECT_TRUE(options.isTurbo());
    EXPECT_EQ(options.getWaiting(), ServerOptions::Waiting::Event);
    EXPECT_EQ(options.getUploadWindowBytes(), 65536U);
    EXPECT_EQ(options.getExchangeObservers().size(), 1U);
    EXPECT_FALSE(options.endsOnClientClose());
    EXPECT_EQ(options.getMaxBodyBytes(), 1U);
    EXPECT_EQ(options.getMaxHeadBytes(), 2U);
    EXPECT_EQ(options.getMaxRequestsPerConnection(), 3U);
    EXPECT_EQ(options.getMaxConnections(), 12U);
    EXPECT_EQ(options.getMaxConnectionsPerAddress(), 3U);
    EXPECT_EQ(options.getDrainGraceMs(), 4567U);
    EXPECT_EQ(options.getDrainAnswer(), ServerOptions::DrainAnswer::Refuse);
    EXPECT_EQ(options.getHeadTimeoutMs(), 101U);
    EXPECT_EQ(options.getBodyProgressBytes(), 102U);
    EXPECT_EQ(options.getBodyProgressMs(), 103U);
    EXPECT_EQ(options.getAnswerTimeoutMs(), 104U);
    EXPECT_EQ(options.getWriteTimeoutMs(), 105U);
    EXPECT_TRUE(options.isStrictHttp());
    EXPECT_THAT(options.getMethods(), testing::ElementsAre("BREW"));
}

TEST(ServerOptions, HaveTheirDefaults) {
    const ServerOptions options;
    EXPECT_EQ(options.getConnectionMemoryBytes(), 262144U);
    EXPECT_FALSE(options.isTurbo());
    EXPECT_TRUE(options.endsOnClientClose());
    EXPECT_EQ(options.getWaiting(), ServerOptions::Waiting::Polling);
    EXPECT_EQ(options.getUploadWindowBytes(), 1048576U);
    EXPECT_TRUE(options.getExchangeObservers().empty());
    EXPECT_EQ(options.getMaxBodyBytes(), 0U);
    EXPECT_EQ(options.getMaxHeadBytes(), 0U);
    EXPECT_EQ(options.getMaxRequestsPerConnection(), 0U);
    EXPECT_EQ(options.getMaxConnections(), 0U);
    EXPECT_EQ(options.getMaxConnectionsPerAddress(), 0U);
    EXPECT_EQ(options.getDrainGraceMs(), 0U);
    EXPECT_EQ(options.getDrainAnswer(), ServerOptions::DrainAnswer::Serve);
    EXPECT_EQ(options.getHeadTimeoutMs(), 30000U);
    EXPECT_EQ(options.getBodyProgressBytes(), 4096U);
    EXPECT_EQ(options.getBodyProgressMs(), 30000U);
    EXPECT_EQ(options.getAnswerTimeoutMs(), 300000U);
    EXPECT_EQ(options.getWriteTimeoutMs(), 60000U);
    EXPECT_FALSE(options.isStrictHttp());
    EXPECT_TRUE(options.getMethods().empty());
}

TEST(ServerOptions, EventsTakeLessMemoryUnlessToldOtherwise) {
    ServerOptions options;
    options.setWaiting(ServerOptions::Waiting::Event);
    EXPECT_EQ(options.getConnectionMemoryBytes(), 65536U);
    options.setWaiting(ServerOptions::Waiting::Polling);
    EXPECT_EQ(options.getConnectionMemoryBytes(), 262144U);
    options.setConnectionMemoryBytes(262144);
    options.setWaiting(ServerOptions::Waiting::Event);
    EXPECT_EQ(options.getConnectionMemoryBytes(), 262144U);
}

TEST(ServerOptions, OfThroughputDifferInWhatCostsTime) {
    ServerOptions options = ServerOptions::ForThroughput();
    EXPECT_EQ(options.getWaiting(), ServerOptions::Waiting::Event);
    EXPECT_EQ(options.getConnectionMemoryBytes(), 32768U);
    EXPECT_TRUE(options.isTurbo());
    EXPECT_EQ(options.getFiling(), ServerOptions::Filing::OnDemand);
    EXPECT_FALSE(options.isStrictHttp());
    options.setTurbo(false);
    EXPECT_FALSE(options.isTurbo());
}

TEST(ServerOptions, KeepWhatIsSet) {
    ServerOptions options = unusualOptions();
    expectUnusual(options);
    options.setTurbo(false);
    EXPECT_FALSE(options.isTurbo());
}

TEST(ServerOptions, CopyIsIndependentOfItsOriginal) {
    ServerOptions original = unusualOptions();
    const ServerOptions copy(original);
    ServerOptions assigned;
    assigned = original;
    original = ServerOptions();
    expectUnusual(copy);
    expectUnusual(assigned);
    EXPECT_FALSE(original.isTurbo());
}

TEST(ServerOptions, MoveTakesEverythingAndTheRestCanBeAssignedTo) {
    ServerOptions original = unusualOptions();
    const ServerOptions moved(std::move(original));
    expectUnusual(moved);
    original = moved;
    expectUnusual(original);
    ServerOptions assigned;
    assigned = std::move(original);
    expectUnusual(assigned);
}

TEST(ServerOptions, MemoryOutOfRangeIsRefusedAndChangesNothing) {
    ServerOptions options = unusualOptions();
    for (const std::size_t bytes :
         {std::size_t{0}, ServerOptions::MinConnectionMemoryBytes - 1, ServerOptions::MaxConnectionMemoryBytes + 1,
          std::numeric_limits<std::size_t>::max()}) {
        EXPECT_THROW(options.setConnectionMemoryBytes(bytes), std::invalid_argument) << bytes;
    }
    expectUnusual(options);
}

TEST(ServerOptions, BothBoundsOfTheMemoryAreAccepted) {
    ServerOptions options;
    for (const std::size_t bytes : {ServerOptions::MinConnectionMemoryBytes, ServerOptions::MaxConnectionMemoryBytes}) {
        options.setConnectionMemoryBytes(bytes);
        EXPECT_EQ(options.getConnectionMemoryBytes(), bytes);
    }
}

TEST(ServerOptions, WindowThatIsTooSmallIsRefusedAndChangesNothing) {
    ServerOptions options;
    EXPECT_THROW(options.setUploadWindowBytes(ServerOptions::MinUploadWindowBytes - 1), std::invalid_argument);
    EXPECT_EQ(options.getUploadWindowBytes(), 1048576U);
    options.setUploadWindowBytes(ServerOptions::MinUploadWindowBytes);
    EXPECT_EQ(options.getUploadWindowBytes(), ServerOptions::MinUploadWindowBytes);
}

TEST(ServerOptions, ObserversAreKeptInTheirOrderAndNoneIsNull) {
    const auto first = std::make_shared<Observer>();
    const auto second = std::make_shared<Observer>();
    ServerOptions options;
    options.addExchangeObserver(first);
    EXPECT_THROW(options.addExchangeObserver(nullptr), std::invalid_argument);
    options.addExchangeObserver(second);
    ASSERT_EQ(options.getExchangeObservers().size(), 2U);
    EXPECT_EQ(options.getExchangeObservers()[0], first);
    EXPECT_EQ(options.getExchangeObservers()[1], second);
}

TEST(ServerOptions, DeadlineOutOfRangeIsRefusedAndChangesNothing) {
    ServerOptions options = unusualOptions();
    for (const std::uint32_t ms : {std::uint32_t{1}, ServerOptions::MinDeadlineMs - 1, ServerOptions::MaxDeadlineMs + 1,
                                   std::numeric_limits<std::uint32_t>::max()}) {
        EXPECT_THROW(options.setHeadTimeoutMs(ms), std::invalid_argument) << ms;
        EXPECT_THROW(options.setBodyProgress(1, ms), std::invalid_argument) << ms;
        EXPECT_THROW(options.setAnswerTimeoutMs(ms), std::invalid_argument) << ms;
        EXPECT_THROW(options.setWriteTimeoutMs(ms), std::invalid_argument) << ms;
    }
    for (const std::uint64_t bytes : {std::uint64_t{0}, ServerOptions::MaxBodyProgressBytes + 1}) {
        EXPECT_THROW(options.setBodyProgress(bytes, ServerOptions::MinDeadlineMs), std::invalid_argument) << bytes;
    }
    expectUnusual(options);
}

TEST(ServerOptions, BothBoundsOfADeadlineAndNoneAreAccepted) {
    ServerOptions options;
    for (const std::uint32_t ms : {std::uint32_t{0}, ServerOptions::MinDeadlineMs, ServerOptions::MaxDeadlineMs}) {
        options.setHeadTimeoutMs(ms);
        options.setBodyProgress(ServerOptions::MaxBodyProgressBytes, ms);
        options.setAnswerTimeoutMs(ms);
        options.setWriteTimeoutMs(ms);
        EXPECT_EQ(options.getHeadTimeoutMs(), ms);
        EXPECT_EQ(options.getBodyProgressMs(), ms);
        EXPECT_EQ(options.getBodyProgressBytes(), ServerOptions::MaxBodyProgressBytes);
        EXPECT_EQ(options.getAnswerTimeoutMs(), ms);
        EXPECT_EQ(options.getWriteTimeoutMs(), ms);
    }
}

TEST(ServerOptions, MethodsAreTokens) {
    ServerOptions options;
    for (const char* const token : {"", "BREW COFFEE", "BREW:", "BR\xC3\x9CW"}) {
        EXPECT_THROW(options.addMethod(token), std::invalid_argument) << token;
    }
    options.addMethod("M-SEARCH");
    options.addMethod("brew");
    EXPECT_THAT(options.getMethods(), testing::ElementsAre("M-SEARCH", "brew"));
}

} // namespace
