#include "engine/ConnectionTracking.h"

#include "engine/EngineCallbacks.h"
#include "support/FakeClock.h"
#include "support/TestLog.h"
#include "vireo/support/qlSystemUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using ql::impl::ConnectionRecord;
using ql::impl::makeConnectionId;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vireotest::FakeClock;
using vireotest::TestLog;

constexpr qlLogType Connection = static_cast<qlLogType>(1);
constexpr qlLogType Warning = static_cast<qlLogType>(2);

MATCHER(Is32LowerCaseHexadecimalDigits, "") {
    return arg.size() == 32 && arg.find_first_not_of("0123456789abcdef") == std::string::npos;
}

std::array<unsigned int, 16> bytesOf(const std::string& id) {
    std::array<unsigned int, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned int>(std::stoul(id.substr(2 * i, 2), nullptr, 16));
    }
    return bytes;
}

bool isConnectionId(const std::string& text) {
    return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

TEST(ConnectionId, Is32LowerCaseHexadecimalDigits) {
    for (int i = 0; i < 100; ++i) {
        EXPECT_PRED1(isConnectionId, makeConnectionId());
    }
}

TEST(ConnectionId, SaysVersion7AndItsVariant) {
    for (int i = 0; i < 100; ++i) {
        const std::string id = makeConnectionId();
        EXPECT_EQ(id[12], '7') << id;
        EXPECT_THAT(id[16], AnyOf('8', '9', 'a', 'b')) << id;
    }
}

TEST(ConnectionId, BeginsWithTheWallClock) {
    const std::int64_t before = qlSystemUtils::GetMSecElapsedSinceEpoch();
    const std::string id = makeConnectionId();
    const std::int64_t after = qlSystemUtils::GetMSecElapsedSinceEpoch();
    const std::int64_t timeMs = std::stoll(id.substr(0, 12), nullptr, 16);
    EXPECT_GE(timeMs, before);
    EXPECT_LE(timeMs, after);
}

TEST(ConnectionId, EveryOtherBitIsRandom) {
    std::array<unsigned int, 16> everSet{};
    std::array<unsigned int, 16> everClear{};
    for (int i = 0; i < 200; ++i) {
        const std::array<unsigned int, 16> bytes = bytesOf(makeConnectionId());
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            everSet[at] |= bytes[at];
            everClear[at] |= ~bytes[at] & 0xFFU;
        }
    }
    for (std::size_t at = 6; at < everSet.size(); ++at) {
        const unsigned int randomBits = at == 6 ? 0x0FU : at == 8 ? 0x3FU : 0xFFU;
        EXPECT_EQ(everSet[at] & randomBits, randomBits) << at;
        EXPECT_EQ(everClear[at] & randomBits, randomBits) << at;
    }
}

TEST(ConnectionId, IsUniqueWithinAMillisecond) {
    std::set<std::string> ids;
    for (int i = 0; i < 10000; ++i) {
        ids.insert(makeConnectionId());
    }
    EXPECT_EQ(ids.size(), 10000U);
}

class ConnectionTrackingTest : public testing::Test {
protected:
    void start() { ql::impl::onConnection(nullptr, nullptr, &slot_, MHD_CONNECTION_NOTIFY_STARTED); }
    void close() { ql::impl::onConnection(nullptr, nullptr, &slot_, MHD_CONNECTION_NOTIFY_CLOSED); }

    ConnectionRecord& record() { return *static_cast<ConnectionRecord*>(slot_); }

    /// The lines that the end of a connection leaves, with "ID" where its id stood.
    std::vector<TestLog::Line> linesOfClosing(std::uint32_t requests, std::int64_t durationMs,
                                              std::set<qlLogType> disabled = {}) {
        const TestLog logOfTheStart;
        start();
        const std::string id = record().connectionId;
        record().requestCount = requests;
        clock_.advanceMs(durationMs);
        const TestLog log(false, std::move(disabled));
        close();
        std::vector<TestLog::Line> lines = log.lines();
        for (TestLog::Line& line : lines) {
            if (const std::size_t at = line.text.find(id); at != std::string::npos) {
                line.text.replace(at, id.size(), "ID");
            }
        }
        return lines;
    }

    static TestLog::Line warning() {
        return {Warning, "tcp", "TCP connection was not reused ! ID reverse proxy might be missconfigured !"};
    }
    static TestLog::Line closed(const std::string& uses) {
        return {Connection, "tcp", "TCP connection closed ID after " + uses};
    }

    FakeClock clock_;
    void* slot_ = nullptr;
};

TEST_F(ConnectionTrackingTest, StartMakesARecord) {
    const TestLog log;
    start();
    ASSERT_NE(slot_, nullptr);
    EXPECT_PRED1(isConnectionId, record().connectionId);
    EXPECT_EQ(record().startTime, clock_.nowMs());
    EXPECT_EQ(record().requestCount, 0U);
    close();
}

TEST_F(ConnectionTrackingTest, StartIsLogged) {
    const TestLog log;
    start();
    EXPECT_THAT(log.lines(),
                ElementsAre(TestLog::Line{Connection, "tcp", "TCP connection started " + record().connectionId}));
    close();
}

TEST_F(ConnectionTrackingTest, StartIsNotLoggedWhenItsTypeIsDisabled) {
    const TestLog log(false, {Connection, Warning});
    start();
    close();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ConnectionTrackingTest, RecordOfAnUnloggedConnectionExistsAllTheSame) {
    const TestLog log(false, {Connection});
    start();
    EXPECT_NE(slot_, nullptr);
    close();
}

TEST_F(ConnectionTrackingTest, CloseClearsTheSlot) {
    const TestLog log;
    start();
    close();
    EXPECT_EQ(slot_, nullptr);
}

TEST_F(ConnectionTrackingTest, CloseWithoutARecordDoesNothing) {
    const TestLog log;
    close();
    EXPECT_EQ(slot_, nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ConnectionTrackingTest, ShortConnectionOfOneRequestWarns) {
    EXPECT_THAT(linesOfClosing(1, 100), ElementsAre(warning(), closed("1 uses in 100ms")));
}

TEST_F(ConnectionTrackingTest, ShortConnectionWithoutRequestWarns) {
    EXPECT_THAT(linesOfClosing(0, 0), ElementsAre(warning(), closed("0 uses in 0ms")));
}

TEST_F(ConnectionTrackingTest, ShortConnectionOfTwoRequestsDoesNotWarn) {
    EXPECT_THAT(linesOfClosing(2, 0), ElementsAre(closed("2 uses in 0ms")));
}

TEST_F(ConnectionTrackingTest, ConnectionOf5SecondsDoesNotWarn) {
    EXPECT_THAT(linesOfClosing(1, 5000), ElementsAre(closed("1 uses in 5s")));
    EXPECT_THAT(linesOfClosing(0, 5001), ElementsAre(closed("0 uses in 5s 1ms")));
}

TEST_F(ConnectionTrackingTest, ConnectionOfLessThan5SecondsWarns) {
    EXPECT_THAT(linesOfClosing(1, 4999), ElementsAre(warning(), closed("1 uses in 4s 999ms")));
}

TEST_F(ConnectionTrackingTest, UsesAndDurationAreWrittenOut) {
    EXPECT_THAT(linesOfClosing(4294967295U, 90061001), ElementsAre(closed("4294967295 uses in 1d 1h 1m")));
}

TEST_F(ConnectionTrackingTest, DisabledWarningIsNotLogged) {
    EXPECT_THAT(linesOfClosing(1, 100, {Warning}), ElementsAre(closed("1 uses in 100ms")));
}

TEST_F(ConnectionTrackingTest, DisabledCloseLeavesTheWarning) {
    EXPECT_THAT(linesOfClosing(1, 100, {Connection}), ElementsAre(warning()));
}

TEST_F(ConnectionTrackingTest, AnyOtherCodeCloses) {
    const TestLog log;
    start();
    ql::impl::onConnection(nullptr, nullptr, &slot_, static_cast<MHD_ConnectionNotificationCode>(1));
    EXPECT_EQ(slot_, nullptr);
}

TEST_F(ConnectionTrackingTest, MissingLogDoesNotSkipTheLines) {
    testing::internal::CaptureStderr();
    start();
    const std::string id = record().connectionId;
    close();
    const std::string written = testing::internal::GetCapturedStderr();
    EXPECT_THAT(written, HasSubstr("TCP connection started " + id));
    EXPECT_THAT(written, HasSubstr("TCP connection was not reused ! " + id));
    EXPECT_THAT(written, HasSubstr("TCP connection closed " + id + " after 0 uses in 0ms"));
}

TEST_F(ConnectionTrackingTest, ConnectionsHaveRecordsOfTheirOwn) {
    const TestLog log;
    start();
    const std::string first = record().connectionId;
    void* other = nullptr;
    ql::impl::onConnection(nullptr, nullptr, &other, MHD_CONNECTION_NOTIFY_STARTED);
    EXPECT_NE(static_cast<ConnectionRecord*>(other)->connectionId, first);
    ql::impl::onConnection(nullptr, nullptr, &other, MHD_CONNECTION_NOTIFY_CLOSED);
    EXPECT_EQ(record().connectionId, first);
    close();
}

} // namespace
