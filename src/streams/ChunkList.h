// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <vector>

namespace ql::impl {

/// Body bytes on their way, in order. A chunk's capacity is settled when it is made; its size is the filled part.
using ChunkList = std::list<std::vector<char>>;

/// The least capacity of a chunk: small pieces are packed together, so that lists stay short.
inline constexpr std::uint64_t MinChunkCapacity = 65536;

/// How many chunks of the least capacity are kept for later use in the process: 2 MiB, enough for what a few busy
/// streams have under way. A fresh chunk costs page faults, and freeing it returns its pages to the system.
inline constexpr std::size_t MaxSpareChunks = 32;

/// Keeps an emptied chunk for later use if it has the least capacity and there is room, else frees it. Any thread.
void recycleChunk(std::vector<char>&& chunk) noexcept;

/// Frees the chunks kept for later use. Any thread.
void freeSpareChunks() noexcept;

/// Appends `size` bytes: into the spare capacity of the last chunk first, the rest into one new chunk. A piece is
/// thus never split over more than two chunks. All or nothing.
/// @param count grows by `size`.
/// @param maxChunks how long the list may become.
/// @throws std::length_error "list too long", std::bad_alloc
void appendToChunks(ChunkList& chunks, const char* data, std::uint64_t size, std::uint64_t& count,
                    std::uint64_t maxChunks = ChunkList().max_size());

/// Copies from the front of `chunks` until `size` bytes are copied or the list is empty, and recycles chunks used up.
/// @param offset read position in the front chunk, kept between calls.
/// @return the number of bytes copied.
std::uint64_t takeFromChunks(ChunkList& chunks, std::uint64_t& offset, char* out, std::uint64_t size);

} // namespace ql::impl
