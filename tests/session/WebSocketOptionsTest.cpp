#include "vireo/WebSocketOptions.h"

#include "session/SessionSettings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>

namespace {

using ql::http::WebSocketCompression;
using ql::http::WebSocketOptions;
using ql::impl::CompressionSettings;
using ql::impl::SessionSettings;
using testing::ElementsAre;
using testing::IsEmpty;

WebSocketCompression unusualCompression() {
    WebSocketCompression compression;
    compression.setLevel(9);
    compression.setMinBytes(0);
    compression.setServerMaxWindowBits(9);
    compression.setClientMaxWindowBits(10);
    compression.setServerNoContextTakeover(true);
    compression.setClientNoContextTakeover(true);
    return compression;
}

void expectUnusual(const WebSocketCompression& compression) {
    EXPECT_EQ(compression.getLevel(), 9);
    EXPECT_EQ(compression.getMinBytes(), 0U);
    EXPECT_EQ(compression.getServerMaxWindowBits(), 9);
    EXPECT_EQ(compression.getClientMaxWindowBits(), 10);
    EXPECT_TRUE(compression.hasServerNoContextTakeover());
    EXPECT_TRUE(compression.hasClientNoContextTakeover());
}

WebSocketOptions unusualOptions() {
    WebSocketOptions options;
    options.setMaxMessageBytes(1);
    options.setMaxQueuedBytes(2);
    options.setQueuePolicy(WebSocketOptions::QueuePolicy::Wait);
    options.addAllowedOrigin("https://example.org");
    options.setPingIntervalMs(11);
    options.setPongTimeoutMs(12);
    options.setIdleTimeoutMs(13);
    options.setCloseTimeoutMs(14);
    options.setCompression(unusualCompression());
    options.setPieces(true);
    options.setThreads(3);
    return options;
}

void expectUnusual(const WebSocketOptions& options) {
    EXPECT_EQ(options.getMaxMessageBytes(), 1U);
    EXPECT_EQ(options.getMaxQueuedBytes(), 2U);
    EXPECT_EQ(options.getQueuePolicy(), WebSocketOptions::QueuePolicy::Wait);
    EXPECT_THAT(options.getAllowedOrigins(), ElementsAre("https://example.org"));
    EXPECT_EQ(options.getPingIntervalMs(), 11U);
    EXPECT_EQ(options.getPongTimeoutMs(), 12U);
    EXPECT_EQ(options.getIdleTimeoutMs(), 13U);
    EXPECT_EQ(options.getCloseTimeoutMs(), 14U);
    ASSERT_TRUE(options.getCompression());
    expectUnusual(*options.getCompression());
    EXPECT_TRUE(options.hasPieces());
    EXPECT_EQ(options.getThreads(), 3U);
}

TEST(WebSocketOptions, HaveTheirDefaults) {
    const WebSocketOptions options;
    EXPECT_EQ(options.getMaxMessageBytes(), 1048576U);
    EXPECT_EQ(options.getMaxQueuedBytes(), 4194304U);
    EXPECT_EQ(options.getQueuePolicy(), WebSocketOptions::QueuePolicy::Close);
    EXPECT_THAT(options.getAllowedOrigins(), IsEmpty());
    EXPECT_EQ(options.getPingIntervalMs(), 45000U);
    EXPECT_EQ(options.getPongTimeoutMs(), 20000U);
    EXPECT_EQ(options.getIdleTimeoutMs(), 0U);
    EXPECT_EQ(options.getCloseTimeoutMs(), 5000U);
    EXPECT_FALSE(options.getCompression());
    EXPECT_FALSE(options.hasPieces());
    EXPECT_EQ(options.getThreads(), 2U);
    EXPECT_EQ(options.getPool(), nullptr);
}

TEST(WebSocketOptions, AreKeptByCopiesAndMoves) {
    WebSocketOptions options = unusualOptions();
    const WebSocketOptions copy = options;
    expectUnusual(copy);
    WebSocketOptions assigned;
    assigned = copy;
    expectUnusual(assigned);
    const WebSocketOptions moved = std::move(options);
    expectUnusual(moved);
    options = moved;
    expectUnusual(options);
    assigned.setThreads(4);
    EXPECT_EQ(copy.getThreads(), 3U);
}

TEST(WebSocketOptions, AreWhatTheLibrarySees) {
    const WebSocketOptions options = unusualOptions();
    const SessionSettings& settings = SessionSettings::of(options);
    EXPECT_EQ(settings.maxMessageBytes, 1U);
    EXPECT_EQ(settings.maxQueuedBytes, 2U);
    EXPECT_EQ(CompressionSettings::of(*settings.compression).deflate.clientMaxWindowBits, 10);
    ASSERT_EQ(settings.allowedOrigins.size(), 1U);
    EXPECT_EQ(settings.allowedOrigins[0].port, 443U);
}

TEST(WebSocketOptions, LimitsAreNotZero) {
    WebSocketOptions options;
    EXPECT_THROW(options.setMaxMessageBytes(0), std::invalid_argument);
    EXPECT_THROW(options.setMaxQueuedBytes(0), std::invalid_argument);
    options.setMaxMessageBytes(std::numeric_limits<std::uint64_t>::max());
    options.setMaxQueuedBytes(std::numeric_limits<std::uint64_t>::max());
}

TEST(WebSocketOptions, TimesAreInTheirBounds) {
    using Setter = void (WebSocketOptions::*)(std::uint32_t);
    WebSocketOptions options;
    for (const Setter set : {&WebSocketOptions::setPingIntervalMs, &WebSocketOptions::setPongTimeoutMs,
                             &WebSocketOptions::setIdleTimeoutMs, &WebSocketOptions::setCloseTimeoutMs}) {
        EXPECT_THROW((options.*set)(WebSocketOptions::MinTimeMs - 1), std::invalid_argument);
        EXPECT_THROW((options.*set)(WebSocketOptions::MaxTimeMs + 1), std::invalid_argument);
        (options.*set)(WebSocketOptions::MinTimeMs);
        (options.*set)(WebSocketOptions::MaxTimeMs);
    }
    options.setPingIntervalMs(0);
    options.setPongTimeoutMs(0);
    options.setIdleTimeoutMs(0);
    EXPECT_THROW(options.setCloseTimeoutMs(0), std::invalid_argument);
    EXPECT_EQ(options.getCloseTimeoutMs(), WebSocketOptions::MaxTimeMs);
}

TEST(WebSocketOptions, ThreadsAreInTheirBounds) {
    WebSocketOptions options;
    EXPECT_THROW(options.setThreads(0), std::invalid_argument);
    EXPECT_THROW(options.setThreads(WebSocketOptions::MaxThreads + 1), std::invalid_argument);
    options.setThreads(WebSocketOptions::MaxThreads);
    EXPECT_EQ(options.getThreads(), WebSocketOptions::MaxThreads);
}

TEST(WebSocketOptions, NameOriginsAndNothingElse) {
    WebSocketOptions options;
    for (const char* const text : {"", "null", "example.org", "https://example.org/", "*", "ftp://example.org"}) {
        EXPECT_THROW(options.addAllowedOrigin(text), std::invalid_argument) << text;
    }
    EXPECT_THAT(options.getAllowedOrigins(), IsEmpty());
}

TEST(WebSocketCompression, HasItsDefaults) {
    const WebSocketCompression compression;
    EXPECT_EQ(compression.getLevel(), 1);
    EXPECT_EQ(compression.getMinBytes(), 256U);
    EXPECT_EQ(compression.getServerMaxWindowBits(), 15);
    EXPECT_EQ(compression.getClientMaxWindowBits(), 15);
    EXPECT_FALSE(compression.hasServerNoContextTakeover());
    EXPECT_FALSE(compression.hasClientNoContextTakeover());
}

TEST(WebSocketCompression, IsKeptByCopiesAndMoves) {
    WebSocketCompression compression = unusualCompression();
    WebSocketCompression copy = compression;
    expectUnusual(copy);
    const WebSocketCompression moved = std::move(compression);
    expectUnusual(moved);
    compression = moved;
    expectUnusual(compression);
    copy.setLevel(2);
    EXPECT_EQ(moved.getLevel(), 9);
}

TEST(WebSocketCompression, NumbersAreInTheirBounds) {
    WebSocketCompression compression;
    EXPECT_THROW(compression.setLevel(0), std::invalid_argument);
    EXPECT_THROW(compression.setLevel(10), std::invalid_argument);
    EXPECT_THROW(compression.setServerMaxWindowBits(8), std::invalid_argument);
    EXPECT_THROW(compression.setServerMaxWindowBits(16), std::invalid_argument);
    EXPECT_THROW(compression.setClientMaxWindowBits(8), std::invalid_argument);
    EXPECT_THROW(compression.setClientMaxWindowBits(16), std::invalid_argument);
    compression.setLevel(9);
    compression.setServerMaxWindowBits(9);
    compression.setClientMaxWindowBits(15);
}

} // namespace
