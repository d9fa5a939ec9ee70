#include "websocket/BlockQueue.h"

#include "websocket/Unmask.h"

#include <algorithm>
#include <cstddef>

namespace ql::impl {

template <typename Visit>
void BlockQueue::visitBlocks(Visit visit) const {
    std::uint64_t offset = offset_;
    for (auto block = blocks_.begin(); block != blocks_.end(); ++block) {
        const std::uint64_t end = &*block == &blocks_.back() ? end_ : BlockSize;
        if (!visit(
                std::span(*block).subspan(static_cast<std::size_t>(offset), static_cast<std::size_t>(end - offset)))) {
            return;
        }
        offset = 0;
    }
}

template <typename Take>
void BlockQueue::takeBlocks(std::uint64_t count, Take take) {
    while (count > 0) {
        const std::uint64_t part = std::min(count, BlockSize - offset_);
        take(std::span<const unsigned char>(blocks_.front())
                 .subspan(static_cast<std::size_t>(offset_), static_cast<std::size_t>(part)));
        count -= part;
        offset_ += part;
        if (offset_ == BlockSize) {
            // If it was the last one, it was full: end_ is BlockSize already, as it has to be with no block left.
            releaseFirstBlock(blocks_);
            offset_ = 0;
        }
    }
}

void BlockQueue::append(std::span<const unsigned char> bytes) {
    while (!bytes.empty()) {
        if (end_ == BlockSize) {
            appendBlock(blocks_);
            end_ = 0;
        }
        const std::size_t part = std::min(bytes.size(), static_cast<std::size_t>(BlockSize - end_));
        // Not memcpy(): of a size that cannot pass a block's, compilers make a loop of their own that is slower.
        std::copy_n(bytes.begin(), part, blocks_.back().begin() + static_cast<std::ptrdiff_t>(end_));
        end_ += part;
        bytes = bytes.subspan(part);
    }
}

void BlockQueue::cutTo(std::uint64_t size) {
    const std::uint64_t end = offset_ + size; // counted from the first byte of the first block
    blocks_.resize(static_cast<std::size_t>((end + BlockSize - 1) / BlockSize));
    end_ = end == 0 ? BlockSize : (end - 1) % BlockSize + 1;
}

BlockQueue::Room::Room(BlockQueue& queue, std::size_t blockCount) : queue_(queue) {
    if (queue_.end_ < BlockSize) {
        buffers_[count_++] = {queue_.blocks_.back().data() + queue_.end_, BlockSize - queue_.end_};
    }
    while (count_ < blockCount) {
        appendBlock(fresh_);
        buffers_[count_++] = {fresh_.back().data(), BlockSize};
    }
}

BlockQueue::Room::~Room() {
    releaseBlocks(fresh_);
}

void BlockQueue::Room::keep(std::uint64_t count) {
    while (count > 0) {
        if (queue_.end_ == BlockSize) {
            queue_.blocks_.splice(queue_.blocks_.end(), fresh_, fresh_.begin());
            queue_.end_ = 0;
        }
        const std::uint64_t part = std::min(count, BlockSize - queue_.end_);
        queue_.end_ += part;
        count -= part;
    }
}

void BlockQueue::peek(std::span<unsigned char> out) const {
    visitBlocks([&](std::span<const unsigned char> bytes) {
        const std::size_t part = std::min(out.size(), bytes.size());
        std::copy_n(bytes.begin(), part, out.begin());
        out = out.subspan(part);
        return !out.empty();
    });
}

SocketBuffers BlockQueue::gather(std::span<SocketBuffer> out) const {
    std::size_t count = 0;
    visitBlocks([&](std::span<unsigned char> bytes) {
        out[count++] = {bytes.data(), bytes.size()};
        return count < out.size();
    });
    return out.first(count);
}

void BlockQueue::skip(std::uint64_t count) {
    takeBlocks(count, [](std::span<const unsigned char>) {});
}

void BlockQueue::takeUnmasked(std::span<unsigned char> out, const unsigned char* maskKey) {
    std::size_t done = 0;
    takeBlocks(out.size(), [&](std::span<const unsigned char> bytes) {
        unmask(out.data() + done, bytes.data(), bytes.size(), maskKey, done % 4);
        done += bytes.size();
    });
}

void BlockQueue::releaseIfEmpty() {
    if (isEmpty()) {
        releaseBlocks(blocks_);
        offset_ = 0;
        end_ = BlockSize;
    }
}

} // namespace ql::impl
