#include "vireo/ExchangeRecord.h"

#include "server/ExchangeRecordData.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <utility>

namespace {

using ql::http::ExchangeRecord;
using ql::impl::ExchangeRecordData;
using Phase = ExchangeRecord::Phase;
using Ending = ExchangeRecord::Ending;

TEST(ExchangeRecord, NothingKnownIsToldAsSuch) {
    const ExchangeRecord record(std::make_shared<ExchangeRecordData>());
    EXPECT_EQ(record.getMethod(), "");
    EXPECT_EQ(record.getTarget(), "");
    EXPECT_EQ(record.getVersion(), "");
    EXPECT_EQ(record.getReferer(), "");
    EXPECT_EQ(record.getUserAgent(), "");
    EXPECT_EQ(record.getStatus(), 0);
    EXPECT_EQ(record.getReceivedHeadBytes(), 0U);
    EXPECT_EQ(record.getReceivedBodyBytes(), 0U);
    EXPECT_EQ(record.getSentHeadBytes(), 0U);
    EXPECT_EQ(record.getSentBodyBytes(), 0U);
    for (const Phase phase : {Phase::Head, Phase::Body, Phase::Wait, Phase::Send}) {
        EXPECT_EQ(record.getDurationMs(phase), -1);
    }
    EXPECT_EQ(record.getTotalDurationMs(), 0);
    EXPECT_EQ(record.getStartTime(), std::chrono::system_clock::time_point());
    EXPECT_TRUE(record.getClientAddress().isEmpty());
    EXPECT_EQ(record.getClientText(), "");
    EXPECT_EQ(record.getClientPort(), 0);
    EXPECT_TRUE(record.getLocalAddress().isEmpty());
    EXPECT_EQ(record.getLocalPort(), 0);
    EXPECT_EQ(record.getConnectionId(), "");
    EXPECT_EQ(record.getOrdinal(), 0U);
    EXPECT_EQ(record.getEnding(), Ending::Completed);
    EXPECT_EQ(record.getReason(), "");
}

TEST(ExchangeRecord, EachValueIsToldByItsOwnGetter) {
    ExchangeRecordData data;
    data.method = "method";
    data.target = "target";
    data.version = "version";
    data.referer = "referer";
    data.userAgent = "agent";
    data.status = 201;
    data.receivedHeadBytes = 1;
    data.receivedBodyBytes = 2;
    data.sentHeadBytes = 3;
    data.sentBodyBytes = 4;
    data.durationsMs = {5, 6, 7, 8};
    data.startTime += std::chrono::hours(9);
    data.clientPort = 10;
    data.localPort = 11;
    data.connectionId = "connection";
    data.ordinal = 12;
    data.ending = Ending::ServerStopped;
    data.reason = "reason";
    const ExchangeRecord record(std::make_shared<ExchangeRecordData>(data));

    EXPECT_EQ(record.getMethod(), "method");
    EXPECT_EQ(record.getTarget(), "target");
    EXPECT_EQ(record.getVersion(), "version");
    EXPECT_EQ(record.getReferer(), "referer");
    EXPECT_EQ(record.getUserAgent(), "agent");
    EXPECT_EQ(record.getStatus(), 201);
    EXPECT_EQ(record.getReceivedHeadBytes(), 1U);
    EXPECT_EQ(record.getReceivedBodyBytes(), 2U);
    EXPECT_EQ(record.getSentHeadBytes(), 3U);
    EXPECT_EQ(record.getSentBodyBytes(), 4U);
    EXPECT_EQ(record.getDurationMs(Phase::Head), 5);
    EXPECT_EQ(record.getDurationMs(Phase::Body), 6);
    EXPECT_EQ(record.getDurationMs(Phase::Wait), 7);
    EXPECT_EQ(record.getDurationMs(Phase::Send), 8);
    EXPECT_EQ(record.getTotalDurationMs(), 26);
    EXPECT_EQ(record.getStartTime(), std::chrono::system_clock::time_point() + std::chrono::hours(9));
    EXPECT_EQ(record.getClientPort(), 10);
    EXPECT_EQ(record.getLocalPort(), 11);
    EXPECT_EQ(record.getConnectionId(), "connection");
    EXPECT_EQ(record.getOrdinal(), 12U);
    EXPECT_EQ(record.getEnding(), Ending::ServerStopped);
    EXPECT_EQ(record.getReason(), "reason");
}

TEST(ExchangeRecord, PhaseThatWasNeverReachedTakesNoTime) {
    ExchangeRecordData data;
    data.durationsMs = {20, 0, -1, -1};
    EXPECT_EQ(ExchangeRecord(std::make_shared<ExchangeRecordData>(data)).getTotalDurationMs(), 20);
}

TEST(ExchangeRecord, CopyOutlivesItsOriginalAndAMoveLeavesItWhole) {
    ExchangeRecordData data;
    data.target = "/kept";
    auto original = std::make_unique<ExchangeRecord>(std::make_shared<ExchangeRecordData>(data));
    ExchangeRecord assigned(std::make_shared<ExchangeRecordData>());
    assigned = *original;
    const ExchangeRecord moved(std::move(*original));
    EXPECT_EQ(original->getTarget(), "/kept");
    original.reset();
    EXPECT_EQ(assigned.getTarget(), "/kept");
    EXPECT_EQ(moved.getTarget(), "/kept");
}

TEST(ExchangeRecord, EachEndingAndEachPhaseHasAWordOfItsOwn) {
    std::set<std::string> words{""};
    for (std::size_t i = 0; i < ExchangeRecord::EndingCount; ++i) {
        EXPECT_TRUE(words.insert(ExchangeRecord::toText(static_cast<Ending>(i))).second) << i;
    }
    for (std::size_t i = 0; i < ExchangeRecord::PhaseCount; ++i) {
        EXPECT_TRUE(words.insert(ExchangeRecord::toText(static_cast<Phase>(i))).second) << i;
    }
    // They are labels of metrics and words of log lines.
    for (const std::string& word : words) {
        EXPECT_EQ(word.find_first_not_of("abcdefghijklmnopqrstuvwxyz_"), std::string::npos) << word;
    }
    EXPECT_STREQ(ExchangeRecord::toText(static_cast<Ending>(ExchangeRecord::EndingCount)), "");
    EXPECT_STREQ(ExchangeRecord::toText(static_cast<Phase>(ExchangeRecord::PhaseCount)), "");
}

} // namespace
