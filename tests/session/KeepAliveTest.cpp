#include "session/KeepAlive.h"

#include "session/pool/PoolTask.h"

#include <gtest/gtest.h>

#include <memory>

using ql::impl::KeepAlive;
using ql::impl::SessionOutput;
using ql::impl::SessionSettings;
using ql::impl::TurnResult;
using Step = KeepAlive::Step;

namespace {

constexpr std::int64_t Start = 1000000;

class KeepAliveTest : public testing::Test {
protected:
    KeepAliveTest() {
        settings.pingIntervalMs = 1000;
        settings.pongTimeoutMs = 300;
        settings.closeTimeoutMs = 50;
        output.stage = SessionOutput::Stage::Open;
    }

    KeepAlive make() const { return KeepAlive(std::make_shared<SessionSettings>(settings), Start); }

    SessionSettings settings;
    SessionOutput::Status output;
};

} // namespace

TEST_F(KeepAliveTest, AsksASilentPeerForASignOfLife) {
    const KeepAlive keepAlive = make();
    EXPECT_EQ(keepAlive.step(output, Start + 999), Step::None);
    EXPECT_EQ(keepAlive.step(output, Start + 1000), Step::Ping);
    EXPECT_EQ(keepAlive.dueMs(output), Start + 1000);
}

TEST_F(KeepAliveTest, AnythingReceivedPutsThatOff) {
    KeepAlive keepAlive = make();
    keepAlive.received(Start + 600);
    EXPECT_EQ(keepAlive.dueMs(output), Start + 1600);
    EXPECT_EQ(keepAlive.step(output, Start + 1599), Step::None);
}

TEST_F(KeepAliveTest, LosesAPeerThatDoesNotAnswerInTime) {
    KeepAlive keepAlive = make();
    keepAlive.pinged(Start + 1000);
    EXPECT_EQ(keepAlive.dueMs(output), Start + 1300);
    EXPECT_EQ(keepAlive.step(output, Start + 1299), Step::None);
    EXPECT_EQ(keepAlive.step(output, Start + 1300), Step::Lose);
    keepAlive.received(Start + 1299);
    EXPECT_EQ(keepAlive.step(output, Start + 1300), Step::None);
    EXPECT_EQ(keepAlive.dueMs(output), Start + 2299);
}

TEST_F(KeepAliveTest, WithoutALimitForTheAnswerAsksAgain) {
    settings.pongTimeoutMs = 0;
    KeepAlive keepAlive = make();
    keepAlive.pinged(Start + 1000);
    EXPECT_EQ(keepAlive.dueMs(output), Start + 2000);
    EXPECT_EQ(keepAlive.step(output, Start + 2000), Step::Ping);
}

TEST_F(KeepAliveTest, WithoutPingsASilentPeerIsLeftAlone) {
    settings.pingIntervalMs = 0;
    const KeepAlive keepAlive = make();
    EXPECT_EQ(keepAlive.dueMs(output), TurnResult::Never);
    EXPECT_EQ(keepAlive.step(output, Start + 1000000000), Step::None);
}

TEST_F(KeepAliveTest, WithoutPingsAPeerThatTakesNothingIsLost) {
    settings.pingIntervalMs = 0;
    output.fullSinceMs = Start + 100;
    EXPECT_EQ(make().step(output, Start + 399), Step::None);
    EXPECT_EQ(make().step(output, Start + 400), Step::Lose);
}

TEST_F(KeepAliveTest, LosesAPeerThatTakesNothingWhateverItSends) {
    KeepAlive keepAlive = make();
    output.fullSinceMs = Start + 100;
    keepAlive.received(Start + 1390);
    EXPECT_EQ(keepAlive.step(output, Start + 1399), Step::None);
    EXPECT_EQ(keepAlive.step(output, Start + 1400), Step::Lose);
    EXPECT_EQ(keepAlive.dueMs(output), Start + 1400);
    settings.pongTimeoutMs = 0;
    EXPECT_EQ(make().dueMs(output), Start + 1000);
}

TEST_F(KeepAliveTest, ClosesWhereNobodyHasAnythingToSay) {
    settings.idleTimeoutMs = 500;
    KeepAlive keepAlive = make();
    keepAlive.received(Start + 400); // a pong, say
    EXPECT_EQ(keepAlive.step(output, Start + 499), Step::None);
    EXPECT_EQ(keepAlive.step(output, Start + 500), Step::Close);
    keepAlive.messageReceived(Start + 300);
    EXPECT_EQ(keepAlive.step(output, Start + 799), Step::None);
    EXPECT_EQ(keepAlive.dueMs(output), Start + 800);
    output.messageMs = Start + 350;
    EXPECT_EQ(keepAlive.dueMs(output), Start + 850);
    EXPECT_EQ(keepAlive.step(output, Start + 850), Step::Close);
}

TEST_F(KeepAliveTest, LosesAPeerThatDoesNotAnswerTheClose) {
    settings.idleTimeoutMs = 10;
    KeepAlive keepAlive = make();
    output.stage = SessionOutput::Stage::Closing;
    output.closingSinceMs = Start + 100;
    keepAlive.received(Start + 149);
    EXPECT_EQ(keepAlive.dueMs(output), Start + 150);
    EXPECT_EQ(keepAlive.step(output, Start + 149), Step::None);
    EXPECT_EQ(keepAlive.step(output, Start + 150), Step::Lose);
}
