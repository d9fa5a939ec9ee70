#include "websocket/Internals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

using namespace wstest;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Values;
using testing::ValuesIn;

namespace {

constexpr std::size_t BlockSize = 1024;

constexpr unsigned char Fin = 0x80;
constexpr unsigned char TextFin = 0x81;
constexpr unsigned char BinaryFin = 0x82;
constexpr unsigned char Text = 0x01;
constexpr unsigned char Binary = 0x02;
constexpr unsigned char Continuation = 0x00;
constexpr unsigned char ContinuationFin = 0x80;
constexpr unsigned char CloseFin = 0x88;
constexpr unsigned char PingFin = 0x89;
constexpr unsigned char PongFin = 0x8A;

/// A stream, and what becomes of it.
struct Vector {
    std::string name;
    std::vector<Bytes> frames;
    std::vector<Message> messages;
    bool fails = false;

    friend std::ostream& operator<<(std::ostream& out, const Vector& vector) { return out << vector.name; }
};

Message text(const Bytes& payload) {
    return {payload, false};
}

Message binary(const Bytes& payload) {
    return {payload, true};
}

Vector single(const std::string& name, std::size_t size, LengthForm form = LengthForm::Shortest) {
    return {name, {clientFrame(BinaryFin, pattern(size), form)}, {binary(pattern(size))}};
}

std::vector<Vector> makeVectors() {
    const Bytes a = toBytes("first part, ");
    const Bytes b = toBytes("second part");
    const Bytes ab = concatenate({a, b});
    std::vector<Vector> vectors = {
        single("Size0", 0),
        single("Size1", 1),
        single("Size125", 125),
        single("Size126", 126),
        single("Size127", 127),
        single("Size1018EndsWithTheBlock", BlockSize - 6),
        single("Size1024", 1024),
        single("Size3000", 3000),
        single("Empty16BitLength", 0, LengthForm::Bits16),
        single("Short16BitLength", 125, LengthForm::Bits16),
        single("Empty64BitLength", 0, LengthForm::Bits64),
        single("Short64BitLength", 5, LengthForm::Bits64),
        single("Medium64BitLength", 1500, LengthForm::Bits64),
        {"TextMessage", {clientFrame(TextFin, a)}, {text(a)}},
        {"ZeroMaskKey", {clientFrame(TextFin, a, LengthForm::Shortest, {0, 0, 0, 0})}, {text(a)}},
        {"ReservedBitsAreIgnored", {clientFrame(TextFin | 0x70, a)}, {text(a)}},
        {"OpcodeBits2And3AreIgnored", {clientFrame(Fin | 0x0D, a), clientFrame(Fin | 0x06, b)}, {text(a), binary(b)}},
        {"TwoMessages", {clientFrame(TextFin, a), clientFrame(BinaryFin, b)}, {text(a), binary(b)}},
        {"TypeIsForgottenAfterABinaryMessage",
         {clientFrame(BinaryFin, b), clientFrame(TextFin, a), clientFrame(BinaryFin, b)},
         {binary(b), text(a), binary(b)}},
        {"TwoFragments", {clientFrame(Text, a), clientFrame(ContinuationFin, b)}, {text(ab)}},
        {"FragmentsAcrossBlocks",
         {clientFrame(Binary, pattern(1500)), clientFrame(Continuation, {}), clientFrame(Continuation, pattern(1500)),
          clientFrame(ContinuationFin, {})},
         {binary(concatenate({pattern(1500), pattern(1500)}))}},
        {"TypeOfTheFirstFragmentWins", {clientFrame(Text, a), clientFrame(BinaryFin, b)}, {text(ab)}},
        {"TypeOfTheFirstFragmentWinsForBinary", {clientFrame(Binary, a), clientFrame(TextFin, b)}, {binary(ab)}},
        {"PingIsAText", {clientFrame(PingFin, a)}, {text(a)}},
        {"PongIsABinary", {clientFrame(PongFin, a)}, {binary(a)}},
        {"PingInsideAMessageIsAppended", {clientFrame(Text, a), clientFrame(PingFin, b)}, {text(ab)}},
        {"CloseInsideAMessageIsAppendedAndDelivers", {clientFrame(Text, a), clientFrame(CloseFin, b)}, {text(ab)}},
        {"CloseWithoutFinInsideAMessageIsAppended",
         {clientFrame(Text, a), clientFrame(0x08, b), clientFrame(ContinuationFin, {})},
         {text(ab)}},
        {"CloseWithoutAMessageFails", {clientFrame(CloseFin, {})}, {}, true},
        {"CloseAfterAMessageFails", {clientFrame(TextFin, a), clientFrame(CloseFin, b)}, {text(a)}, true},
        {"ContinuationWithoutAMessageFails", {clientFrame(ContinuationFin, a)}, {}, true},
        {"ContinuationAfterAnEmptyFragmentFails", {clientFrame(Text, {}), clientFrame(ContinuationFin, a)}, {}, true},
        {"RejectedClassFails", {clientFrame(Fin | 0x03, a)}, {}, true},
        {"Opcode0BFails", {clientFrame(0x8B, a)}, {}, true},
        {"RejectedClassInsideAMessageFails", {clientFrame(Text, a), clientFrame(0x0F, b)}, {}, true},
    };
    Vector unmaskedBit{"MaskBitIsIgnored", {clientFrame(TextFin, a)}, {text(a)}};
    unmaskedBit.frames[0][1] &= 0x7F;
    vectors.push_back(unmaskedBit);
    return vectors;
}

/// Parses until there is no whole frame left. @return false when a frame was not accepted.
bool parseAll(RecordingSocket& socket) {
    for (;;) {
        switch (tryToReadFrame(socket)) {
        case Status::Failed:
            return false;
        case Status::FrameComplete:
            break;
        case Status::NeedMoreData:
            return true;
        }
    }
}

/// Feeds the pieces one after the other, each followed by parsing.
bool parsePieces(RecordingSocket& socket, const std::vector<Bytes>& pieces) {
    for (const Bytes& piece : pieces) {
        feed(socket, piece);
        if (!parseAll(socket)) {
            return false;
        }
    }
    return true;
}

Bytes slice(const Bytes& bytes, std::size_t begin, std::size_t end) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.begin() + static_cast<std::ptrdiff_t>(end)};
}

void expectOutcome(const Vector& vector, RecordingSocket& socket, bool accepted, const std::string& how) {
    ASSERT_EQ(accepted, !vector.fails) << how;
    ASSERT_EQ(socket.messages.size(), vector.messages.size()) << how;
    for (std::size_t i = 0; i < vector.messages.size(); ++i) {
        ASSERT_TRUE(socket.messages[i] == vector.messages[i]) << how << ", message " << i;
    }
    if (accepted) {
        ASSERT_EQ(incoming(socket).size(), 0U) << how;
        ASSERT_LE(incoming(socket).blockCount(), 1U) << how;
        ASSERT_FALSE(isMessageOpen(socket)) << how;
    }
}

class FrameCodecVectors : public testing::TestWithParam<Vector> {};

} // namespace

TEST_P(FrameCodecVectors, Whole) {
    RecordingSocket socket;
    const bool accepted = parsePieces(socket, {concatenate(GetParam().frames)});
    expectOutcome(GetParam(), socket, accepted, "whole");
}

TEST_P(FrameCodecVectors, ByteByByte) {
    RecordingSocket socket;
    std::vector<Bytes> pieces;
    for (const unsigned char byte : concatenate(GetParam().frames)) {
        pieces.push_back({byte});
    }
    const bool accepted = parsePieces(socket, pieces);
    expectOutcome(GetParam(), socket, accepted, "byte by byte");
}

TEST_P(FrameCodecVectors, SplitAtEveryPosition) {
    const Bytes stream = concatenate(GetParam().frames);
    for (std::size_t split = 0; split <= stream.size(); ++split) {
        RecordingSocket socket;
        const bool accepted = parsePieces(socket, {slice(stream, 0, split), slice(stream, split, stream.size())});
        ASSERT_NO_FATAL_FAILURE(expectOutcome(GetParam(), socket, accepted, "split at " + std::to_string(split)));
    }
}

TEST_P(FrameCodecVectors, AtEveryOffsetInABlock) {
    const Bytes stream = concatenate(GetParam().frames);
    for (std::size_t offset = 0; offset <= BlockSize; ++offset) {
        RecordingSocket socket;
        feed(socket, Bytes(offset, 0xEE));
        incoming(socket).skip(offset);
        const bool accepted = parsePieces(socket, {stream});
        ASSERT_NO_FATAL_FAILURE(expectOutcome(GetParam(), socket, accepted, "at offset " + std::to_string(offset)));
    }
}

INSTANTIATE_TEST_SUITE_P(All, FrameCodecVectors, ValuesIn(makeVectors()),
                         [](const testing::TestParamInfo<Vector>& vector) { return vector.param.name; });

TEST(FrameCodec, LargeFramesAreReadWholeAndInPieces) {
    for (const std::size_t size :
         {std::size_t{65535}, std::size_t{65536}, std::size_t{131000}, std::size_t{1U << 20}}) {
        const Bytes stream = clientFrame(BinaryFin, pattern(size));
        for (const std::size_t piece : {stream.size(), std::size_t{1023}, std::size_t{4097}}) {
            RecordingSocket socket;
            for (std::size_t at = 0; at < stream.size(); at += piece) {
                ASSERT_TRUE(parsePieces(socket, {slice(stream, at, std::min(at + piece, stream.size()))}));
            }
            ASSERT_EQ(socket.messages.size(), 1U);
            ASSERT_TRUE(socket.messages[0] == binary(pattern(size))) << size << " in pieces of " << piece;
        }
    }
}

TEST(FrameCodec, NothingIsConsumedBeforeTheWholeFrameIsThere) {
    for (const LengthForm form : {LengthForm::Shortest, LengthForm::Bits16, LengthForm::Bits64}) {
        const Bytes stream = clientFrame(TextFin, pattern(20), form);
        RecordingSocket socket;
        EXPECT_EQ(tryToReadFrame(socket), Status::NeedMoreData);
        for (std::size_t i = 0; i + 1 < stream.size(); ++i) {
            feed(socket, {stream[i]});
            ASSERT_EQ(tryToReadFrame(socket), Status::NeedMoreData) << i;
            ASSERT_EQ(incoming(socket).size(), i + 1);
            ASSERT_FALSE(isMessageOpen(socket));
        }
        feed(socket, {stream.back()});
        EXPECT_EQ(tryToReadFrame(socket), Status::FrameComplete);
        EXPECT_THAT(socket.messages, ElementsAre(text(pattern(20))));
    }
}

TEST(FrameCodec, FiveBytesAreNeverJudged) {
    for (const unsigned char first : {CloseFin, ContinuationFin, static_cast<unsigned char>(0x8B)}) {
        RecordingSocket socket;
        feed(socket, {first, 0x80, 0, 0, 0});
        EXPECT_EQ(tryToReadFrame(socket), Status::NeedMoreData);
        feed(socket, {0});
        EXPECT_EQ(tryToReadFrame(socket), Status::Failed);
    }
}

TEST(FrameCodec, BadFrameIsRefusedBeforeItsPayloadArrives) {
    RecordingSocket socket;
    feed(socket, clientHeader(0x8B, 1000000));
    EXPECT_EQ(tryToReadFrame(socket), Status::Failed);
}

TEST(FrameCodec, OneCallConsumesOneFrame) {
    RecordingSocket socket;
    const Bytes one = clientFrame(TextFin, toBytes("one"));
    const Bytes two = clientFrame(TextFin, toBytes("two!"));
    feed(socket, concatenate({one, two}));

    EXPECT_EQ(tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_THAT(socket.messages, ElementsAre(text(toBytes("one"))));
    EXPECT_EQ(incoming(socket).size(), two.size());
    EXPECT_EQ(tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_EQ(socket.messages.size(), 2U);
    EXPECT_EQ(tryToReadFrame(socket), Status::NeedMoreData);
}

TEST(FrameCodec, FrameWithoutFinKeepsTheMessageInProgress) {
    RecordingSocket socket;
    feed(socket, clientFrame(Binary, toBytes("part")));
    EXPECT_EQ(tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_THAT(socket.messages, IsEmpty());
    EXPECT_TRUE(isMessageOpen(socket));
    feed(socket, clientFrame(ContinuationFin, toBytes(", rest")));
    EXPECT_EQ(tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_THAT(socket.messages, ElementsAre(binary(toBytes("part, rest"))));
}

TEST(FrameCodec, LengthsNear2To64AreNeverComplete) {
    for (std::uint64_t below = 1; below <= 32; ++below) {
        RecordingSocket socket;
        feed(socket, clientHeader(TextFin, 0 - below, LengthForm::Bits64));
        feed(socket, pattern(100));
        ASSERT_EQ(tryToReadFrame(socket), Status::NeedMoreData) << "2^64 - " << below;
        ASSERT_EQ(incoming(socket).size(), 114U);
        ASSERT_FALSE(isMessageOpen(socket));
    }
}

TEST(FrameCodec, ConsumedBlocksAreReleasedAtOnce) {
    RecordingSocket socket;
    feed(socket, clientFrame(Text, pattern(5000)));
    feed(socket, {Fin});
    EXPECT_EQ(incoming(socket).blockCount(), 5U);
    EXPECT_EQ(tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_EQ(incoming(socket).blockCount(), 1U);
    EXPECT_EQ(incoming(socket).size(), 1U);
}

TEST(FrameCodec, MessageBufferKeepsItsStorage) {
    class Measurer : public RecordingSocket {
    public:
        void onMessageReceived(std::vector<unsigned char>& message, bool) override {
            capacities.push_back(message.capacity());
        }
        std::vector<std::size_t> capacities;
    };
    Measurer socket;
    feed(socket, concatenate({clientFrame(TextFin, pattern(5000)), clientFrame(TextFin, toBytes("a"))}));
    EXPECT_TRUE(parseAll(socket));
    EXPECT_THAT(socket.capacities, ElementsAre(Ge(5000U), Ge(5000U)));
}

TEST(FrameCodec, MessageMayBeMovedOut) {
    class Taker : public RecordingSocket {
    public:
        void onMessageReceived(std::vector<unsigned char>& message, bool) override {
            taken.push_back(std::move(message));
        }
        std::vector<Bytes> taken;
    };
    Taker socket;
    feed(socket, concatenate({clientFrame(TextFin, toBytes("a")), clientFrame(TextFin, toBytes("b"))}));
    EXPECT_TRUE(parseAll(socket));
    EXPECT_THAT(socket.taken, ElementsAre(toBytes("a"), toBytes("b")));
}

namespace {

class OutgoingMessages : public testing::TestWithParam<std::size_t> {};

const Bytes FullFragmentLength = {0x7F, 0, 0, 0, 0, 0, 0x01, 0xFF, 0xB8};

} // namespace

TEST_P(OutgoingMessages, AreCutIntoFramesOf131000Bytes) {
    constexpr std::size_t FragmentSize = 131000;
    for (const bool isBinary : {false, true}) {
        RecordingSocket socket;
        const Bytes payload = pattern(GetParam());
        socket.writeMessage(payload.data(), payload.size(), isBinary);

        const std::vector<ServerFrame> frames = parseServerFrames(queued(socket));
        const std::size_t expectedCount = payload.empty() ? 1 : (payload.size() + FragmentSize - 1) / FragmentSize;
        ASSERT_EQ(frames.size(), expectedCount);
        Bytes received;
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const bool last = i + 1 == frames.size();
            EXPECT_EQ(frames[i].fin, last);
            EXPECT_EQ(frames[i].opcode, i > 0 ? 0U : isBinary ? 2U : 1U);
            if (!last) {
                EXPECT_EQ(frames[i].payload.size(), FragmentSize);
                EXPECT_EQ(slice(frames[i].header, 1, frames[i].header.size()), FullFragmentLength);
            }
            received.insert(received.end(), frames[i].payload.begin(), frames[i].payload.end());
        }
        EXPECT_TRUE(received == payload);
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, OutgoingMessages,
                         Values(0U, 1U, 125U, 126U, 1022U, 1024U, 65535U, 65536U, 130999U, 131000U, 131001U, 261999U,
                                262000U, 262001U, 262008U, 524000U));

TEST(OutgoingMessage, EmptyMessageIsOneEmptyFrame) {
    RecordingSocket socket;
    socket.writeMessage(nullptr, 0, false);
    socket.writeMessage(nullptr, 0, true);
    EXPECT_EQ(queued(socket), (Bytes{0x81, 0, 0x82, 0}));
}

TEST(OutgoingMessage, FullLastFragmentUsesTheLongForm) {
    RecordingSocket socket;
    const Bytes payload = pattern(131000);
    socket.writeMessage(payload.data(), payload.size(), true);
    EXPECT_EQ(slice(queued(socket), 0, 10), concatenate({{0x82}, FullFragmentLength}));
}

TEST(OutgoingMessage, OneByteOverAFragmentIsAFrameOfOneByte) {
    RecordingSocket socket;
    const Bytes payload = pattern(131001);
    socket.writeMessage(payload.data(), payload.size(), false);
    const Bytes stream = queued(socket);
    EXPECT_EQ(slice(stream, 0, 10), concatenate({{0x01}, FullFragmentLength}));
    EXPECT_EQ(slice(stream, 131010, stream.size()), (Bytes{0x80, 0x01, payload.back()}));
}

TEST(ComputeSecret, GivesTheValueOfTheStandardsExample) {
    EXPECT_EQ(ql::http::WebSocket::ComputeSecret("dGhlIHNhbXBsZSBub25jZQ=="), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
}

TEST(ComputeSecret, IsEmptyUnlessTheKeyHas24Characters) {
    EXPECT_EQ(ql::http::WebSocket::ComputeSecret(nullptr), "");
    EXPECT_EQ(ql::http::WebSocket::ComputeSecret(""), "");
    EXPECT_EQ(ql::http::WebSocket::ComputeSecret(std::string(23, 'a').c_str()), "");
    EXPECT_EQ(ql::http::WebSocket::ComputeSecret(std::string(25, 'a').c_str()), "");
    EXPECT_EQ(ql::http::WebSocket::ComputeSecret(std::string(24, 'a').c_str()).size(), 28U);
}
