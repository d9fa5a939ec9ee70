#include "websocket/TestPeer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

using namespace wstest;
using testing::ElementsAre;
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
        switch (Peer::tryToReadFrame(socket)) {
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
        Peer::feed(socket, piece);
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
        ASSERT_EQ(Peer::buffered(socket), 0U) << how;
        ASSERT_LE(Peer::readBlocks(socket), 1U) << how;
        ASSERT_THAT(Peer::message(socket), IsEmpty()) << how;
        ASSERT_FALSE(Peer::isBinary(socket)) << how;
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
        Peer::feed(socket, Bytes(offset, 0xEE));
        Peer::skipBytes(socket, offset);
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
        EXPECT_EQ(Peer::tryToReadFrame(socket), Status::NeedMoreData);
        for (std::size_t i = 0; i + 1 < stream.size(); ++i) {
            Peer::feed(socket, {stream[i]});
            ASSERT_EQ(Peer::tryToReadFrame(socket), Status::NeedMoreData) << i;
            ASSERT_EQ(Peer::buffered(socket), i + 1);
            ASSERT_EQ(Peer::readOffset(socket), 0U);
            ASSERT_THAT(Peer::message(socket), IsEmpty());
        }
        Peer::feed(socket, {stream.back()});
        EXPECT_EQ(Peer::tryToReadFrame(socket), Status::FrameComplete);
        EXPECT_THAT(socket.messages, ElementsAre(text(pattern(20))));
    }
}

TEST(FrameCodec, FiveBytesAreNeverJudged) {
    for (const unsigned char first : {CloseFin, ContinuationFin, static_cast<unsigned char>(0x8B)}) {
        RecordingSocket socket;
        Peer::feed(socket, {first, 0x80, 0, 0, 0});
        EXPECT_EQ(Peer::tryToReadFrame(socket), Status::NeedMoreData);
        Peer::feed(socket, {0});
        EXPECT_EQ(Peer::tryToReadFrame(socket), Status::Failed);
    }
}

TEST(FrameCodec, BadFrameIsRefusedBeforeItsPayloadArrives) {
    RecordingSocket socket;
    Peer::feed(socket, clientHeader(0x8B, 1000000));
    EXPECT_EQ(Peer::tryToReadFrame(socket), Status::Failed);
}

TEST(FrameCodec, OneCallConsumesOneFrame) {
    RecordingSocket socket;
    const Bytes one = clientFrame(TextFin, toBytes("one"));
    const Bytes two = clientFrame(TextFin, toBytes("two!"));
    Peer::feed(socket, concatenate({one, two}));

    EXPECT_EQ(Peer::tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_THAT(socket.messages, ElementsAre(text(toBytes("one"))));
    EXPECT_EQ(Peer::buffered(socket), two.size());
    EXPECT_EQ(Peer::tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_EQ(socket.messages.size(), 2U);
    EXPECT_EQ(Peer::tryToReadFrame(socket), Status::NeedMoreData);
}

TEST(FrameCodec, FrameWithoutFinKeepsTheMessageInProgress) {
    RecordingSocket socket;
    Peer::feed(socket, clientFrame(Binary, toBytes("part")));
    EXPECT_EQ(Peer::tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_THAT(socket.messages, IsEmpty());
    EXPECT_EQ(toText(Peer::message(socket)), "part");
    EXPECT_TRUE(Peer::isBinary(socket));
}

TEST(FrameCodec, LengthsNear2To64AreNeverComplete) {
    for (std::uint64_t below = 1; below <= 32; ++below) {
        RecordingSocket socket;
        Peer::feed(socket, clientHeader(TextFin, 0 - below, LengthForm::Bits64));
        Peer::feed(socket, pattern(100));
        ASSERT_EQ(Peer::tryToReadFrame(socket), Status::NeedMoreData) << "2^64 - " << below;
        ASSERT_EQ(Peer::buffered(socket), 114U);
        ASSERT_THAT(Peer::message(socket), IsEmpty());
    }
}

TEST(FrameCodec, ConsumedBlocksAreReleasedAtOnce) {
    RecordingSocket socket;
    Peer::feed(socket, clientFrame(Text, pattern(5000)));
    Peer::feed(socket, {Fin});
    EXPECT_EQ(Peer::readBlocks(socket), 5U);
    EXPECT_EQ(Peer::tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_EQ(Peer::readBlocks(socket), 1U);
    EXPECT_EQ(Peer::buffered(socket), 1U);
}

TEST(FrameCodec, EmptiedQueueBeginsWithANewBlock) {
    RecordingSocket socket;
    Peer::feed(socket, clientFrame(TextFin, pattern(2 * BlockSize - 8)));
    EXPECT_EQ(Peer::tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_EQ(Peer::readBlocks(socket), 0U);
    EXPECT_EQ(Peer::readOffset(socket), 0U);
    EXPECT_EQ(Peer::readEnd(socket), BlockSize);
    EXPECT_EQ(Peer::buffered(socket), 0U);
}

TEST(FrameCodec, PeekStopsWhereTheBytesEndAndConsumesNothing) {
    RecordingSocket socket;
    const Bytes bytes = pattern(2500);
    Peer::feed(socket, bytes);
    Peer::skipBytes(socket, 1000);

    EXPECT_EQ(Peer::peek(socket, 0), Bytes{});
    EXPECT_EQ(Peer::peek(socket, 24), slice(bytes, 1000, 1024));
    EXPECT_EQ(Peer::peek(socket, 1100), slice(bytes, 1000, 2100));
    EXPECT_EQ(Peer::peek(socket, 1502), concatenate({slice(bytes, 1000, 2500), Bytes(2, 0xEE)}));
    EXPECT_EQ(Peer::buffered(socket), 1500U);
    EXPECT_EQ(Peer::readOffset(socket), 1000U);
}

TEST(FrameCodec, SkippingNothingDoesNothing) {
    RecordingSocket socket;
    Peer::skipBytes(socket, 0);
    Peer::feed(socket, pattern(BlockSize));
    Peer::skipBytes(socket, 0);
    EXPECT_EQ(Peer::buffered(socket), BlockSize);
}

TEST(FrameCodec, MessageBufferKeepsItsStorage) {
    RecordingSocket socket;
    Peer::feed(socket, clientFrame(TextFin, pattern(5000)));
    EXPECT_EQ(Peer::tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_THAT(Peer::message(socket), IsEmpty());
    EXPECT_GE(Peer::message(socket).capacity(), 5000U);
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
    Peer::feed(socket, concatenate({clientFrame(TextFin, toBytes("a")), clientFrame(TextFin, toBytes("b"))}));
    EXPECT_TRUE(parseAll(socket));
    EXPECT_THAT(socket.taken, ElementsAre(toBytes("a"), toBytes("b")));
}

TEST(GetLength, FewerThanSixBytesAreIncomplete) {
    for (std::uint64_t size = 0; size < 6; ++size) {
        const auto header = Peer::parseHeader(Bytes(14, 0x8B), size, true);
        EXPECT_FALSE(header.complete) << size;
        EXPECT_FALSE(header.invalid) << size;
    }
}

TEST(GetLength, ReadsEachLengthForm) {
    struct Row {
        LengthForm form;
        std::uint64_t payload;
        std::uint64_t header;
    };
    for (const Row& row :
         {Row{LengthForm::Shortest, 0, 6}, Row{LengthForm::Shortest, 125, 6}, Row{LengthForm::Bits16, 0, 8},
          Row{LengthForm::Bits16, 126, 8}, Row{LengthForm::Bits16, 65535, 8}, Row{LengthForm::Bits64, 3, 14},
          Row{LengthForm::Bits64, 0x0102030405060708, 14}}) {
        const Bytes data = clientHeader(BinaryFin, row.payload, row.form);
        const auto exact = Peer::parseHeader(data, row.header + row.payload, true);
        EXPECT_TRUE(exact.complete);
        EXPECT_FALSE(exact.invalid);
        EXPECT_EQ(exact.payloadLength, row.payload);
        EXPECT_EQ(exact.headerLength, row.header);
        EXPECT_EQ(exact.maskKey, SomeKey);
        EXPECT_TRUE(exact.fin);
        EXPECT_TRUE(exact.isBinary);

        const auto more = Peer::parseHeader(data, row.header + row.payload + 1, true);
        EXPECT_TRUE(more.complete);

        const auto less = Peer::parseHeader(data, row.header + row.payload - 1, true);
        EXPECT_FALSE(less.complete);
        EXPECT_EQ(less.headerLength, 0U);
        EXPECT_EQ(less.maskKey, MaskKey{});
    }
}

TEST(GetLength, AnnouncesThePayloadOfAnIncompleteFrame) {
    EXPECT_EQ(Peer::parseHeader(clientHeader(TextFin, 300), 8, true).payloadLength, 300U);
    EXPECT_EQ(Peer::parseHeader(clientHeader(TextFin, 70000), 10, true).payloadLength, 70000U);
    EXPECT_EQ(Peer::parseHeader(clientHeader(TextFin, 70000), 9, true).payloadLength, 0U) << "not yet known";
}

TEST(GetLength, LongFormWithFewerThanTenBytesIsIncomplete) {
    const Bytes data = clientHeader(TextFin, 0, LengthForm::Bits64);
    for (std::uint64_t size = 6; size < 14; ++size) {
        // No byte more than announced, so that a look behind the end would be noticed.
        const auto header = Peer::parseHeader(slice(data, 0, size), size, true);
        EXPECT_FALSE(header.complete) << size;
        EXPECT_FALSE(header.invalid) << size;
    }
    EXPECT_TRUE(Peer::parseHeader(data, 14, true).complete);
}

TEST(GetLength, SumOfHeaderAndPayloadDoesNotWrap) {
    for (std::uint64_t below = 1; below <= 32; ++below) {
        const Bytes data = clientHeader(TextFin, 0 - below, LengthForm::Bits64);
        EXPECT_FALSE(Peer::parseHeader(data, 1000, true).complete) << below;
    }
}

TEST(GetLength, RejectedClassIsInvalid) {
    for (const unsigned char first : Bytes{0x03, 0x83, 0x87, 0x8B, 0x8F}) {
        const auto header = Peer::parseHeader(clientHeader(first, 100), 6, false);
        EXPECT_TRUE(header.complete);
        EXPECT_TRUE(header.invalid);
    }
}

TEST(GetLength, ContinuationIsInvalidOnlyAsTheFirstFragment) {
    for (const unsigned char first : Bytes{0x00, 0x80, 0x88, 0x04}) {
        const Bytes data = clientHeader(first, 0);
        const auto asFirst = Peer::parseHeader(data, 6, true);
        EXPECT_TRUE(asFirst.complete);
        EXPECT_TRUE(asFirst.invalid);

        const auto asLater = Peer::parseHeader(data, 6, false);
        EXPECT_TRUE(asLater.complete);
        EXPECT_FALSE(asLater.invalid);
        EXPECT_EQ(asLater.fin, (first & 0x80) != 0);
    }
}

TEST(GetLength, ContinuationLeavesTheTypeAsItWas) {
    const Bytes data = clientHeader(Continuation, 0);
    EXPECT_TRUE(Peer::parseHeader(data, 6, false, true).isBinary);
    EXPECT_FALSE(Peer::parseHeader(data, 6, false, false).isBinary);
    EXPECT_FALSE(Peer::parseHeader(clientHeader(Text, 0), 6, true, true).isBinary);
    EXPECT_TRUE(Peer::parseHeader(clientHeader(Binary, 0), 6, true, false).isBinary);
}

TEST(WriteHeader, FirstByteHoldsTypeAndFin) {
    EXPECT_EQ(Peer::writeHeader(5, false, true, true), (Bytes{0x81, 5}));
    EXPECT_EQ(Peer::writeHeader(5, true, true, true), (Bytes{0x82, 5}));
    EXPECT_EQ(Peer::writeHeader(5, false, true, false), (Bytes{0x01, 5}));
    EXPECT_EQ(Peer::writeHeader(5, true, true, false), (Bytes{0x02, 5}));
    EXPECT_EQ(Peer::writeHeader(5, true, false, false), (Bytes{0x00, 5}));
    EXPECT_EQ(Peer::writeHeader(5, true, false, true), (Bytes{0x80, 5}));
}

TEST(WriteHeader, LengthTakesTheShortestForm) {
    EXPECT_EQ(Peer::writeHeader(0, true, true, true), (Bytes{0x82, 0}));
    EXPECT_EQ(Peer::writeHeader(125, true, true, true), (Bytes{0x82, 125}));
    EXPECT_EQ(Peer::writeHeader(126, true, true, true), (Bytes{0x82, 126, 0, 126}));
    EXPECT_EQ(Peer::writeHeader(65535, true, true, true), (Bytes{0x82, 126, 0xFF, 0xFF}));
    EXPECT_EQ(Peer::writeHeader(65536, true, true, true), (Bytes{0x82, 127, 0, 0, 0, 0, 0, 1, 0, 0}));
    EXPECT_EQ(Peer::writeHeader(0x0102030405060708, true, true, true), (Bytes{0x82, 127, 1, 2, 3, 4, 5, 6, 7, 8}));
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

        const std::vector<ServerFrame> frames = parseServerFrames(Peer::queued(socket));
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
    EXPECT_EQ(Peer::queued(socket), (Bytes{0x81, 0, 0x82, 0}));
}

TEST(OutgoingMessage, FullLastFragmentUsesTheLongForm) {
    RecordingSocket socket;
    const Bytes payload = pattern(131000);
    socket.writeMessage(payload.data(), payload.size(), true);
    EXPECT_EQ(slice(Peer::queued(socket), 0, 10), concatenate({{0x82}, FullFragmentLength}));
}

TEST(OutgoingMessage, OneByteOverAFragmentIsAFrameOfOneByte) {
    RecordingSocket socket;
    const Bytes payload = pattern(131001);
    socket.writeMessage(payload.data(), payload.size(), false);
    const Bytes stream = Peer::queued(socket);
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
