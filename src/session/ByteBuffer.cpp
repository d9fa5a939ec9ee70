#include "session/ByteBuffer.h"

#include <algorithm>

namespace ql::impl {

namespace {

/// Room that is taken at a peer's word. More is taken as it fills, so that who announces much and sends little costs
/// little.
constexpr std::size_t MostOnTrust = 1048576;

} // namespace

std::span<unsigned char> ByteBuffer::room(std::size_t least, std::size_t expected) {
    if (capacity_ - size_ < least) {
        const std::size_t wanted = std::max({least, (std::min)(expected, MostOnTrust), capacity_});
        // For as much as is wanted behind the bytes, or for twice as much as before: many small pieces are not copied
        // again with each of them.
        const std::size_t capacity = size_ + wanted;
        auto memory = std::make_unique_for_overwrite<unsigned char[]>(capacity);
        std::ranges::copy(bytes(), memory.get());
        memory_ = std::move(memory);
        capacity_ = capacity;
    }
    return {memory_.get() + size_, capacity_ - size_};
}

void ByteBuffer::release() {
    memory_.reset();
    capacity_ = 0;
    size_ = 0;
}

} // namespace ql::impl
