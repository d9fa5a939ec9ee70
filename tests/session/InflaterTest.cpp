#include "session/Inflater.h"

#include "session/Codec.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

using namespace sessiontest;
using ql::impl::Inflater;

namespace {

using Status = Inflater::Status;

/// What a message gives with pieces of input and of room of these sizes; nothing when it is refused.
std::optional<std::string> inflated(Inflater& inflater, std::string_view message, std::size_t inputStep = 1000,
                                    std::size_t roomStep = 1000) {
    std::string text;
    std::vector<unsigned char> memory(roomStep);
    const auto run = [&](auto step) {
        Status status{};
        do {
            std::span<unsigned char> room = memory;
            status = step(room);
            text.append(memory.begin(), memory.end() - static_cast<std::ptrdiff_t>(room.size()));
        } while (status == Status::RoomUsed);
        return status == Status::InputUsed;
    };
    for (; !message.empty(); message.remove_prefix(std::min(inputStep, message.size()))) {
        std::span<const unsigned char> input = bytesOf(message.substr(0, inputStep));
        if (!run([&](std::span<unsigned char>& room) { return inflater.inflate(input, room); })) {
            return std::nullopt;
        }
        EXPECT_TRUE(input.empty());
    }
    if (!run([&](std::span<unsigned char>& room) { return inflater.finish(room); })) {
        return std::nullopt;
    }
    return text;
}

std::string hex(std::string_view digits) {
    std::string bytes;
    for (; digits.size() > 1; digits.remove_prefix(2)) {
        bytes.push_back(static_cast<char>(std::stoi(std::string(digits.substr(0, 2)), nullptr, 16)));
    }
    return bytes;
}

std::string stored(const std::string& data, bool isFinal = false) {
    const auto byte = [](std::size_t value) { return static_cast<char>(value & 0xFF); };
    const std::size_t size = data.size();
    return std::string{isFinal ? '\1' : '\0', byte(size), byte(size >> 8), byte(~size), byte(~size >> 8)} + data;
}

} // namespace

TEST(Inflater, ReadsEveryWindowWithAndWithoutContextInAnyPieces) {
    const std::string far = letters(33000);
    for (int windowBits = 9; windowBits <= 15; ++windowBits) {
        for (const bool takesOver : {true, false}) {
            for (const std::size_t step : {1U, 7U, 100000U}) {
                Inflater inflater(windowBits, takesOver);
                ClientDeflater together(windowBits);
                for (unsigned int i = 0; i < 3; ++i) {
                    const std::string message = far + letters(300, i) + far.substr(0, 10000);
                    ClientDeflater alone(windowBits);
                    const std::string data = (takesOver ? together : alone).compress(message);
                    ASSERT_EQ(inflated(inflater, data, step, step), message) << "window " << windowBits;
                }
            }
        }
    }
}

TEST(Inflater, ReadsShortMessagesWithTheSmallestWindow) {
    Inflater inflater(8, true);
    // Compressors of zlib have no such window: this refers back by less.
    const std::string message = letters(100) + letters(100);
    EXPECT_EQ(inflated(inflater, ClientDeflater().compress(message), 1, 1), message);
}

TEST(Inflater, HoldsNoLargerWindowThanAgreed) {
    const std::string far = letters(5000);
    const std::string data = ClientDeflater(15).compress(far + far);
    for (const int windowBits : {8, 9, 10, 12}) {
        Inflater inflater(windowBits, true);
        EXPECT_EQ(inflated(inflater, data, 1000, 64), std::nullopt) << windowBits;
    }
    Inflater inflater(13, true);
    EXPECT_EQ(inflated(inflater, data, 1000, 64), far + far);
}

TEST(Inflater, ForgetsEarlierMessagesWithoutTakeover) {
    const std::string message = letters(2000);
    ClientDeflater client;
    const std::string first = client.compress(message);
    const std::string second = client.compress(message);
    Inflater with(15, true);
    EXPECT_EQ(inflated(with, first), message);
    EXPECT_EQ(inflated(with, second), message);
    Inflater without(15, false);
    EXPECT_EQ(inflated(without, first), message);
    EXPECT_EQ(inflated(without, second), std::nullopt);
}

namespace {

struct Block {
    std::string name;
    std::string data;
    /// Nothing: it is refused.
    std::optional<std::string> message;

    friend std::ostream& operator<<(std::ostream& out, const Block& block) { return out << block.name; }
};

class InflaterBlocks : public testing::TestWithParam<Block> {};

std::vector<Block> makeBlocks() {
    const std::string hello = hex("f248cdc9c90700");
    const std::string finalHello = hex("f348cdc9c90700");
    const std::string empty(1, '\0');
    return {
        {"Hello", hello, "Hello"},
        {"Stored", hex("000500faff48656c6c6f00"), "Hello"},
        {"TwoBlocks", hex("f24805000000ffffcac9c90700"), "Hello"},
        {"Empty", empty, ""},
        {"EmptyFixed", hex("0200"), ""},
        {"StoredMany", stored("a") + stored("") + stored("b") + empty, "ab"},
        {"StoredLongest", stored(noise(65535)) + empty, noise(65535)},
        {"Final", finalHello + empty, "Hello"},
        {"FinalStored", stored("Hello", true) + empty, "Hello"},
        {"FinalThenBlock", finalHello + hello, "HelloHello"},
        {"FinalThenFinal", finalHello + finalHello + empty, "HelloHello"},
        {"FinalEmpty", hex("030000"), ""},
        {"FinalInTheTail", hex("01"), ""},
        {"ReservedBlock", hex("0600000000"), std::nullopt},
        {"StoredLengthNotComplemented", hex("000500000048656c6c6f00"), std::nullopt},
        {"RefersToNothing", hex("7200110000"), std::nullopt},
        {"Ones", std::string(20, '\xFF'), std::nullopt},
        {"ZlibHeader", hex("789cf348cdc9c907000585a1"), std::nullopt},
        {"NoBytes", "", std::nullopt},
        {"TailNotLeftOut", hello + hex("0000ffff"), std::nullopt},
        {"NoBlockBehindTheFinalOne", finalHello, std::nullopt},
        {"EndsInABlock", hex("f248cdc9"), std::nullopt},
        {"EndsInAStoredBlock", hex("00ff0000ff"), std::nullopt},
    };
}

} // namespace

TEST_P(InflaterBlocks, GiveAMessageOrNone) {
    for (const std::size_t step : {1U, 3U, 100000U}) {
        Inflater inflater(15, true);
        EXPECT_EQ(inflated(inflater, GetParam().data, step, step), GetParam().message) << step;
    }
}

TEST_P(InflaterBlocks, LeaveTheContextAsItIs) {
    const std::optional<std::string>& message = GetParam().message;
    if (!message) {
        return;
    }
    // The client has compressed the same text, though in other blocks, and then refers to what was before it.
    ClientDeflater client;
    const std::string before = letters(1000);
    const std::string first = client.compress(before);
    client.compress(*message);
    const std::string again = client.compress(before);
    Inflater inflater(15, true);
    ASSERT_EQ(inflated(inflater, first), before);
    ASSERT_EQ(inflated(inflater, GetParam().data), message);
    ASSERT_EQ(inflated(inflater, again), before);
}

INSTANTIATE_TEST_SUITE_P(All, InflaterBlocks, testing::ValuesIn(makeBlocks()),
                         [](const testing::TestParamInfo<Block>& block) { return block.param.name; });

TEST(Inflater, BlocksBehindAFinalOneMayReferToWhatWasBeforeIt) {
    ClientDeflater client;
    const std::string message = letters(1000);
    const std::string first = client.compress(message);
    const std::string second = client.compress(message);
    ASSERT_LT(second.size(), 50U);
    // An empty final block between them changes nothing that is decompressed.
    const std::string final = hex("0300");
    Inflater inflater(15, true);
    EXPECT_EQ(inflated(inflater, first + hex("0000ffff") + final + second), message + message);
    EXPECT_EQ(inflated(inflater, final + second), message);
}

TEST(Inflater, WritesNoMoreThanThereIsRoomFor) {
    const std::string bomb = ClientDeflater().compress(std::string(10 << 20, 'x'));
    ASSERT_LT(bomb.size(), 20000U);
    Inflater inflater(15, true);
    std::span<const unsigned char> input = bytesOf(bomb);
    std::vector<unsigned char> memory(5000);
    std::span<unsigned char> room = memory;
    EXPECT_EQ(inflater.inflate(input, room), Status::RoomUsed);
    EXPECT_TRUE(room.empty());
    EXPECT_GT(input.size(), bomb.size() - 200);
    EXPECT_EQ(memory, std::vector<unsigned char>(5000, 'x'));
}
