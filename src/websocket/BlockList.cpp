#include "websocket/BlockList.h"

namespace ql::impl {

namespace {

thread_local BlockList* spareBlocks = nullptr;

} // namespace

SpareBlocks::SpareBlocks() {
    spareBlocks = &blocks_;
}

SpareBlocks::~SpareBlocks() {
    spareBlocks = nullptr;
}

void appendBlock(BlockList& blocks) {
    if (spareBlocks == nullptr || spareBlocks->empty()) {
        blocks.emplace_back(BlockSize);
    } else {
        blocks.splice(blocks.end(), *spareBlocks, spareBlocks->begin());
    }
}

void releaseFirstBlock(BlockList& blocks) {
    if (spareBlocks != nullptr && spareBlocks->size() < MostSpareBlocks) {
        // To the front: the block used last is the one that the processor's caches still hold.
        spareBlocks->splice(spareBlocks->begin(), blocks, blocks.begin());
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
