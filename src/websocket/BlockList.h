// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <list>
#include <vector>

/// The byte blocks of the read and write queues.
namespace ql::impl {

using BlockList = std::list<std::vector<unsigned char>>;

/// Bytes of every block.
constexpr std::size_t BlockSize = 1024;

/// Most blocks that one thread keeps: 2 MiB.
constexpr std::size_t MostSpareBlocks = 2048;

/// For as long as it lives, its thread keeps blocks that it releases and uses them again before it allocates: a message
/// then costs no allocation, and large ones don't send their memory to the system and back each time. One a thread.
///
/// An object of the thread's function, because where a thread's variables are emulated (MinGW) they are freed before
/// their destructors run.
class SpareBlocks {
public:
    SpareBlocks();
    ~SpareBlocks();
    SpareBlocks(const SpareBlocks&) = delete;
    SpareBlocks& operator=(const SpareBlocks&) = delete;

private:
    BlockList blocks_;
};

/// Appends a block; its bytes are of any value. @throws std::bad_alloc
void appendBlock(BlockList& blocks);

/// Takes the first block off the list.
void releaseFirstBlock(BlockList& blocks);

/// Empties the list.
void releaseBlocks(BlockList& blocks);

} // namespace ql::impl
