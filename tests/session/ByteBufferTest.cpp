#include "session/ByteBuffer.h"

#include "session/Codec.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace sessiontest;
using ql::impl::ByteBuffer;

namespace {

constexpr std::size_t MiB = 1 << 20;

void append(ByteBuffer& buffer, std::string_view text, std::size_t expected) {
    std::ranges::copy(bytesOf(text), buffer.room(text.size(), expected).begin());
    buffer.added(text.size());
}

} // namespace

TEST(ByteBuffer, KeepsWhatWasAddedWhileItGrows) {
    ByteBuffer buffer;
    EXPECT_TRUE(buffer.isEmpty());
    std::string all;
    for (unsigned int i = 0; i < 300; ++i) {
        const std::string piece = noise(i, i);
        append(buffer, piece, piece.size());
        all += piece;
        ASSERT_EQ(textOf(buffer.bytes()), all);
    }
}

TEST(ByteBuffer, TakesWhatIsExpectedAtOnce) {
    ByteBuffer buffer;
    append(buffer, "abc", 100000);
    const unsigned char* const where = buffer.bytes().data();
    EXPECT_EQ(buffer.room(1, 1).size(), 99997U);
    append(buffer, letters(99997), 99997);
    EXPECT_EQ(buffer.bytes().data(), where) << "it has not grown again";
}

TEST(ByteBuffer, TakesNoMoreThanAMebibyteAtItsWord) {
    ByteBuffer buffer;
    EXPECT_EQ(buffer.room(1, std::size_t{1} << 40).size(), MiB);
    EXPECT_EQ(buffer.room(MiB + 5, std::size_t{1} << 40).size(), MiB + 5);
}

TEST(ByteBuffer, GrowsToTheDoubleSoThatManyPiecesAreCopiedSeldom) {
    ByteBuffer buffer;
    int moves = 0;
    const unsigned char* where = nullptr;
    for (std::size_t i = 0; i < MiB; i += 16) {
        append(buffer, "0123456789abcdef", 16);
        moves += buffer.bytes().data() != where ? 1 : 0;
        where = buffer.bytes().data();
    }
    EXPECT_LE(moves, 20);
}

TEST(ByteBuffer, ClearKeepsTheMemoryAndReleaseGivesItBack) {
    ByteBuffer buffer;
    append(buffer, "abc", 1000);
    buffer.clear();
    EXPECT_TRUE(buffer.isEmpty());
    EXPECT_EQ(buffer.room(1, 1).size(), 1000U);
    append(buffer, "d", 1);
    buffer.release();
    EXPECT_TRUE(buffer.isEmpty());
    EXPECT_EQ(buffer.bytes().data(), nullptr);
    EXPECT_EQ(buffer.room(1, 1).size(), 1U);
}
