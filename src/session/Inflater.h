// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace ql::impl {

/// Decompresses messages of permessage-deflate that arrive and leave in pieces. One thread at a time.
class Inflater {
public:
    enum class Status {
        InputUsed, ///< all input is taken, and all that it gives is written
        RoomUsed,  ///< there may be more to write
        Invalid,   ///< no compressed message
    };

    /// Takes no memory before the first message.
    /// @param windowBits 8 to 15.
    /// @param takesOver whether messages may refer to those before them; without, no memory is held between messages.
    Inflater(int windowBits, bool takesOver);
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    /// Takes from `input` and writes to `room`; both begin behind what has been taken and written when it returns.
    /// @throws std::bad_alloc
    Status inflate(std::span<const unsigned char>& input, std::span<unsigned char>& room);

    /// The same with the four bytes that the extension leaves out at a message's end. InputUsed: the message is
    /// complete, and the next one may begin. After RoomUsed it has to be called again.
    /// @throws std::bad_alloc
    Status finish(std::span<unsigned char>& room);

private:
    class Stream;

    int windowBits_;
    bool takesOver_;
    /// Of the four bytes.
    std::size_t tailTaken_ = 0;
    std::unique_ptr<Stream> stream_;
};

} // namespace ql::impl
