#include "session/SessionBench.h"
#include "vireo/WebSocketMessage.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

using namespace sessiontest;
using ql::http::WebSocketHandle;
using ql::http::WebSocketMessage;
using ql::http::WebSocketSend;
using ql::http::WebSocketWriter;

namespace {

class WebSocketHandleTest : public testing::Test {
protected:
    OpenPeer peer;
};

using WebSocketWriterTest = WebSocketHandleTest;

} // namespace

TEST(WebSocketHandle, WithoutAConnectionRefusesEverything) {
    const WebSocketHandle none;
    EXPECT_EQ(none.sendText("x"), WebSocketSend::Closed);
    EXPECT_EQ(none.sendBinary({}), WebSocketSend::Closed);
    EXPECT_EQ(none.send(WebSocketMessage::Text("x")), WebSocketSend::Closed);
    EXPECT_EQ(none.ping(), WebSocketSend::Closed);
    EXPECT_EQ(none.queuedBytes(), 0U);
    EXPECT_FALSE(none.isOpen());
    none.close();
    WebSocketWriter writer = none.beginText();
    EXPECT_EQ(writer.write("x"), WebSocketSend::Closed);
    EXPECT_EQ(writer.finish(), WebSocketSend::Closed);
    EXPECT_TRUE(none == WebSocketHandle());
}

TEST_F(WebSocketHandleTest, KnowsItsConnectionAgain) {
    const WebSocketHandle copy = peer.handle;
    EXPECT_TRUE(copy == peer.handle);
    EXPECT_FALSE(copy == WebSocketHandle());
    Peer other;
    EXPECT_FALSE(copy == other.session().getHandle());
}

TEST_F(WebSocketHandleTest, SendsWhatItIsGiven) {
    peer.handle.sendText("text");
    EXPECT_EQ(peer.receive(), (Frame{TextFrame, "text"}));
    peer.handle.sendBinary(wstest::Bytes{1, 2});
    EXPECT_EQ(peer.receive(), (Frame{BinaryFrame, "\1\2"}));
    peer.handle.send(WebSocketMessage::Text("shared"));
    EXPECT_EQ(peer.receive(), (Frame{TextFrame, "shared"}));
    peer.handle.sendText("");
    EXPECT_EQ(peer.receive(), (Frame{TextFrame, ""}));
}

TEST_F(WebSocketHandleTest, RefusesWhatIsAgainstTheProtocol) {
    EXPECT_THROW(peer.handle.sendText("\xFF"), std::invalid_argument);
    EXPECT_THROW(WebSocketMessage::Text("\xFF"), std::invalid_argument);
    EXPECT_THROW(peer.handle.ping(std::string(126, 'x')), std::invalid_argument);
    EXPECT_THROW(peer.handle.close(1000, "\xFF"), std::invalid_argument);
    EXPECT_THROW(peer.handle.close(1000, std::string(124, 'x')), std::invalid_argument);
    for (const int code : {0, 999, 1004, 1005, 1006, 1010, 1015, 1016, 2999, 5000, 65535}) {
        EXPECT_THROW(peer.handle.close(static_cast<std::uint16_t>(code)), std::invalid_argument) << code;
    }
    EXPECT_TRUE(peer.handle.isOpen());
    EXPECT_EQ(peer.handle.ping(std::string(125, 'x')), WebSocketSend::Queued);
    EXPECT_EQ(peer.receive(), (Frame{PingFrame, std::string(125, 'x')}));
    peer.handle.close(4999, std::string(123, 'x'));
    EXPECT_EQ(peer.receive(), (Frame{CloseFrame, closePayload(4999, std::string(123, 'x'))}));
}

TEST_F(WebSocketHandleTest, EachCodeThatMayBeSentIs) {
    for (const int code : {1000, 1001, 1002, 1003, 1007, 1008, 1009, 1011, 1012, 1013, 1014, 3000, 4999}) {
        OpenPeer other;
        other.handle.close(static_cast<std::uint16_t>(code));
        EXPECT_EQ(other.receive(), (Frame{CloseFrame, closePayload(static_cast<std::uint16_t>(code))}));
    }
}

TEST_F(WebSocketWriterTest, PiecesAreOneMessage) {
    WebSocketWriter writer = peer.handle.beginText();
    EXPECT_EQ(writer.write("gr\xC3"), WebSocketSend::Queued);
    EXPECT_EQ(peer.receive(), (Frame{0x01, "gr\xC3"}));
    EXPECT_EQ(writer.write(""), WebSocketSend::Queued);
    EXPECT_EQ(writer.write("\xBC"
                           "n"),
              WebSocketSend::Queued);
    EXPECT_EQ(peer.receive(), (Frame{0x00, "\xBC"
                                           "n"}));
    EXPECT_EQ(writer.finish(), WebSocketSend::Queued);
    EXPECT_EQ(peer.receive(), (Frame{0x80, ""}));
    EXPECT_EQ(writer.write("late"), WebSocketSend::Closed);
    EXPECT_EQ(writer.finish(), WebSocketSend::Closed);
}

TEST_F(WebSocketWriterTest, OnlyOneAtATime) {
    WebSocketWriter writer = peer.handle.beginBinary();
    WebSocketWriter second = peer.handle.beginText();
    EXPECT_EQ(second.write("x"), WebSocketSend::Full);
    EXPECT_EQ(second.finish(), WebSocketSend::Full);
    EXPECT_EQ(writer.finish(), WebSocketSend::Queued);
    EXPECT_EQ(peer.receive(), (Frame{BinaryFrame, ""}));
    EXPECT_EQ(peer.handle.beginText().finish(), WebSocketSend::Queued);
}

TEST_F(WebSocketWriterTest, TextThatIsNoneIsNotSent) {
    WebSocketWriter writer = peer.handle.beginText();
    EXPECT_THROW(writer.write("\xFF"), std::invalid_argument);
    EXPECT_EQ(writer.write("a\xC3"), WebSocketSend::Queued);
    EXPECT_THROW(writer.finish(), std::invalid_argument);
    EXPECT_THROW(writer.write("x"), std::invalid_argument);
    EXPECT_EQ(writer.write("\xBC"), WebSocketSend::Queued);
    EXPECT_EQ(writer.finish(), WebSocketSend::Queued);
    EXPECT_EQ(peer.receive(), (Frame{0x01, "a\xC3"}));
    EXPECT_EQ(peer.receive(), (Frame{0x00, "\xBC"}));
    EXPECT_EQ(peer.receive(), (Frame{0x80, ""}));
}

TEST_F(WebSocketWriterTest, UnfinishedMessageClosesTheConnection) {
    {
        WebSocketWriter writer = peer.handle.beginText();
        EXPECT_EQ(writer.write("half"), WebSocketSend::Queued);
        WebSocketWriter moved = std::move(writer);
        EXPECT_EQ(peer.handle.sendText("held"), WebSocketSend::Queued);
    }
    EXPECT_EQ(peer.receive(), (Frame{0x01, "half"}));
    peer.finishClose(1011);
}

TEST_F(WebSocketWriterTest, ClosedConnectionRefusesPieces) {
    WebSocketWriter writer = peer.handle.beginText();
    EXPECT_EQ(writer.write("x"), WebSocketSend::Queued);
    peer.handle.close();
    EXPECT_EQ(writer.write("y"), WebSocketSend::Closed);
    EXPECT_EQ(writer.finish(), WebSocketSend::Closed);
    EXPECT_EQ(peer.receive(), (Frame{0x01, "x"}));
    peer.finishClose(1000);
}
