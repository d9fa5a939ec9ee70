#include "websocket/BlockList.h"

namespace ql::impl {

namespace {

BlockList& spareBlocks() {
    thread_local BlockList blocks;
    return blocks;
}

} // namespace

void appendBlock(BlockList& blocks) {
    BlockList& spare = spareBlocks();
    if (spare.empty()) {
        blocks.emplace_back(BlockSize);
    } else {
        blocks.splice(blocks.end(), spare, spare.begin());
    }
}

void releaseFirstBlock(BlockList& blocks) {
    BlockList& spare = spareBlocks();
    if (spare.size() < MostSpareBlocks) {
        // To the front: the block used last is the one that the processor's caches still hold.
        spare.splice(spare.begin(), blocks, blocks.begin());
    } else {
        blocks.pop_front();
    }
}

void releaseBlocks(BlockList& blocks) {
    while (!blocks.empty()) {
        releaseFirstBlock(blocks);
    }
}

} // namespace ql::impl
