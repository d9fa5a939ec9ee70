#include "session/MessageEncoder.h"

#include "session/CloseCode.h"
#include "session/Codec.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using namespace sessiontest;
using namespace ql::impl;

namespace {

/// A frame as the peer has it.
struct Received {
    unsigned int firstByte = 0;
    std::string payload;
};

Received receive(const EncodedFrame& frame) {
    const std::string bytes = textOf(frame.bytes());
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes.at(i)); };
    const std::size_t header = at(1) < 126 ? 2 : at(1) == 126 ? 4 : 10;
    std::uint64_t length = at(1);
    if (header > 2) {
        length = 0;
        for (std::size_t i = 2; i < header; ++i) {
            length = length << 8 | at(i);
        }
    }
    EXPECT_EQ(bytes.size(), header + length);
    EXPECT_EQ(header, length < 126 ? 2U : length < 65536 ? 4U : 10U) << "the shortest form";
    return {at(0), bytes.substr(header)};
}

DeflateAgreement agreement(int windowBits = 15, bool takesOver = true) {
    DeflateAgreement agreed;
    agreed.serverWindowBits = windowBits;
    agreed.serverNoContextTakeover = !takesOver;
    return agreed;
}

constexpr unsigned int Text = 0x81;
constexpr unsigned int Binary = 0x82;
constexpr unsigned int Compressed = 0x40;

} // namespace

TEST(EncodedFrame, HoldsHeaderAndPayload) {
    for (const std::size_t size : {0U, 1U, 125U, 126U, 65535U, 65536U}) {
        const Received received = receive(EncodedFrame(FrameType::Text, true, bytesOf(letters(size))));
        EXPECT_EQ(received.firstByte, Text);
        EXPECT_EQ(received.payload, letters(size));
    }
    EXPECT_EQ(receive(EncodedFrame(FrameType::Binary, false, {})).firstByte, 0x02U);
    EXPECT_EQ(receive(EncodedFrame(FrameType::Continuation, true, {})).firstByte, 0x80U);
    EXPECT_EQ(receive(EncodedFrame(FrameType::Ping, true, {})).firstByte, 0x89U);
    EXPECT_EQ(receive(EncodedFrame(FrameType::Pong, true, {})).firstByte, 0x8AU);
    EXPECT_EQ(receive(EncodedFrame(FrameType::Binary, true, {}, true)).firstByte, Binary | Compressed);
}

TEST(EncodedFrame, IsSharedByItsCopies) {
    const EncodedFrame frame(FrameType::Text, true, bytesOf("abc"));
    const EncodedFrame copy = frame;
    EXPECT_EQ(copy.bytes().data(), frame.bytes().data());
    EXPECT_TRUE(EncodedFrame().bytes().empty());
}

TEST(EncodeClose, WritesCodeAndReason) {
    EXPECT_EQ(textOf(encodeClose(CloseCode::None, "").bytes()), std::string("\x88\0", 2));
    EXPECT_EQ(textOf(encodeClose(1000, "").bytes()), "\x88\x02\x03\xE8");
    EXPECT_EQ(textOf(encodeClose(4999, "bye").bytes()), "\x88\x05\x13\x87"
                                                        "bye");
    const Received longest = receive(encodeClose(CloseCode::GoingAway, letters(123)));
    EXPECT_EQ(longest.payload, "\x03\xE9" + letters(123));
}

TEST(MessageEncoder, NeverCompressesWithoutAnAgreement) {
    MessageEncoder encoder;
    EXPECT_FALSE(encoder.wouldCompress(1 << 20));
    EXPECT_EQ(encoder.windowBits(), 0);
    encoder.forgetContext();
    const Received received = receive(encoder.encode(true, bytesOf(std::string(5000, 'x'))));
    EXPECT_EQ(received.firstByte, Text);
    EXPECT_EQ(received.payload, std::string(5000, 'x'));
    EXPECT_EQ(receive(encoder.encode(false, {})).firstByte, Binary);
}

TEST(MessageEncoder, CompressesMessagesThatAreLongEnough) {
    DeflateSettings settings;
    settings.minBytes = 100;
    MessageEncoder encoder(settings, agreement());
    EXPECT_FALSE(encoder.wouldCompress(99));
    EXPECT_TRUE(encoder.wouldCompress(100));
    EXPECT_EQ(encoder.windowBits(), 15);
    EXPECT_EQ(receive(encoder.encode(true, bytesOf(std::string(99, 'x')))).firstByte, Text);

    ClientInflater client;
    for (const bool isText : {true, false}) {
        const Received received = receive(encoder.encode(isText, bytesOf(std::string(100, 'x'))));
        EXPECT_EQ(received.firstByte, (isText ? Text : Binary) | Compressed);
        EXPECT_EQ(client.inflate(received.payload), std::string(100, 'x'));
    }
}

TEST(MessageEncoder, SendsAsItIsWhatWouldNotGetShorter) {
    MessageEncoder encoder({}, agreement());
    const Received received = receive(encoder.encode(false, bytesOf(noise(3000))));
    EXPECT_EQ(received.firstByte, Binary);
    EXPECT_EQ(received.payload, noise(3000));
}

TEST(MessageEncoder, NeverCompressesForAWindowThatZlibDoesNotHave) {
    MessageEncoder encoder({}, agreement(8));
    EXPECT_FALSE(encoder.wouldCompress(1 << 20));
    EXPECT_EQ(encoder.windowBits(), 0);
    EXPECT_EQ(receive(encoder.encode(true, bytesOf(std::string(5000, 'x')))).firstByte, Text);
}

TEST(MessageEncoder, KeepsToTheAgreedWindowAndContext) {
    const std::string message = letters(20000) + letters(20000);
    for (int windowBits = 9; windowBits <= 15; ++windowBits) {
        for (const bool takesOver : {true, false}) {
            MessageEncoder encoder({}, agreement(windowBits, takesOver));
            EXPECT_EQ(encoder.windowBits(), windowBits);
            std::optional<ClientInflater> client(std::in_place, windowBits);
            for (int i = 0; i < 3; ++i) {
                if (!takesOver) {
                    client.emplace(windowBits);
                }
                ASSERT_EQ(client->inflate(receive(encoder.encode(true, bytesOf(message))).payload), message);
            }
        }
    }
}

TEST(CompressShared, IsReadBetweenAConnectionsOwnMessages) {
    const std::string own = letters(3000);
    const std::string others = letters(3000, 1) + own.substr(0, 1000);
    for (int windowBits = 9; windowBits <= 15; ++windowBits) {
        MessageEncoder encoder({}, agreement(windowBits));
        ClientInflater client(windowBits);
        const std::optional<EncodedFrame> shared = compressShared(true, bytesOf(others), {}, windowBits);
        ASSERT_TRUE(shared);
        EXPECT_EQ(receive(*shared).firstByte, Text | Compressed);
        for (int i = 0; i < 3; ++i) {
            ASSERT_EQ(client.inflate(receive(encoder.encode(true, bytesOf(own))).payload), own);
            ASSERT_EQ(client.inflate(receive(*shared).payload), others);
            encoder.forgetContext();
        }
    }
}

TEST(CompressShared, RefersToNothingButItself) {
    const std::optional<EncodedFrame> shared = compressShared(false, bytesOf(letters(3000)), {}, 15);
    EXPECT_EQ(receive(shared.value()).firstByte, Binary | Compressed);
    EXPECT_EQ(ClientInflater().inflate(receive(*shared).payload), letters(3000));
}

TEST(CompressShared, GivesNothingForWhatWouldNotGetShorter) {
    EXPECT_FALSE(compressShared(false, bytesOf(noise(3000)), {}, 15));
    EXPECT_FALSE(compressShared(true, {}, {}, 15));
}
