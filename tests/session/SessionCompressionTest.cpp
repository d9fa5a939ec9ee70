#include "session/Codec.h"
#include "session/SessionOutput.h"
#include "session/SharedMessage.h"
#include "websocket/Fakes.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace ql::impl;
using ql::http::WebSocketCompression;
using ql::http::WebSocketOptions;
using ql::http::WebSocketSend;
using sessiontest::bytesOf;
using sessiontest::ClientInflater;
using sessiontest::letters;
using wstest::ScriptedSocket;
using wstest::SocketError;

namespace {

/// An output that compresses, and the client that reads it.
class SessionCompressionTest : public testing::Test {
protected:
    void open(SessionOutput& opened) {
        settings.compression.emplace();
        opened.prepare(std::make_shared<SessionSettings>(settings), DeflateAgreement{});
        opened.begin(77);
        opened.open();
    }

    WebSocketSend send(const std::string& text) {
        return output.sendMessage(true, bytesOf(text), Sender::Outsider).result;
    }

    /// What the client understands of everything that was sent.
    std::vector<std::string> received() {
        std::vector<std::string> texts;
        for (std::size_t at = 0; at < socket.sent.size();) {
            const auto sizes = wstest::frameSizes(socket.sent, at).value();
            const auto begin = socket.sent.begin() + static_cast<std::ptrdiff_t>(at + sizes.header);
            const std::string payload(begin, begin + static_cast<std::ptrdiff_t>(sizes.payload));
            const bool isCompressed = (socket.sent[at] & 0x40) != 0;
            texts.push_back(isCompressed ? client.inflate(payload).value_or("garbage") : payload);
            compressed += isCompressed;
            at += sizes.header + static_cast<std::size_t>(sizes.payload);
        }
        return texts;
    }

    SessionSettings settings;
    ScriptedSocket socket;
    SessionOutput output;
    ClientInflater client;
    int compressed = 0;
};

} // namespace

TEST_F(SessionCompressionTest, MessagesAreCompressedUnlessTheyAreSmall) {
    open(output);
    const std::string text = letters(1000);
    send(text);
    send("small");
    send(text);
    const std::size_t bytes = socket.sent.size();
    EXPECT_EQ(received(), (std::vector<std::string>{text, "small", text}));
    EXPECT_EQ(compressed, 2);
    EXPECT_LT(bytes, 1100U) << "the second one refers to the first";
}

TEST_F(SessionCompressionTest, DroppedMessageIsNotReferredTo) {
    settings.queuePolicy = WebSocketOptions::QueuePolicy::DropOldest;
    settings.maxQueuedBytes = 3000;
    open(output);
    const std::string lost = letters(2000, 1);
    socket.willRefuse(SocketError::WouldBlock);
    for (int i = 0; i < 4; ++i) {
        socket.willRefuse(SocketError::WouldBlock);
    }
    send("begun");
    send(lost);
    send(letters(2000, 2)); // takes the place of the first one
    send(lost);
    output.flush();
    while (!output.flush().isEmpty) {
    }
    EXPECT_EQ(received().back(), lost);
    EXPECT_LT(received().size(), 5U) << "nothing was dropped";
}

TEST_F(SessionCompressionTest, SharedMessageIsCompressedOnceForAllOfAWindow) {
    open(output);
    SessionOutput other;
    open(other);
    const std::string text = letters(1000);
    SharedMessage message(true, bytesOf(text));
    const DeflateSettings& deflate = CompressionSettings::of(*settings.compression).deflate;
    output.sendShared(message, Sender::Unwaiting);
    const std::size_t once = socket.sent.size();
    other.sendShared(message, Sender::Unwaiting);
    EXPECT_EQ(socket.sent.size(), 2 * once);
    EXPECT_EQ(message.compressed(deflate, 15).bytes().data(), message.compressed(deflate, 15).bytes().data());
    EXPECT_NE(message.compressed(deflate, 9).bytes().data(), message.compressed(deflate, 15).bytes().data());
    EXPECT_EQ(received(), (std::vector<std::string>{text, text}));
    EXPECT_EQ(compressed, 2);
}

TEST_F(SessionCompressionTest, OwnMessagesBeforeAndBehindASharedOneAreUnderstood) {
    open(output);
    const std::string own = letters(1000, 1);
    const std::string shared = letters(1000, 2);
    SharedMessage message(true, bytesOf(shared));
    send(own);
    output.sendShared(message, Sender::Unwaiting);
    send(shared + own);
    send(own);
    EXPECT_EQ(received(), (std::vector<std::string>{own, shared, shared + own, own}));
}

TEST_F(SessionCompressionTest, SmallSharedMessageGoesAsItIs) {
    open(output);
    SharedMessage message(true, bytesOf("small"));
    output.sendShared(message, Sender::Unwaiting);
    EXPECT_EQ(received(), std::vector<std::string>{"small"});
    EXPECT_EQ(compressed, 0);
}

TEST_F(SessionCompressionTest, PiecesGoAsTheyAre) {
    open(output);
    const std::string text = letters(1000);
    send(text);
    ASSERT_EQ(output.openMessage(), WebSocketSend::Queued);
    output.sendPiece(FrameType::Text, bytesOf(text), false, Sender::Outsider);
    output.sendPiece(FrameType::Continuation, {}, true, Sender::Outsider);
    send(text);
    EXPECT_EQ(received(), (std::vector<std::string>{text, text, "", text}));
    EXPECT_EQ(compressed, 2);
}
