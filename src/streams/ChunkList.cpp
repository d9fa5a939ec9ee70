#include "streams/ChunkList.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace ql {

void appendToChunks(ChunkList& chunks, const char* data, std::uint64_t size, std::uint64_t& count,
                    std::uint64_t maxChunks) {
    std::uint64_t fitting = 0;
    if (!chunks.empty()) {
        fitting = std::min<std::uint64_t>(size, chunks.back().capacity() - chunks.back().size());
    }
    const std::uint64_t rest = size - fitting;
    // The new chunk is made ready before anything is copied, so that a failure leaves the list as it was.
    ChunkList fresh;
    if (rest != 0) {
        if (chunks.size() >= maxChunks) {
            throw std::length_error("list too long");
        }
        fresh.emplace_back().reserve(std::max(rest, MinChunkCapacity));
        fresh.back().assign(data + fitting, data + size);
    }
    if (fitting != 0) {
        chunks.back().insert(chunks.back().end(), data, data + fitting);
    }
    chunks.splice(chunks.end(), fresh);
    count += size;
}

std::uint64_t takeFromChunks(ChunkList& chunks, std::uint64_t& offset, char* out, std::uint64_t size) {
    std::uint64_t copied = 0;
    while (copied < size && !chunks.empty()) {
        const std::vector<char>& front = chunks.front();
        const std::uint64_t part = std::min<std::uint64_t>(size - copied, front.size() - offset);
        if (part != 0) {
            std::memcpy(out + copied, front.data() + offset, static_cast<std::size_t>(part));
        }
        copied += part;
        offset += part;
        if (offset == front.size()) {
            chunks.pop_front();
            offset = 0;
        }
    }
    return copied;
}

} // namespace ql
