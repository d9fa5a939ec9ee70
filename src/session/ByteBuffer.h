// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace ql::impl {

/// Bytes in one piece of memory that grows, and whose new part holds whatever it held: what a std::vector spends on
/// zeros would be overwritten by the next receive.
class ByteBuffer {
public:
    bool isEmpty() const { return size_ == 0; }

    /// Valid until the buffer grows or is released.
    std::span<unsigned char> bytes() { return {memory_.get(), size_}; }

    /// Room behind the bytes for at least `least` more, to be written and then given to added().
    /// @param expected how many are still to come as far as is known, so that the memory need not grow again for them.
    /// @throws std::bad_alloc
    std::span<unsigned char> room(std::size_t least, std::size_t expected);

    /// The first `count` bytes of the room have been written.
    void added(std::size_t count) { size_ += count; }

    /// Keeps the memory.
    void clear() { size_ = 0; }

    /// Gives the memory back.
    void release();

private:
    std::unique_ptr<unsigned char[]> memory_;
    std::size_t capacity_ = 0;
    std::size_t size_ = 0;
};

} // namespace ql::impl
