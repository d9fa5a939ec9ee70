#include "session/SessionReceiver.h"

#include "session/Codec.h"
#include "websocket/Fakes.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

using namespace ql::impl;
using sessiontest::bytesOf;
using sessiontest::clientFrame;
using sessiontest::plainSettings;
using sessiontest::Recorder;
using Result = SessionReceiver::Result;

namespace {

constexpr unsigned TextFrame = 0x81;

class SessionReceiverTest : public testing::Test {
protected:
    Result receive(Recorder& recorder) { return receiver.receive(Turn(0, buffer), 77, recorder); }

    wstest::ScriptedSocket socket;
    std::vector<unsigned char> buffer = std::vector<unsigned char>(65536);
    SessionReceiver receiver{plainSettings()};
};

} // namespace

TEST_F(SessionReceiverTest, WantsNoTurnWhenItHasTakenWhatItKept) {
    Recorder recorder;
    receiver.keep(bytesOf(clientFrame(TextFrame, "one") + clientFrame(TextFrame, "two")));
    EXPECT_TRUE(receiver.mayHaveMore());
    EXPECT_EQ(receive(recorder), Result::Drained);
    EXPECT_EQ(recorder.events.size(), 2U);
    EXPECT_FALSE(receiver.mayHaveMore());
}

TEST_F(SessionReceiverTest, GoesOnWhereItWasStopped) {
    Recorder recorder(true);
    const std::string frames = clientFrame(TextFrame, "one") + clientFrame(TextFrame, "two");
    socket.willReceive({frames.begin(), frames.end()});
    EXPECT_EQ(receive(recorder), Result::Stopped);
    EXPECT_TRUE(receiver.mayHaveMore());
    EXPECT_EQ(receive(recorder), Result::Stopped);
    EXPECT_EQ(recorder.events.size(), 2U);
    EXPECT_EQ(receive(recorder), Result::Drained);
    EXPECT_FALSE(receiver.mayHaveMore());
}
