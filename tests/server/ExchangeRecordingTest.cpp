#include "server/ExchangeRecording.h"

#include "server/ClientConnection.h"
#include "server/EventServing.h"
#include "server/Front.h"
#include "server/RequestContext.h"
#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "vireo/ExchangeObserver.h"
#include "vireo/HttpServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using ql::http::ExchangeRecord;
using ql::impl::CutReason;
using ql::impl::ExchangeRecording;
using testing::ElementsAre;
using testing::SizeIs;
using Ending = ExchangeRecord::Ending;
using Phase = ExchangeRecord::Phase;

class Observer : public ql::http::ExchangeObserver {
public:
    void onExchange(const ExchangeRecord& record) override { records.push_back(record); }
    std::vector<ExchangeRecord> records;
};

std::vector<std::int64_t> durationsOf(const ExchangeRecord& record) {
    return {record.getDurationMs(Phase::Head), record.getDurationMs(Phase::Body), record.getDurationMs(Phase::Wait),
            record.getDurationMs(Phase::Send)};
}

class ExchangeRecordingTest : public testing::Test {
protected:
    /// Ends it and gives what was told.
    ExchangeRecord finish(Ending ending = Ending::Completed, std::uint32_t engineStatus = 0) {
        recording_.finish({observer_}, ending, engineStatus);
        EXPECT_THAT(observer_->records, SizeIs(1));
        return observer_->records[0];
    }
    std::int64_t now() const { return qlSystemUtils::GetTimeBaseMs(); }

    vireotest::FakeClock clock_;
    const std::shared_ptr<Observer> observer_ = std::make_shared<Observer>();
    ql::impl::ClientConnection client_{1, 0, ql::IpAddress()};
    ExchangeRecording recording_{client_, "/target"};
};

TEST_F(ExchangeRecordingTest, PhasesFollowOneUponTheOther) {
    clock_.advanceMs(1);
    recording_.reach(Phase::Body, now());
    clock_.advanceMs(20);
    recording_.reach(Phase::Wait, now());
    clock_.advanceMs(300);
    recording_.reach(Phase::Send, now());
    clock_.advanceMs(4000);
    EXPECT_THAT(durationsOf(finish()), ElementsAre(1, 20, 300, 4000));
}

TEST_F(ExchangeRecordingTest, PhaseThatIsReachedAgainGoesOn) {
    recording_.reach(Phase::Send, now());
    clock_.advanceMs(5);
    recording_.reach(Phase::Wait, now());
    recording_.reach(Phase::Send, now());
    clock_.advanceMs(5);
    EXPECT_THAT(durationsOf(finish()), ElementsAre(0, 0, 0, 10));
}

TEST_F(ExchangeRecordingTest, PhasesThatWereNotReachedHaveNoDuration) {
    recording_.reach(Phase::Body, now());
    clock_.advanceMs(5);
    EXPECT_THAT(durationsOf(finish()), ElementsAre(0, 5, -1, -1));
}

TEST_F(ExchangeRecordingTest, FirstHeadBeginsWithTheConnectionAndALaterOneWithItsRequestLine) {
    clock_.advanceMs(7);
    ExchangeRecording first(client_, "/");
    client_.requestCount = 1;
    ExchangeRecording later(client_, "/");
    first.finish({observer_}, Ending::Completed, 0);
    later.finish({observer_}, Ending::Completed, 0);
    EXPECT_EQ(observer_->records[0].getDurationMs(Phase::Head), 7);
    EXPECT_EQ(observer_->records[0].getOrdinal(), 1U);
    EXPECT_EQ(observer_->records[1].getDurationMs(Phase::Head), 0);
    EXPECT_EQ(observer_->records[1].getOrdinal(), 2U);
}

TEST_F(ExchangeRecordingTest, FirstEndingStays) {
    recording_.noteEnding(Ending::Failed, "first");
    recording_.noteEnding(Ending::Refused, "second");
    const ExchangeRecord record = finish(Ending::ClientLeft);
    EXPECT_EQ(record.getEnding(), Ending::Failed);
    EXPECT_EQ(record.getReason(), "first");
}

TEST_F(ExchangeRecordingTest, EnginesErrorIsOneOfReadingUntilThereIsAnAnswer) {
    EXPECT_EQ(finish(Ending::WriteError).getEnding(), Ending::ReadError);
}

TEST_F(ExchangeRecordingTest, EnginesErrorIsOneOfWritingOnceThereIsAnAnswer) {
    recording_.noteAnswer(200, 0, 0);
    EXPECT_EQ(finish(Ending::WriteError, 200).getEnding(), Ending::WriteError);
}

TEST_F(ExchangeRecordingTest, AnswerOfTheEnginesOwnIsARefusal) {
    const ExchangeRecord record = finish(Ending::WriteError, 431);
    EXPECT_EQ(record.getEnding(), Ending::Refused);
    EXPECT_EQ(record.getStatus(), 431);
    EXPECT_NE(record.getReason(), "");
}

TEST_F(ExchangeRecordingTest, AnswersThatHaveNoBodySendNone) {
    for (const std::uint32_t status : {101U, 204U, 304U}) {
        ExchangeRecording recording(client_, "/");
        recording.noteAnswer(status, 0, 5);
        recording.finish({observer_}, Ending::Completed, status);
        EXPECT_EQ(observer_->records.back().getSentBodyBytes(), 0U) << status;
    }
    recording_.noteAnswer(200, 0, 5);
    recording_.noteBodies(7, 6);
    recording_.finish({observer_}, Ending::Completed, 200);
    EXPECT_EQ(observer_->records.back().getSentBodyBytes(), 11U);
    EXPECT_EQ(observer_->records.back().getReceivedBodyBytes(), 7U);
}

TEST_F(ExchangeRecordingTest, EachCutHasItsEnding) {
    const std::vector<std::pair<CutReason, Ending>> cuts{
        {CutReason::None, Ending::Completed},
        {CutReason::ClientLeft, Ending::ClientLeft},
        {CutReason::HeadTimeout, Ending::HeadTimeout},
        {CutReason::BodyTimeout, Ending::BodyTimeout},
        {CutReason::AnswerTimeout, Ending::AnswerTimeout},
        {CutReason::WriteTimeout, Ending::WriteTimeout},
        {CutReason::BodyTooLarge, Ending::Refused},
    };
    for (const auto& [reason, ending] : cuts) {
        ExchangeRecording recording(client_, "/");
        recording.noteCut(reason);
        recording.finish({observer_}, Ending::Completed, 0);
        EXPECT_EQ(observer_->records.back().getEnding(), ending) << static_cast<int>(reason);
    }
}

TEST_F(ExchangeRecordingTest, NothingIsNotedWithoutObservers) {
    ql::http::HttpServer server(new vireotest::FakeServerImpl);
    ql::impl::Front front;
    ql::http::ServerOptions options;
    {
        ql::impl::EventServing serving(server, options, options.getUploadWindowBytes());
        front.serving = &serving;
        EXPECT_FALSE(ql::impl::RequestContext("/", front, &client_).recording);
    }
    options.addExchangeObserver(observer_);
    ql::impl::EventServing serving(server, options, options.getUploadWindowBytes());
    front.serving = &serving;
    EXPECT_TRUE(ql::impl::RequestContext("/", front, &client_).recording);
    EXPECT_FALSE(ql::impl::RequestContext("/", front, nullptr).recording) << "no memory for the connection";
}

} // namespace
