#include "streams/LargeMemory.h"

#include "streams/ChunkList.h"
#include "support/Pattern.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using vireotest::pattern;

TEST(LargeMemory, AdviceOnAnyAddressChangesNothing) {
    std::vector<char> memory(ql::impl::LargeMemoryBytes + 5000, 'x');
    for (const std::size_t offset : {0U, 1U, 4095U, 4096U, 4999U}) {
        ql::impl::preferLargePages(memory.data() + offset, ql::impl::LargeMemoryBytes);
    }
    EXPECT_EQ(memory, std::vector<char>(memory.size(), 'x'));
}

TEST(LargeMemory, LargeChunkComesOutAsItWentIn) {
    const std::string body = pattern(ql::impl::LargeMemoryBytes);
    ql::impl::ChunkList chunks;
    std::uint64_t count = 0;
    ql::impl::appendToChunks(chunks, body.data(), body.size(), count);
    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks.front().capacity(), body.size());
    EXPECT_EQ(std::string(chunks.front().begin(), chunks.front().end()), body);
}

} // namespace
