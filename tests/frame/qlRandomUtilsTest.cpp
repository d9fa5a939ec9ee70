#include "vireo/support/qlRandomUtils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <string>

namespace {

TEST(qlRandomUtils, FillsExactlyTheGivenBytes) {
    // A byte that happens to keep its value 40 times in a row has a chance of 2^-320.
    constexpr std::size_t size = 10;
    std::array<char, size + 2> memory{};
    std::array<bool, size> changed{};
    for (int round = 0; round < 40; ++round) {
        memory.fill('#');
        qlRandomUtils::Rand(memory.data() + 1, size);
        EXPECT_EQ(memory.front(), '#');
        EXPECT_EQ(memory.back(), '#');
        for (std::size_t i = 0; i < size; ++i) {
            changed[i] = changed[i] || memory[i + 1] != '#';
        }
    }
    EXPECT_TRUE(std::all_of(changed.begin(), changed.end(), [](bool value) { return value; }));
}

TEST(qlRandomUtils, NoTwoDrawsAreEqual) {
    std::set<std::string> draws;
    for (int i = 0; i < 1000; ++i) {
        std::string draw(16, '\0');
        qlRandomUtils::Rand(draw.data(), draw.size());
        draws.insert(draw);
    }
    EXPECT_EQ(draws.size(), 1000U);
}

TEST(qlRandomUtils, NoBytesMayBeANullPointer) {
    EXPECT_NO_THROW(qlRandomUtils::Rand(nullptr, 0));
}

TEST(qlRandomUtils, LargeBuffersAreFilledToTheEnd) {
    constexpr std::size_t size = 1U << 20U;
    std::string memory(size, '\0');
    qlRandomUtils::Rand(memory.data(), memory.size());
    const std::set<char> seenAtTheEnd(memory.end() - 4096, memory.end());
    EXPECT_GT(seenAtTheEnd.size(), 128U);
}

} // namespace
