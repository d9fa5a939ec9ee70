#include "streams/ChunkList.h"

#include "frame/NeverDestroyed.h"
#include "streams/LargeMemory.h"
#include "vireo/support/qlMutex.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace ql::impl {

namespace {

/// The chunks kept for later use. The one used last is given out first: its memory is the most likely to be cached.
class SpareChunks {
public:
    void put(std::vector<char>&& chunk) {
        const qlMutexLocker locker(mutex_);
        if (count_ < chunks_.size()) {
            chunks_[count_++] = std::move(chunk);
        }
    }

    /// @return a chunk without capacity when there is none.
    std::vector<char> take() {
        const qlMutexLocker locker(mutex_);
        return count_ == 0 ? std::vector<char>() : std::move(chunks_[--count_]);
    }

private:
    qlMutex mutex_;
    std::array<std::vector<char>, MaxSpareChunks> chunks_ QL_GUARDED_BY(mutex_);
    std::size_t count_ QL_GUARDED_BY(mutex_) = 0;
};

SpareChunks& spareChunks() {
    static impl::NeverDestroyed<SpareChunks> chunks;
    return *chunks;
}

std::vector<char> makeChunk(std::uint64_t minCapacity) {
    std::vector<char> chunk;
    if (minCapacity <= MinChunkCapacity) {
        chunk = spareChunks().take();
    }
    // Nothing happens to a spare one.
    chunk.reserve((std::max)(minCapacity, MinChunkCapacity));
    if (chunk.capacity() >= LargeMemoryBytes) {
        preferLargePages(chunk.data(), chunk.capacity());
    }
    return chunk;
}

} // namespace

void recycleChunk(std::vector<char>&& chunk) noexcept {
    // Freed at the end of the scope when it is not kept, and not under the lock.
    std::vector<char> emptied = std::move(chunk);
    if (emptied.capacity() == MinChunkCapacity) {
        emptied.clear();
        spareChunks().put(std::move(emptied));
    }
}

void freeSpareChunks() noexcept {
    while (spareChunks().take().capacity() != 0) {
    }
}

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
        fresh.push_back(makeChunk(rest));
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
        std::vector<char>& front = chunks.front();
        const std::uint64_t part = std::min<std::uint64_t>(size - copied, front.size() - offset);
        if (part != 0) {
            std::memcpy(out + copied, front.data() + offset, static_cast<std::size_t>(part));
        }
        copied += part;
        offset += part;
        if (offset == front.size()) {
            recycleChunk(std::move(front));
            chunks.pop_front();
            offset = 0;
        }
    }
    return copied;
}

} // namespace ql::impl
