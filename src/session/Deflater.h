// SPDX-License-Identifier: MIT
#pragma once

#include "session/ByteBuffer.h"
#include "session/DeflateOffer.h"

#include <memory>
#include <span>

namespace ql::impl {

/// Compresses messages for permessage-deflate. One thread at a time.
class Deflater {
public:
    /// Takes no memory before the first message.
    /// @param windowBits 9 to 15.
    /// @param takesOver whether a message refers to those before it; without, no memory is held between messages.
    Deflater(const DeflateSettings& settings, int windowBits, bool takesOver);
    ~Deflater();
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    /// Appends the compressed message, without the four bytes that the extension leaves out.
    /// @return false when it would not be shorter than the message: then `out` is as it was, and the next message
    /// refers
    ///         to none before it.
    /// @throws std::bad_alloc
    bool compress(std::span<const unsigned char> message, ByteBuffer& out);

    /// The next message refers to none before it: the peer has got one that this object has not seen.
    void reset();

private:
    class Stream;

    int level_;
    int memoryLevel_;
    int windowBits_;
    bool takesOver_;
    std::unique_ptr<Stream> stream_;
};

} // namespace ql::impl
