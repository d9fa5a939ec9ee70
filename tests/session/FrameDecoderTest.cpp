#include "session/FrameDecoder.h"

#include "reliability/Seeds.h"
#include "session/Codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

using namespace sessiontest;
using ql::impl::FrameDecoder;
using ql::impl::FrameDecoderSettings;
using ql::impl::FrameSink;

namespace {

using Result = FrameDecoder::Result;
using Kind = Event::Kind;

constexpr unsigned int Fin = 0x80;
constexpr unsigned int Compressed = 0x40;
constexpr unsigned int Continuation = 0;
constexpr unsigned int Text = 1;
constexpr unsigned int Binary = 2;
constexpr unsigned int Close = 8;
constexpr unsigned int Ping = 9;
constexpr unsigned int Pong = 10;

const std::string Euro = "\xE2\x82\xAC";

constexpr std::size_t WithAll = 0;
constexpr std::size_t Anywhere = std::numeric_limits<std::size_t>::max();

/// A stream, and what becomes of it.
struct Vector {
    std::string name;
    std::vector<std::string> frames;
    std::vector<Event> events;
    std::optional<unsigned int> failure = std::nullopt;
    /// With how many bytes it fails, or WithAll, or Anywhere, where that depends on how the client compresses.
    std::size_t failsAt = WithAll;
    FrameDecoderSettings settings = plainSettings();

    friend std::ostream& operator<<(std::ostream& out, const Vector& vector) { return out << vector.name; }
};

Event text(const std::string& payload) {
    return {Kind::Text, payload, 0};
}

Event binary(const std::string& payload) {
    return {Kind::Binary, payload, 0};
}

Event closing(unsigned int code, const std::string& reason = "") {
    return {Kind::Close, reason, code};
}

std::string closePayload(unsigned int code, const std::string& reason = "") {
    return std::string{static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)} + reason;
}

/// The bytes of a header, without its mask key.
std::string header(std::initializer_list<unsigned int> bytes) {
    std::string text;
    for (const unsigned int byte : bytes) {
        text.push_back(static_cast<char>(byte));
    }
    return text;
}

Vector fails(const std::string& name, unsigned int code, std::size_t failsAt, const std::vector<std::string>& frames,
             const std::vector<Event>& events = {}, const FrameDecoderSettings& settings = plainSettings()) {
    return {name, frames, events, code, failsAt, settings};
}

std::string compressed(const std::string& message) {
    return ClientDeflater().compress(message);
}

std::vector<Vector> makeVectors() {
    const std::string hello = compressed("Hello");
    std::vector<Vector> vectors = {
        {"EmptyText", {clientFrame(Fin | Text, "")}, {text("")}},
        {"EmptyBinary", {clientFrame(Fin | Binary, "")}, {binary("")}},
        {"TwoMessages",
         {clientFrame(Fin | Text, "one"), clientFrame(Fin | Binary, "two")},
         {text("one"), binary("two")}},
        {"Size125", {clientFrame(Fin | Binary, noise(125))}, {binary(noise(125))}},
        {"Size126", {clientFrame(Fin | Binary, noise(126))}, {binary(noise(126))}},
        {"Size300", {clientFrame(Fin | Binary, noise(300))}, {binary(noise(300))}},
        {"Fragments", {clientFrame(Text, "a"), clientFrame(Continuation, "bc"), clientFrame(Fin, "d")}, {text("abcd")}},
        {"EmptyFragments",
         {clientFrame(Binary, ""), clientFrame(Continuation, ""), clientFrame(Fin, "")},
         {binary("")}},
        {"FragmentsThenMessage",
         {clientFrame(Text, "a"), clientFrame(Fin, "b"), clientFrame(Fin | Binary, "c")},
         {text("ab"), binary("c")}},
        {"PingAndPong",
         {clientFrame(Fin | Ping, "p"), clientFrame(Fin | Pong, ""), clientFrame(Fin | Ping, noise(125))},
         {{Kind::Ping, "p", 0}, {Kind::Pong, "", 0}, {Kind::Ping, noise(125), 0}}},
        {"ControlFramesBetweenFragments",
         {clientFrame(Text, "a"), clientFrame(Fin | Ping, "p"), clientFrame(Continuation, "b"),
          clientFrame(Fin | Pong, "q"), clientFrame(Fin, "c")},
         {{Kind::Ping, "p", 0}, {Kind::Pong, "q", 0}, text("abc")}},
        {"Close", {clientFrame(Fin | Close, "")}, {closing(1005)}},
        {"CloseWithCode", {clientFrame(Fin | Close, closePayload(1000))}, {closing(1000)}},
        {"CloseWithReason",
         {clientFrame(Fin | Close, closePayload(4999, "bye " + Euro))},
         {closing(4999, "bye " + Euro)}},
        {"CloseWithLongestReason",
         {clientFrame(Fin | Close, closePayload(3000, letters(123)))},
         {closing(3000, letters(123))}},
        {"CloseBetweenFragments", {clientFrame(Text, "a"), clientFrame(Fin | Close, "")}, {closing(1005)}},
        {"NothingAfterClose",
         {clientFrame(Fin | Text, "a"), clientFrame(Fin | Close, ""), clientFrame(Fin | Text, "b"), "\xFF\xFF"},
         {text("a"), closing(1005)}},
        {"CharactersAcrossFragments",
         {clientFrame(Text, "a\xE2"), clientFrame(Fin | Ping, "p"), clientFrame(Continuation, "\x82"),
          clientFrame(Continuation, ""), clientFrame(Fin, "\xAC")},
         {{Kind::Ping, "p", 0}, text("a" + Euro)}},
        {"BinaryIsNoText", {clientFrame(Fin | Binary, "\xFF\xC0")}, {binary("\xFF\xC0")}},
        {"AtTheLimit",
         {clientFrame(Fin | Text, letters(100)), clientFrame(Text, letters(60)), clientFrame(Fin, letters(40))},
         {text(letters(100)), text(letters(60) + letters(40))},
         std::nullopt,
         WithAll,
         plainSettings(100)},
        {"ControlFramesCountForNoLimit",
         {clientFrame(Text, "ab"), clientFrame(Fin | Ping, letters(100)), clientFrame(Fin, "c")},
         {{Kind::Ping, letters(100), 0}, text("abc")},
         std::nullopt,
         WithAll,
         plainSettings(3)},
        {"NoLimit",
         {clientFrame(Text, "ab"), clientFrame(Fin, "c")},
         {text("abc")},
         std::nullopt,
         WithAll,
         plainSettings(std::numeric_limits<std::uint64_t>::max())},

        fails("ReservedBit1", 1002, 1, {clientFrame(Fin | 0x40 | Text, "a")}),
        fails("ReservedBit2", 1002, 1, {clientFrame(Fin | 0x20 | Text, "a")}),
        fails("ReservedBit3", 1002, 1, {clientFrame(Fin | 0x10 | Ping, "a")}),
        fails("UnknownDataOpcode", 1002, 1, {clientFrame(Fin | 3, "")}),
        fails("UnknownControlOpcode", 1002, 1, {clientFrame(Fin | 11, "")}),
        fails("FragmentedPing", 1002, 1, {clientFrame(Ping, "")}),
        fails("FragmentedClose", 1002, 1, {clientFrame(Close, "")}),
        fails("ContinuationOfNothing", 1002, 1, {clientFrame(Fin, "a")}),
        fails("ContinuationAfterAWholeMessage", 1002, 8, {clientFrame(Fin | Text, "a"), clientFrame(Fin, "b")},
              {text("a")}),
        fails("ContinuationAfterAnEmptyMessage", 1002, 7, {clientFrame(Fin | Text, ""), clientFrame(Fin, "b")},
              {text("")}),
        fails("MessageInsideAMessage", 1002, 8, {clientFrame(Text, "a"), clientFrame(Fin | Text, "b")}),
        fails("MessageInsideAnEmptyFragment", 1002, 7, {clientFrame(Binary, ""), clientFrame(Fin | Text, "b")}),
        fails("WithoutMask", 1002, 2, {header({0x81, 0x01, 'a'})}),
        fails("LongPing", 1002, 2, {clientFrame(Fin | Ping, noise(126))}),
        fails("LongClose", 1002, 2, {clientFrame(Fin | Close, closePayload(1000, letters(124)))}),
        fails("LengthNotShortest16", 1002, 4, {header({0x82, 0xFE, 0, 125})}),
        fails("LengthNotShortest64", 1002, 10, {header({0x82, 0xFF, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF})}),
        fails("LengthOfZero64", 1002, 10, {header({0x82, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0})}),
        fails("LengthWithTopBit", 1002, 10, {header({0x82, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 1})}, {},
              plainSettings(std::numeric_limits<std::uint64_t>::max())),
        fails("BeyondTheLimit", 1009, 2, {clientFrame(Fin | Text, letters(101))}, {}, plainSettings(100)),
        fails("BeyondTheLimit16", 1009, 4, {header({0x81, 0xFE, 0x03, 0xE9})}, {}, plainSettings(1000)),
        fails("BeyondTheLimit64", 1009, 10, {header({0x81, 0xFF, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})}),
        fails("BeyondTheLimitTogether", 1009, 68, {clientFrame(Text, letters(60)), clientFrame(Fin, letters(41))}, {},
              plainSettings(100)),
        fails("BeyondNoByteAtAll", 1009, 2, {clientFrame(Fin | Text, "a")}, {}, plainSettings(0)),
        fails("HalfACloseCode", 1002, WithAll, {clientFrame(Fin | Close, "\x03")}),
        fails("InvalidCloseCode", 1002, WithAll, {clientFrame(Fin | Close, closePayload(1005))}),
        fails("CloseReasonIsNoText", 1007, WithAll, {clientFrame(Fin | Close, closePayload(1000, "a\xFF"))}),
        fails("CloseReasonIsCutOff", 1007, WithAll, {clientFrame(Fin | Close, closePayload(1000, "a\xE2\x82"))}),
        fails("TextWithAWrongByte", 1007, 8, {clientFrame(Fin | Text, "a\xFFzzzzzzzzzz")}),
        fails("TextWithASurrogate", 1007, 8, {clientFrame(Fin | Text, "\xED\xA0\x80zzzzz")}),
        fails("TextIsCutOff", 1007, WithAll, {clientFrame(Fin | Text, "a\xE2\x82")}),
        fails("TextIsCutOffByAnEmptyFragment", 1007, WithAll, {clientFrame(Text, "a\xE2\x82"), clientFrame(Fin, "")}),
        fails("WrongByteInAFragment", 1007, 15, {clientFrame(Text, "a\xE2"), clientFrame(Continuation, "zz")}),
    };
    const std::vector<Vector> deflated = {
        {"Compressed", {clientFrame(Fin | Compressed | Text, hello)}, {text("Hello")}},
        {"CompressedFragments",
         {clientFrame(Compressed | Text, hello.substr(0, 2)), clientFrame(Fin | Ping, "p"),
          clientFrame(Continuation, hello.substr(2, 3)), clientFrame(Continuation, ""),
          clientFrame(Fin, hello.substr(5))},
         {{Kind::Ping, "p", 0}, text("Hello")}},
        {"CompressedEmpty", {clientFrame(Fin | Compressed | Binary, std::string(1, '\0'))}, {binary("")}},
        {"CompressedAndNot",
         {clientFrame(Fin | Text, "a"), clientFrame(Fin | Compressed | Binary, hello), clientFrame(Text, "b"),
          clientFrame(Fin, "c")},
         {text("a"), binary("Hello"), text("bc")}},
        {"CompressedCharacters", {clientFrame(Fin | Compressed | Text, compressed(Euro + Euro))}, {text(Euro + Euro)}},
        fails("CompressedContinuation", 1002, WithAll, {clientFrame(Compressed | Text, hello), header({0xC0})}),
        fails("CompressedPing", 1002, 1, {clientFrame(Fin | Compressed | Ping, "")}),
        fails("CompressedClose", 1002, 1, {clientFrame(Fin | Compressed | Close, "")}),
        fails("CompressedWithReservedBit", 1002, 1, {clientFrame(Fin | Compressed | 0x20 | Text, hello)}),
        fails("CompressedNonsense", 1007, WithAll, {clientFrame(Compressed | Binary, "\x07")}),
        fails("CompressedButNoBytes", 1007, WithAll, {clientFrame(Fin | Compressed | Binary, "")}),
        fails("CompressedIsCutOff", 1007, WithAll, {clientFrame(Fin | Compressed | Binary, hello.substr(0, 4))}),
        fails("CompressedTextWithAWrongByte", 1007, Anywhere,
              {clientFrame(Fin | Compressed | Text, compressed("a\xFF"))}),
        fails("CompressedTextIsCutOff", 1007, WithAll, {clientFrame(Fin | Compressed | Text, compressed("a\xE2\x82"))}),
    };
    for (Vector vector : deflated) {
        vector.settings = deflateSettings();
        vectors.push_back(vector);
    }
    const std::string hundred = compressed(letters(100));
    vectors.push_back({"CompressedAtTheLimit",
                       {clientFrame(Fin | Compressed | Text, hundred)},
                       {text(letters(100))},
                       std::nullopt,
                       WithAll,
                       deflateSettings(100)});
    vectors.push_back(fails("CompressedBeyondTheLimit", 1009, Anywhere,
                            {clientFrame(Compressed | Text, compressed(letters(101)))}, {}, deflateSettings(100)));
    return vectors;
}

std::string joined(const std::vector<std::string>& parts) {
    return std::accumulate(parts.begin(), parts.end(), std::string());
}

void expectOutcome(const Vector& vector, const Decoded& decoded, const std::string& how) {
    ASSERT_EQ(decoded.events, vector.events) << how;
    ASSERT_EQ(decoded.failure, vector.failure) << how;
    ASSERT_EQ(decoded.isClosed, !vector.events.empty() && vector.events.back().kind == Kind::Close) << how;
}

/// With whole messages and with pieces, and with a sink that stops it and one that doesn't.
void expectOutcomeInEveryMode(const Vector& vector, const std::vector<std::string>& pieces, const std::string& how) {
    for (const bool inPieces : {false, true}) {
        for (const bool stops : {false, true}) {
            FrameDecoderSettings settings = vector.settings;
            settings.inPieces = inPieces;
            const Decoded decoded = decode(settings, pieces, {stops, false});
            ASSERT_NO_FATAL_FAILURE(
                expectOutcome(vector, decoded, how + (inPieces ? ", in pieces" : "") + (stops ? ", stopping" : "")));
        }
    }
}

class FrameDecoderVectors : public testing::TestWithParam<Vector> {};

} // namespace

TEST_P(FrameDecoderVectors, Whole) {
    expectOutcomeInEveryMode(GetParam(), {joined(GetParam().frames)}, "whole");
}

TEST_P(FrameDecoderVectors, ByteByByteAndNoLaterThanAtTheFirstWrongByte) {
    std::vector<std::string> bytes;
    for (const char byte : joined(GetParam().frames)) {
        bytes.emplace_back(1, byte);
    }
    expectOutcomeInEveryMode(GetParam(), bytes, "byte by byte");
    if (GetParam().failure && GetParam().failsAt != Anywhere) {
        const std::size_t failsAt = GetParam().failsAt == WithAll ? bytes.size() : GetParam().failsAt;
        EXPECT_EQ(decode(GetParam().settings, bytes).piecesTaken, failsAt);
    }
}

TEST_P(FrameDecoderVectors, SplitAtEveryPosition) {
    const std::string stream = joined(GetParam().frames);
    for (std::size_t split = 0; split <= stream.size(); ++split) {
        ASSERT_NO_FATAL_FAILURE(expectOutcomeInEveryMode(GetParam(), {stream.substr(0, split), stream.substr(split)},
                                                         "split at " + std::to_string(split)));
    }
}

TEST_P(FrameDecoderVectors, AreReadSoByASecondReading) {
    NaiveRules rules;
    rules.maxMessageBytes = GetParam().settings.maxMessageBytes;
    rules.windowBits = GetParam().settings.deflate ? 15 : 0;
    const NaiveOutcome outcome = decodeNaively(joined(GetParam().frames), rules);
    EXPECT_EQ(outcome.events, GetParam().events);
    EXPECT_EQ(outcome.failure, GetParam().failure);
}

INSTANTIATE_TEST_SUITE_P(All, FrameDecoderVectors, testing::ValuesIn(makeVectors()),
                         [](const testing::TestParamInfo<Vector>& vector) { return vector.param.name; });

// ---- Everything there is of a field ----

TEST(FrameDecoder, JudgesAllFirstTwoBytesLikeTheSecondReading) {
    for (const bool isOpen : {false, true}) {
        for (const int windowBits : {0, 15}) {
            const FrameDecoderSettings settings = windowBits == 0 ? plainSettings() : deflateSettings();
            const std::string before = isOpen ? clientFrame(Text, "") : "";
            for (unsigned int first = 0; first < 256; ++first) {
                for (unsigned int second = 0; second < 256; ++second) {
                    const std::string bytes = before + header({first, second});
                    const NaiveOutcome expected = decodeNaively(bytes, {1 << 20, windowBits, true});
                    ASSERT_EQ(decode(settings, {bytes}).failure, expected.failure) << first << ' ' << second;
                }
            }
        }
    }
}

TEST(FrameDecoder, TakesTheShortestFormOfALengthOnly) {
    for (unsigned int length = 0; length <= 0xFFFF; ++length) {
        const std::string bytes = header({0x82, 0xFE, length >> 8, length & 0xFF});
        ASSERT_EQ(decode(plainSettings(), {bytes}).failure.has_value(), length < 126) << length;
    }
    const FrameDecoderSettings unlimited = plainSettings(std::numeric_limits<std::uint64_t>::max());
    for (const std::uint64_t length : {std::uint64_t{0xFFFF}, std::uint64_t{0x10000}, ~std::uint64_t{0} >> 1,
                                       std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
        std::string bytes = header({0x82, 0xFF});
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<char>(length >> shift & 0xFF));
        }
        ASSERT_EQ(decode(unlimited, {bytes}).failure.has_value(), length < 0x10000 || length >> 63 != 0) << length;
    }
}

TEST(FrameDecoder, TakesEveryCloseCodeThatMayBeInAFrame) {
    for (unsigned int code = 0; code <= 0xFFFF; ++code) {
        const std::string bytes = clientFrame(Fin | Close, closePayload(code, "r"));
        const NaiveOutcome expected = decodeNaively(bytes, {});
        const Decoded decoded = decode(plainSettings(), {bytes});
        ASSERT_EQ(decoded.failure, expected.failure) << code;
        ASSERT_EQ(decoded.events, expected.events);
    }
}

TEST(FrameDecoder, UnmasksWithEveryKey) {
    for (unsigned int i = 0; i < 4; ++i) {
        std::string frame = header({0x82, 0x85, 0, 0, 0, 0}) + std::string(5, '\0');
        frame[2 + i] = '\x5A';
        std::string payload(5, '\0');
        for (std::size_t at = i; at < payload.size(); at += 4) {
            payload[at] = '\x5A';
        }
        EXPECT_EQ(decode(plainSettings(), {frame}).events, std::vector<Event>{binary(payload)});
    }
}

// ---- Where payloads stand ----

namespace {

/// Tells where what it gets stands.
class Finder final : public FrameSink {
public:
    Next onMessage(bool, std::span<const unsigned char> payload) override { return found(payload); }
    Next onPiece(bool, std::span<const unsigned char> piece, bool) override { return found(piece); }
    Next onPing(std::span<const unsigned char> payload) override { return found(payload); }
    Next onPong(std::span<const unsigned char> payload) override { return found(payload); }
    void onClose(std::uint16_t, std::string_view reason) override { found(bytesOf(reason)); }

    std::vector<const unsigned char*> places;

private:
    Next found(std::span<const unsigned char> bytes) {
        places.push_back(bytes.data());
        return Next::GoOn;
    }
};

std::vector<unsigned char> memoryOf(const std::string& text) {
    return {text.begin(), text.end()};
}

} // namespace

TEST(FrameDecoder, GivesWholeFramesWhereTheyWereReceived) {
    std::vector<unsigned char> memory =
        memoryOf(clientFrame(Fin | Text, "abc") + clientFrame(Fin | Ping, "p") + clientFrame(Fin | Binary, noise(200)) +
                 clientFrame(Fin | Close, closePayload(1000, "r")));
    FrameDecoder decoder(plainSettings());
    Finder finder;
    std::span<unsigned char> input = memory;
    EXPECT_EQ(decoder.feed(input, finder), Result::Closed);
    const unsigned char* const begin = memory.data();
    EXPECT_EQ(finder.places, (std::vector<const unsigned char*>{begin + 6, begin + 15, begin + 24, begin + 232}));
}

TEST(FrameDecoder, GivesPiecesWhereTheyWereReceived) {
    std::vector<unsigned char> memory = memoryOf(clientFrame(Text, "abc") + clientFrame(Fin, "def"));
    FrameDecoderSettings settings = plainSettings();
    settings.inPieces = true;
    FrameDecoder decoder(settings);
    Finder finder;
    std::span<unsigned char> input = std::span(memory).first(14);
    EXPECT_EQ(decoder.feed(input, finder), Result::NeedsMore);
    EXPECT_TRUE(input.empty());
    input = std::span(memory).subspan(14);
    EXPECT_EQ(decoder.feed(input, finder), Result::NeedsMore);
    const unsigned char* const begin = memory.data();
    EXPECT_EQ(finder.places, (std::vector<const unsigned char*>{begin + 6, begin + 15}))
        << "the piece that the first input ended before is not there";
}

TEST(FrameDecoder, GivesThePiecesOfAFrameAsTheyCome) {
    const std::string payload = noise(1000);
    const std::string stream = clientFrame(Fin | Binary, payload);
    FrameDecoderSettings settings = plainSettings();
    settings.inPieces = true;
    FrameDecoder decoder(settings);
    Recorder recorder;
    std::size_t expected = 0;
    for (std::size_t at = 0; at < stream.size(); at += 108) {
        std::vector<unsigned char> memory = memoryOf(stream.substr(at, 108));
        std::span<unsigned char> input = memory;
        ASSERT_EQ(decoder.feed(input, recorder), Result::NeedsMore);
        ++expected;
        ASSERT_EQ(recorder.pieces, expected);
    }
    EXPECT_EQ(recorder.events, std::vector<Event>{binary(payload)});
    EXPECT_EQ(recorder.pieceBytes, 108U);
}

// ---- Stopping ----

TEST(FrameDecoder, StopsAfterEachEventAndGoesOn) {
    std::vector<unsigned char> memory =
        memoryOf(clientFrame(Fin | Text, "a") + clientFrame(Fin | Ping, "b") + clientFrame(Fin | Pong, "c"));
    FrameDecoder decoder(plainSettings());
    Recorder recorder(true);
    std::span<unsigned char> input = memory;
    for (std::size_t i = 1; i <= 3; ++i) {
        EXPECT_EQ(decoder.feed(input, recorder), Result::Stopped);
        EXPECT_EQ(recorder.events.size(), i);
        EXPECT_EQ(input.size(), 21 - i * 7);
    }
    EXPECT_EQ(decoder.feed(input, recorder), Result::NeedsMore);
}

TEST(FrameDecoder, TakesNothingAfterAFailureOrAClose) {
    for (const std::string& end : {clientFrame(Fin | 3, ""), clientFrame(Fin | Close, "")}) {
        std::vector<unsigned char> memory = memoryOf(end + clientFrame(Fin | Text, "a"));
        FrameDecoder decoder(plainSettings());
        Recorder recorder;
        std::span<unsigned char> input = memory;
        const Result result = decoder.feed(input, recorder);
        const std::size_t left = input.size();
        const std::size_t events = recorder.events.size();
        EXPECT_NE(result, Result::NeedsMore);
        EXPECT_EQ(decoder.feed(input, recorder), result);
        EXPECT_EQ(input.size(), left);
        EXPECT_EQ(recorder.events.size(), events);
        EXPECT_TRUE(decoder.directRoom().empty());
    }
}

TEST(FrameDecoder, SaysWhatWasWrongInAFewWords) {
    for (const Vector& vector : makeVectors()) {
        if (vector.failure) {
            std::vector<unsigned char> memory = memoryOf(joined(vector.frames));
            FrameDecoder decoder(vector.settings);
            Recorder recorder;
            std::span<unsigned char> input = memory;
            EXPECT_EQ(decoder.feed(input, recorder), Result::Failed);
            EXPECT_FALSE(decoder.failureText().empty()) << vector;
            EXPECT_LE(decoder.failureText().size(), 123U) << vector;
        }
    }
}

// ---- Long payloads ----

namespace {

constexpr std::size_t Direct = FrameDecoder::DirectBytes;

/// Feeds the text from memory of its own.
Result feed(FrameDecoder& decoder, const std::string& text, FrameSink& sink) {
    std::vector<unsigned char> memory = memoryOf(text);
    std::span<unsigned char> input = memory;
    return decoder.feed(input, sink);
}

} // namespace

TEST(FrameDecoder, HasDirectRoomInTheMiddleOfALongMessageOnly) {
    Recorder recorder;
    FrameDecoder decoder(plainSettings());
    const std::string frame = clientFrame(Fin | Binary, noise(Direct + 10));
    EXPECT_TRUE(decoder.directRoom().empty()) << "before a frame";
    EXPECT_EQ(feed(decoder, frame.substr(0, 9), recorder), Result::NeedsMore);
    EXPECT_TRUE(decoder.directRoom().empty()) << "in a header";
    EXPECT_EQ(feed(decoder, frame.substr(9, 15), recorder), Result::NeedsMore);
    EXPECT_EQ(decoder.directRoom().size(), Direct);
    EXPECT_EQ(feed(decoder, frame.substr(24, 1), recorder), Result::NeedsMore);
    EXPECT_TRUE(decoder.directRoom().empty()) << "near the end of the frame";
    EXPECT_EQ(feed(decoder, frame.substr(25), recorder), Result::NeedsMore);
    EXPECT_EQ(recorder.events, std::vector<Event>{binary(noise(Direct + 10))});
    EXPECT_TRUE(decoder.directRoom().empty()) << "behind the frame";

    EXPECT_EQ(feed(decoder, clientFrame(Fin | Ping, "abc").substr(0, 7), recorder), Result::NeedsMore);
    EXPECT_TRUE(decoder.directRoom().empty()) << "in a control frame";
    FrameDecoderSettings inPieces = plainSettings();
    inPieces.inPieces = true;
    FrameDecoder pieces(inPieces);
    EXPECT_EQ(feed(pieces, frame.substr(0, 20), recorder), Result::NeedsMore);
    EXPECT_TRUE(pieces.directRoom().empty()) << "pieces are not collected";
    FrameDecoder deflating(deflateSettings());
    EXPECT_EQ(
        feed(deflating, clientFrame(Fin | Compressed | Binary, compressed(noise(200000))).substr(0, 20), recorder),
        Result::NeedsMore);
    EXPECT_TRUE(deflating.directRoom().empty()) << "compressed";
}

TEST(FrameDecoder, ReceivesDirectlyWhatItReadsOtherwise) {
    const std::string first = letters(300000) + Euro.substr(0, 1);
    const std::string second = Euro.substr(1) + letters(200000, 1);
    const std::string stream = clientFrame(Text, first) + clientFrame(Fin | Ping, "p") + clientFrame(Fin, second) +
                               clientFrame(Fin | Binary, noise(3 << 20)) + clientFrame(Fin | Close, "");
    const std::vector<Event> events = {
        {Kind::Ping, "p", 0}, text(first + second), binary(noise(3 << 20)), closing(1005)};
    for (const std::size_t step : {std::size_t{1000}, Direct, std::size_t{100001}, stream.size()}) {
        std::vector<std::string> pieces;
        for (std::size_t at = 0; at < stream.size(); at += step) {
            pieces.push_back(stream.substr(at, step));
        }
        for (const bool stops : {false, true}) {
            const Decoded decoded = decode(plainSettings(4 << 20), pieces, {stops, true});
            ASSERT_EQ(decoded.events, events) << step;
            ASSERT_TRUE(decoded.isClosed);
        }
    }
}

TEST(FrameDecoder, RefusesADirectlyReceivedTextAtOnce) {
    std::string payload = letters(4 * Direct);
    payload[Direct + 100] = '\xFF';
    const std::string frame = clientFrame(Fin | Text, payload);
    FrameDecoder decoder(plainSettings());
    Recorder recorder;
    EXPECT_EQ(feed(decoder, frame.substr(0, 14), recorder), Result::NeedsMore);
    const std::span<unsigned char> room = decoder.directRoom();
    ASSERT_GE(room.size(), Direct + 101);
    std::ranges::copy(frame.substr(14, Direct + 101), room.begin());
    EXPECT_EQ(decoder.received(Direct + 100, recorder), Result::NeedsMore);
    EXPECT_EQ(decoder.directRoom().data(), room.data() + Direct + 100);
    EXPECT_EQ(decoder.received(1, recorder), Result::Failed);
    EXPECT_EQ(decoder.failureCode(), 1007);
    EXPECT_EQ(feed(decoder, "", recorder), Result::Failed);
}

TEST(FrameDecoder, ReservesLittleForAClientThatAnnouncesMuch) {
    FrameDecoder decoder(plainSettings(std::numeric_limits<std::uint64_t>::max()));
    Recorder recorder;
    EXPECT_EQ(
        feed(decoder, header({0x82, 0xFF, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0}), recorder),
        Result::NeedsMore);
    EXPECT_LE(decoder.directRoom().size(), std::size_t{1} << 20);
}

// ---- Compression ----

TEST(FrameDecoder, KeepsTheContextOfCompressedMessagesAsAgreed) {
    const std::string message = letters(40000);
    for (int windowBits = 9; windowBits <= 15; ++windowBits) {
        for (const bool takesOver : {true, false}) {
            ClientDeflater together(windowBits);
            std::vector<std::string> frames;
            std::vector<Event> events;
            for (int i = 0; i < 3; ++i) {
                ClientDeflater alone(windowBits);
                frames.push_back(
                    clientFrame(Fin | Compressed | Text, (takesOver ? together : alone).compress(message)));
                frames.push_back(clientFrame(Fin | Text, letters(1000, 1)));
                events.push_back(text(message));
                events.push_back(text(letters(1000, 1)));
            }
            Vector vector{"", frames, events, std::nullopt, WithAll, deflateSettings(40000, windowBits, takesOver)};
            ASSERT_NO_FATAL_FAILURE(expectOutcomeInEveryMode(vector, frames, "frame by frame"));
            ASSERT_NO_FATAL_FAILURE(expectOutcomeInEveryMode(vector, {joined(frames)}, "whole"));
        }
    }
}

TEST(FrameDecoder, LooksAtNothingBehindTheByteThatIsTooMuch) {
    ClientDeflater client;
    const std::string first = client.compress(std::string(60, 'a')) + std::string("\0\0\xFF\xFF", 4);
    const std::string second = client.compress(std::string(41, 'a') + "\xFF");
    const Decoded decoded = decode(deflateSettings(100), {clientFrame(0x41, first) + clientFrame(0x80, second)});
    EXPECT_EQ(decoded.failure, 1009U);
}

TEST(FrameDecoder, RefusesABombAtItsLimitAndNotBehindIt) {
    const std::string bomb = ClientDeflater().compress(std::string(64 << 20, 'x'));
    ASSERT_LT(bomb.size(), 70000U);
    for (const bool inPieces : {false, true}) {
        FrameDecoderSettings settings = deflateSettings(1000000);
        settings.inPieces = inPieces;
        FrameDecoder decoder(settings);
        Recorder recorder;
        std::vector<unsigned char> memory = memoryOf(clientFrame(Fin | Compressed | Text, bomb));
        std::span<unsigned char> input = memory;
        EXPECT_EQ(decoder.feed(input, recorder), Result::Failed);
        EXPECT_EQ(decoder.failureCode(), 1009);
        EXPECT_GT(input.size(), memory.size() - 2000) << "the rest of it has not been looked at";
        EXPECT_TRUE(recorder.events.empty());
    }
}

namespace {

/// Up to and with the length of a compressed frame that is announced to be so long, 65536 bytes at least.
std::string compressedHeader(unsigned int firstByte, std::uint64_t length) {
    std::string bytes = header({firstByte, 0xFF});
    for (int shift = 56; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<char>(length >> shift & 0xFF));
    }
    return bytes;
}

} // namespace

TEST(FrameDecoder, RefusesACompressedMessageAtTheHeaderThatAnnouncesTooMuch) {
    constexpr std::uint64_t Most = 2 * 100 + 65536;
    const auto failureOf = [](const std::string& bytes, std::uint64_t limit) {
        const std::optional<unsigned int> failure = decode(deflateSettings(limit), {bytes}).failure;
        EXPECT_EQ(decodeNaively(bytes, {limit, 15, true}).failure, failure) << "of the second reading";
        return failure;
    };
    const std::string begin = clientFrame(Compressed | Text, compressed("Hello"));
    const std::uint64_t beginBytes = begin.size() - 6;
    EXPECT_EQ(failureOf(compressedHeader(Fin | Compressed | Binary, Most), 100), std::nullopt);
    EXPECT_EQ(failureOf(compressedHeader(Fin | Compressed | Binary, Most + 1), 100), 1009U);
    EXPECT_EQ(failureOf(compressedHeader(Fin | Compressed | Binary, std::uint64_t{1} << 40), 1 << 20), 1009U);
    EXPECT_EQ(failureOf(begin + compressedHeader(Fin, Most - beginBytes), 100), std::nullopt);
    EXPECT_EQ(failureOf(begin + compressedHeader(Fin, Most - beginBytes + 1), 100), 1009U)
        << "fragments count together";
    EXPECT_EQ(failureOf(clientFrame(Fin | Compressed | Text, compressed("Hello")) +
                            compressedHeader(Fin | Compressed | Binary, Most),
                        100),
              std::nullopt)
        << "each message counts alone";
    for (const std::uint64_t limit : {~std::uint64_t{0}, std::uint64_t{1} << 63, (~std::uint64_t{0} - 65536) / 2 + 1}) {
        EXPECT_EQ(failureOf(compressedHeader(Fin | Compressed | Binary, ~std::uint64_t{0} >> 1), limit), std::nullopt);
    }
}

TEST(FrameDecoder, RefusesARowOfBlocksThatGiveNothingAndDoesNotEnd) {
    std::string blocks;
    while (blocks.size() < 50000) {
        blocks.append("\0\0\0\xFF\xFF", 5);
    }
    for (const bool inPieces : {false, true}) {
        FrameDecoderSettings settings = deflateSettings(100);
        settings.inPieces = inPieces;
        FrameDecoder decoder(settings);
        Recorder recorder;
        EXPECT_EQ(feed(decoder, clientFrame(Compressed | Binary, blocks), recorder), Result::NeedsMore);
        EXPECT_EQ(feed(decoder, clientFrame(Continuation, blocks), recorder), Result::Failed);
        EXPECT_EQ(decoder.failureCode(), 1009);
        EXPECT_TRUE(recorder.events.empty());
    }
}

TEST(FrameDecoder, TakesWhatDoesNotCompressUpToTheLimit) {
    for (const std::size_t size : {std::size_t{1000}, std::size_t{1} << 20}) {
        const std::string message = noise(size);
        const std::string data = ClientDeflater(15, 0).compress(message);
        ASSERT_GT(data.size(), size);
        for (const std::size_t cut : {data.size() / 2, data.size() - 1}) {
            const std::vector<std::string> frames = {clientFrame(Compressed | Binary, data.substr(0, cut)),
                                                     clientFrame(Fin, data.substr(cut))};
            EXPECT_EQ(decode(deflateSettings(size), frames).events, std::vector<Event>{binary(message)});
        }
    }
}

TEST(FrameDecoder, StopsInTheMiddleOfAPieceThatGivesMany) {
    const std::string message = std::string(1 << 20, 'x') + letters(30000);
    std::vector<unsigned char> memory = memoryOf(
        clientFrame(Fin | Compressed | Text, ClientDeflater().compress(message)) + clientFrame(Fin | Ping, "p"));
    FrameDecoderSettings settings = deflateSettings(2 << 20);
    settings.inPieces = true;
    FrameDecoder decoder(settings);
    Recorder recorder(true);
    std::span<unsigned char> input = memory;
    std::size_t calls = 0;
    for (; decoder.feed(input, recorder) == Result::Stopped; ++calls) {
        ASSERT_LE(recorder.pieces, calls + 1) << "one for each call";
    }
    EXPECT_EQ(recorder.events, (std::vector<Event>{text(message), {Kind::Ping, "p", 0}}));
    EXPECT_GT(recorder.pieces, 50U);
    EXPECT_LE(recorder.pieceBytes, 65536U);
}

TEST(FrameDecoder, GivesAllThatAFragmentHolds) {
    const std::string data = compressed(std::string(40000, 'x'));
    FrameDecoderSettings settings = deflateSettings();
    settings.inPieces = true;
    for (std::size_t cut = 0; cut < data.size(); ++cut) {
        std::vector<unsigned char> memory(40000);
        std::span<unsigned char> room = memory;
        std::span<const unsigned char> input = bytesOf(data).first(cut);
        ql::impl::Inflater inflater(15, true);
        inflater.inflate(input, room);

        FrameDecoder decoder(settings);
        Recorder recorder;
        EXPECT_EQ(feed(decoder, clientFrame(Compressed | Text, data.substr(0, cut)), recorder), Result::NeedsMore);
        EXPECT_EQ(recorder.bytes, memory.size() - room.size()) << "cut at " << cut;
    }
}

TEST(FrameDecoder, TakesLittleMemoryWhenIdle) {
    EXPECT_LE(sizeof(FrameDecoder), 320U);
}

// ---- Beside the second reading ----

namespace {

/// Frames as clients send them, now and then with a mistake.
std::string randomStream(vireotest::Choices& choices, bool isDeflating) {
    constexpr std::array<unsigned int, 12> FirstBytes = {0x81, 0x82, 0x01, 0x02, 0x00, 0x80,
                                                         0x89, 0x8A, 0xC1, 0xC2, 0x41, 0x88};
    ClientDeflater deflater;
    std::string stream;
    bool isCompressed = false;
    std::string rest;
    for (unsigned int frames = choices.takeNumber(12) + 1; frames > 0; --frames) {
        const unsigned int first = FirstBytes[choices.takeNumber(frames > 1 ? 10 : 11)];
        std::string payload = letters(choices.takeNumber(300), choices.takeNumber(3));
        if (choices.takeNumber(3) == 0) {
            payload.insert(choices.takeNumber(static_cast<std::uint32_t>(payload.size())), Euro);
        }
        if ((first & 0x0FU) >= Close) {
            payload = first == 0x88 ? closePayload(choices.takeNumber(20) + 998, payload.substr(0, 9))
                                    : payload.substr(0, 125);
        } else if ((first & Compressed) != 0 && isDeflating) {
            payload = deflater.compress(payload);
            isCompressed = true;
        }
        if (isCompressed && (first & 0x0FU) < Close) {
            const std::size_t cut =
                (first & Fin) != 0 ? 0 : choices.takeNumber(static_cast<std::uint32_t>(payload.size()));
            rest = (first & 0x0FU) == Continuation ? rest + "" : payload;
            payload = (first & Fin) != 0 ? rest : rest.substr(0, cut);
            rest = (first & Fin) != 0 ? "" : rest.substr(payload.size());
            isCompressed = (first & Fin) == 0;
        }
        stream += clientFrame(first, payload);
    }
    if (choices.takeNumber(3) == 0) {
        stream[choices.takeNumber(static_cast<std::uint32_t>(stream.size() - 1))] =
            static_cast<char>(choices.takeByte());
    }
    return stream;
}

} // namespace

TEST(FrameDecoder, ReadsRandomStreamsLikeTheSecondReading) {
    vireotest::forEachSeed(4000, 400, [](vireotest::Choices& choices) {
        const bool isDeflating = choices.takeBool();
        const std::uint64_t limit = choices.takeNumber(3) == 0 ? choices.takeNumber(400) : 1 << 20;
        const bool takesOver = choices.takeBool();
        FrameDecoderSettings settings = isDeflating ? deflateSettings(limit, 15, takesOver) : plainSettings(limit);
        settings.inPieces = choices.takeBool();
        const Driving driving{choices.takeBool(), choices.takeBool()};
        const std::string stream = randomStream(choices, isDeflating);
        const NaiveOutcome expected = decodeNaively(stream, {limit, isDeflating ? 15 : 0, takesOver});

        std::vector<std::string> pieces;
        for (std::size_t at = 0; at < stream.size();) {
            pieces.push_back(stream.substr(at, choices.takeNumber(200) + 1));
            at += pieces.back().size();
        }
        const Decoded decoded = decode(settings, pieces, driving);
        ASSERT_EQ(decoded.failure, expected.failure);
        ASSERT_EQ(decoded.events, expected.events);
    });
}
