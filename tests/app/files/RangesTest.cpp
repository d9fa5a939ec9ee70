#include "app/files/Ranges.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace vireo::impl {

std::ostream& operator<<(std::ostream& out, const ByteRange& range) {
    return out << range.offset << "+" << range.size;
}

} // namespace vireo::impl

namespace {

using vireo::impl::ByteRange;
using vireo::impl::chooseRanges;
using vireo::impl::RangeChoice;
using Kind = vireo::impl::RangeChoice::Kind;
using Ranges = std::vector<ByteRange>;

constexpr std::uint64_t Size = 1000;

Ranges partsOf(const std::string& header, std::uint64_t size = Size) {
    const RangeChoice choice = chooseRanges(header, size);
    EXPECT_EQ(choice.kind, Kind::Parts) << header;
    return choice.parts;
}

TEST(RangesTest, OneRange) {
    EXPECT_EQ(partsOf("bytes=0-0"), (Ranges{{0, 1}}));
    EXPECT_EQ(partsOf("bytes=0-499"), (Ranges{{0, 500}}));
    EXPECT_EQ(partsOf("bytes=500-999"), (Ranges{{500, 500}}));
    EXPECT_EQ(partsOf("bytes=500-1000"), (Ranges{{500, 500}}));
    EXPECT_EQ(partsOf("bytes=999-"), (Ranges{{999, 1}}));
    EXPECT_EQ(partsOf("bytes=-1"), (Ranges{{999, 1}}));
    EXPECT_EQ(partsOf("bytes=-1000"), (Ranges{{0, 1000}}));
    EXPECT_EQ(partsOf("bytes=-2000"), (Ranges{{0, 1000}}));
    EXPECT_EQ(partsOf("BYTES=0-0"), (Ranges{{0, 1}}));
    EXPECT_EQ(partsOf("bytes= 0-0 "), (Ranges{{0, 1}}));
    EXPECT_EQ(partsOf("bytes=0-99999999999999999999999"), (Ranges{{0, 1000}}));
    EXPECT_EQ(partsOf("bytes=-99999999999999999999999"), (Ranges{{0, 1000}}));
}

TEST(RangesTest, SeveralStandAsTheyWereAskedFor) {
    EXPECT_EQ(partsOf("bytes=500-600, 0-99,,-1"), (Ranges{{500, 101}, {0, 100}, {999, 1}}));
    EXPECT_EQ(partsOf("bytes=-1,500-600,\t0-99 ,"), (Ranges{{999, 1}, {500, 101}, {0, 100}}));
    EXPECT_EQ(partsOf("bytes=5000-6000,10-19,0-4"), (Ranges{{10, 10}, {0, 5}}));
    EXPECT_EQ(partsOf("bytes=0-0,5000-6000"), (Ranges{{0, 1}}));
}

TEST(RangesTest, ThoseThatTouchBecomeOne) {
    EXPECT_EQ(partsOf("bytes=0-99,100-199"), (Ranges{{0, 200}}));
    EXPECT_EQ(partsOf("bytes=0-99,101-199"), (Ranges{{0, 100}, {101, 99}}));
    EXPECT_EQ(partsOf("bytes=10-20,0-500,15-30"), (Ranges{{0, 501}}));
    EXPECT_EQ(partsOf("bytes=900-,10-19,500-509,20-29"), (Ranges{{900, 100}, {10, 20}, {500, 10}}));
    EXPECT_EQ(partsOf("bytes=100-199,500-,0-99"), (Ranges{{0, 200}, {500, 500}}));
    EXPECT_EQ(partsOf("bytes=0-0,0-0,0-0"), (Ranges{{0, 1}}));
}

TEST(RangesTest, NoneThatTheFileHasIsUnsatisfiable) {
    for (const char* const header :
         {"bytes=1000-", "bytes=1000-2000,5000-6000", "bytes=-0", "bytes=99999999999999999999-"}) {
        EXPECT_EQ(chooseRanges(header, Size).kind, Kind::Unsatisfiable) << header;
    }
}

TEST(RangesTest, WhatIsNotUnderstoodIsPassedOver) {
    for (const char* const header : {"", "bytes", "bytes=", "bytes=,", "bytes=-", "bytes=a-b", "bytes=1", "bytes=2-1",
                                     "bytes=0-0,2-1", "bytes=0-0,x", "bytes=0--1", "bytes=--1", "bytes=+0-1",
                                     "bytes=0-1-2", "bytes=0 -1", "bytes =0-1", "lines=0-1", "bytes:0-1"}) {
        EXPECT_EQ(chooseRanges(header, Size).kind, Kind::Whole) << header;
    }
}

TEST(RangesTest, EmptyFileHasNoParts) {
    EXPECT_EQ(chooseRanges("bytes=0-", 0).kind, Kind::Whole);
    EXPECT_EQ(chooseRanges("bytes=-5", 0).kind, Kind::Whole);
}

TEST(RangesTest, ContentRangeNamesTheLastByte) {
    EXPECT_EQ(vireo::impl::contentRange({0, 1}, Size), "bytes 0-0/1000");
    EXPECT_EQ(vireo::impl::contentRange({500, 500}, Size), "bytes 500-999/1000");
}

TEST(RangesTest, PartsAreTheBytesThatAreAskedFor) {
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same each time
    const auto below = [&random](unsigned int bound) { return static_cast<unsigned int>(random() % bound); };
    for (int round = 0; round < 20000; ++round) {
        const unsigned int size = 1 + below(40);
        std::string header = "bytes=";
        std::vector<bool> wanted(size);
        const unsigned int count = 1 + below(4);
        for (unsigned int i = 0; i < count; ++i) {
            unsigned int first = below(50);
            unsigned int last = first + below(20);
            header += i == 0 ? "" : ",";
            switch (below(3)) {
            case 0:
                header += std::to_string(first) + "-" + std::to_string(last);
                break;
            case 1:
                header += std::to_string(first) + "-";
                last = size;
                break;
            default:
                header += "-" + std::to_string(first);
                last = size;
                first = first > size ? 0 : size - first;
            }
            for (unsigned int byte = first; byte <= last && byte < size; ++byte) {
                wanted[byte] = true;
            }
        }
        const RangeChoice choice = chooseRanges(header, size);
        Ranges parts = choice.parts;
        std::ranges::sort(parts, {}, &ByteRange::offset);
        std::vector<bool> given(size);
        std::uint64_t end = 0;
        for (const ByteRange& part : parts) {
            ASSERT_NE(part.size, 0U) << header << " of " << size;
            ASSERT_TRUE(end == 0 || part.offset > end) << header << " of " << size;
            end = part.offset + part.size;
            ASSERT_LE(end, size) << header;
            for (std::uint64_t byte = part.offset; byte < end; ++byte) {
                given[byte] = true;
            }
        }
        ASSERT_EQ(given, wanted) << header << " of " << size;
        ASSERT_EQ(choice.kind, choice.parts.empty() ? Kind::Unsatisfiable : Kind::Parts) << header;
    }
}

} // namespace
