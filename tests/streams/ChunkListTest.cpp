#include "streams/ChunkList.h"

#include "support/Pattern.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using ql::impl::appendToChunks;
using ql::impl::ChunkList;
using ql::impl::takeFromChunks;
using testing::ElementsAre;
using vireotest::pattern;

class ChunkListTest : public testing::Test {
protected:
    void append(const std::string& bytes) { appendToChunks(chunks_, bytes.data(), bytes.size(), count_); }

    std::vector<std::size_t> sizes() const {
        std::vector<std::size_t> sizes;
        for (const std::vector<char>& chunk : chunks_) {
            sizes.push_back(chunk.size());
        }
        return sizes;
    }

    std::vector<std::size_t> capacities() const {
        std::vector<std::size_t> capacities;
        for (const std::vector<char>& chunk : chunks_) {
            capacities.push_back(chunk.capacity());
        }
        return capacities;
    }

    std::string contents() const {
        std::string bytes;
        for (const std::vector<char>& chunk : chunks_) {
            bytes.append(chunk.begin(), chunk.end());
        }
        return bytes;
    }

    std::string take(std::uint64_t size) {
        std::string bytes(size, '?');
        bytes.resize(takeFromChunks(chunks_, offset_, bytes.data(), size));
        return bytes;
    }

    ChunkList chunks_;
    std::uint64_t count_ = 0;
    std::uint64_t offset_ = 0;
};

TEST_F(ChunkListTest, FirstBytesMakeAChunkOf64KiB) {
    append("abc");
    EXPECT_THAT(sizes(), ElementsAre(3));
    EXPECT_THAT(capacities(), ElementsAre(65536));
    EXPECT_EQ(contents(), "abc");
    EXPECT_EQ(count_, 3U);
}

TEST_F(ChunkListTest, SpareCapacityIsFilledFirst) {
    append("abc");
    append("def");
    EXPECT_THAT(sizes(), ElementsAre(6));
    EXPECT_EQ(contents(), "abcdef");
    EXPECT_EQ(count_, 6U);
}

TEST_F(ChunkListTest, ChunkOfExactly64KiBIsFull) {
    append(pattern(65535));
    EXPECT_THAT(capacities(), ElementsAre(65536));
    append("x");
    EXPECT_THAT(sizes(), ElementsAre(65536));
    append("y");
    EXPECT_THAT(sizes(), ElementsAre(65536, 1));
    EXPECT_THAT(capacities(), ElementsAre(65536, 65536));
}

TEST_F(ChunkListTest, LargePieceMakesOneChunkOfItsSize) {
    append(pattern(65537));
    EXPECT_THAT(sizes(), ElementsAre(65537));
    EXPECT_THAT(capacities(), ElementsAre(65537));
}

TEST_F(ChunkListTest, RestBeyondTheSpareCapacityMakesOneChunk) {
    append(pattern(65530));
    append(pattern(200000, 65530));
    EXPECT_THAT(sizes(), ElementsAre(65536, 199994));
    EXPECT_THAT(capacities(), ElementsAre(65536, 199994));
    EXPECT_EQ(contents(), pattern(265530));
    EXPECT_EQ(count_, 265530U);
}

TEST_F(ChunkListTest, SmallRestMakesAChunkOf64KiB) {
    append(pattern(65530));
    append(pattern(7, 65530));
    EXPECT_THAT(sizes(), ElementsAre(65536, 1));
    EXPECT_THAT(capacities(), ElementsAre(65536, 65536));
}

TEST_F(ChunkListTest, NothingAppendedMakesNoChunk) {
    appendToChunks(chunks_, nullptr, 0, count_);
    EXPECT_TRUE(chunks_.empty());
    append("abc");
    appendToChunks(chunks_, nullptr, 0, count_);
    EXPECT_EQ(contents(), "abc");
    EXPECT_EQ(count_, 3U);
}

TEST_F(ChunkListTest, CountGrowsFromWhatItWas) {
    count_ = 100;
    append("abc");
    EXPECT_EQ(count_, 103U);
}

TEST_F(ChunkListTest, ListAtItsMaximumTakesNoFurtherChunk) {
    const std::string full = pattern(65536);
    appendToChunks(chunks_, full.data(), full.size(), count_, 2);
    appendToChunks(chunks_, full.data(), full.size(), count_, 2);
    try {
        appendToChunks(chunks_, "x", 1, count_, 2);
        ADD_FAILURE() << "a third chunk was made";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(), "list too long");
    }
    EXPECT_THAT(sizes(), ElementsAre(65536, 65536));
    EXPECT_EQ(count_, 2U * 65536U);
}

TEST_F(ChunkListTest, ListAtItsMaximumStillFillsItsSpareCapacity) {
    appendToChunks(chunks_, "abc", 3, count_, 1);
    appendToChunks(chunks_, "def", 3, count_, 1);
    EXPECT_EQ(contents(), "abcdef");
}

TEST_F(ChunkListTest, TooLongAListTakesNothingOfThePiece) {
    appendToChunks(chunks_, "abc", 3, count_, 1);
    const std::string large = pattern(65536);
    EXPECT_THROW(appendToChunks(chunks_, large.data(), large.size(), count_, 1), std::length_error);
    EXPECT_EQ(contents(), "abc");
    EXPECT_EQ(count_, 3U);
}

TEST_F(ChunkListTest, TakingFromAnEmptyListGivesNothing) {
    EXPECT_EQ(take(10), "");
    EXPECT_EQ(offset_, 0U);
}

TEST_F(ChunkListTest, TakingPartOfAChunkKeepsThePlace) {
    append("abcdef");
    EXPECT_EQ(take(2), "ab");
    EXPECT_EQ(offset_, 2U);
    EXPECT_EQ(take(2), "cd");
    EXPECT_EQ(offset_, 4U);
    EXPECT_EQ(chunks_.size(), 1U);
}

TEST_F(ChunkListTest, ChunkUsedUpIsFreed) {
    append("abcdef");
    EXPECT_EQ(take(6), "abcdef");
    EXPECT_TRUE(chunks_.empty());
    EXPECT_EQ(offset_, 0U);
}

TEST_F(ChunkListTest, ChunkUsedAgainHoldsNothingOfBefore) {
    append(pattern(65536));
    EXPECT_EQ(take(65536), pattern(65536));
    append("abc");
    EXPECT_THAT(sizes(), ElementsAre(3));
    EXPECT_THAT(capacities(), ElementsAre(65536));
    EXPECT_EQ(contents(), "abc");
}

TEST_F(ChunkListTest, TakingMoreThanThereIsGivesAll) {
    append("abcdef");
    EXPECT_EQ(take(7), "abcdef");
    EXPECT_TRUE(chunks_.empty());
}

TEST_F(ChunkListTest, TakingNothingChangesNothing) {
    append("abcdef");
    EXPECT_EQ(take(0), "");
    EXPECT_EQ(contents(), "abcdef");
}

TEST_F(ChunkListTest, AppendingToAPartlyTakenChunkFollowsOn) {
    append("abc");
    EXPECT_EQ(take(2), "ab");
    append("def");
    EXPECT_EQ(chunks_.size(), 1U);
    EXPECT_EQ(take(10), "cdef");
}

TEST_F(ChunkListTest, TakingGoesOverChunksAtEverySplit) {
    const std::vector<std::size_t> pieces{1, 65535, 65537, 3, 70000};
    std::string all;
    for (const std::size_t size : pieces) {
        append(pattern(size, all.size()));
        all += pattern(size, all.size());
    }
    const ChunkList filled = chunks_;
    // The capacities matter for appending only; a copy may be taken apart again and again.
    for (const std::size_t step : {std::size_t{1}, std::size_t{7}, std::size_t{65535}, std::size_t{65536},
                                   std::size_t{65537}, all.size() - 1, all.size(), all.size() + 1}) {
        chunks_ = filled;
        offset_ = 0;
        std::string taken;
        while (taken.size() < all.size()) {
            const std::string part = take(step);
            ASSERT_EQ(part.size(), std::min(step, all.size() - taken.size())) << step;
            taken += part;
        }
        EXPECT_EQ(taken, all) << step;
        EXPECT_TRUE(chunks_.empty()) << step;
    }
}

} // namespace
