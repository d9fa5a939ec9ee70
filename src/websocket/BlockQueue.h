// SPDX-License-Identifier: MIT
#pragma once

#include "websocket/BlockList.h"
#include "websocket/SocketPort.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace ql::impl {

/// A queue of bytes in blocks: those received and not yet parsed, or those not yet sent. It stands on a list of blocks
/// and two positions that belong to a connection.
///
/// `offset` counts the bytes of the first block that are gone; `end` those of the last that are filled. An `end` of
/// BlockSize means that the last block is full, or that there is none, so that the next byte begins a new one.
class BlockQueue {
public:
    /// All three must live as long as this object.
    BlockQueue(BlockList& blocks, std::uint64_t& offset, std::uint64_t& end)
        : blocks_(blocks), offset_(offset), end_(end) {}

    bool isEmpty() const { return size() == 0; }
    /// Bytes in the queue.
    std::uint64_t size() const { return blocks_.empty() ? 0 : BlockSize * (blocks_.size() - 1) + end_ - offset_; }
    std::size_t blockCount() const { return blocks_.size(); }
    /// Whether there is a last block with no room left.
    bool endsWithFullBlock() const { return !blocks_.empty() && end_ == BlockSize; }

    // At the end.

    /// Appends a copy of the bytes. @throws std::bad_alloc; some of them may be in the queue then.
    void append(std::span<const unsigned char> bytes);
    /// Takes off what stands behind the first `size` bytes.
    void cutTo(std::uint64_t size);

    /// Memory behind the last byte, to be filled by one call of the system: the rest of the last block, and new ones.
    class Room {
    public:
        /// @param blockCount the last block, if it has room, and the new ones together; at most MostSocketBuffers.
        /// @throws std::bad_alloc
        Room(BlockQueue& queue, std::size_t blockCount);
        /// Releases the blocks that stay empty.
        ~Room();
        Room(const Room&) = delete;
        Room& operator=(const Room&) = delete;

        SocketBuffers buffers() const { return SocketBuffers(buffers_.data(), count_); }
        /// The first `count` bytes are filled and join the queue.
        void keep(std::uint64_t count);

    private:
        BlockQueue& queue_;
        BlockList fresh_;
        std::array<SocketBuffer, MostSocketBuffers> buffers_;
        std::size_t count_ = 0;
    };

    // At the front, without a change.

    /// Copies up to as many bytes as `out` has room for.
    void peek(std::span<unsigned char> out) const;
    /// Lists the bytes block by block, as far as `out` has room. @return the part of it that is filled, none if empty.
    SocketBuffers gather(std::span<SocketBuffer> out) const;

    // Off the front. So many bytes must be there. A block whose last byte is gone is released.

    void skip(std::uint64_t count);
    /// Fills `out` and unmasks what it is filled with. @param maskKey 4 bytes.
    void takeUnmasked(std::span<unsigned char> out, const unsigned char* maskKey);
    /// An empty queue holds no block afterwards, also not one with room behind the bytes that are gone.
    void releaseIfEmpty();

private:
    /// Calls `visit` with the bytes of each block until it returns false.
    template <typename Visit>
    void visitBlocks(Visit visit) const;
    /// Calls `take` with parts of the first `count` bytes, in order, and releases each block that they use up.
    template <typename Take>
    void takeBlocks(std::uint64_t count, Take take);

    BlockList& blocks_;
    std::uint64_t& offset_;
    std::uint64_t& end_;
};

} // namespace ql::impl
