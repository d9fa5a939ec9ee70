// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ql::impl {

/// The message that the frames of a connection are put together to. It stands on a payload and a type that are the
/// connection's, and keeps what these cannot tell: whether a message is open.
///
///             first byte of payload
///     closed ----------------------> open
///            <----------------------
///                   delivered
///
/// A fragment without payload opens nothing: the frame behind it is the first one, too, and must not be a continuation.
class MessageInProgress {
public:
    /// Both must live as long as this object. No message is open.
    MessageInProgress(std::vector<unsigned char>& payload, bool& isBinary) : payload_(payload), isBinary_(isBinary) {}

    bool isOpen() const { return state_ == State::Open; }

    /// Takes over what another one has come to, whose payload and type the connection takes over itself.
    void continueFrom(MessageInProgress& other) {
        state_ = other.state_;
        other.state_ = State::Closed;
    }

    /// Adds room for the payload of a frame, all zeros. The first frame decides on the type.
    /// @return where its payload begins. @throws std::bad_alloc or std::length_error; nothing has changed then.
    std::uint64_t addFrame(std::uint64_t payloadBytes, bool isBinary) {
        const std::size_t begin = payload_.size();
        payload_.resize(static_cast<std::size_t>(begin + payloadBytes));
        if (state_ == State::Closed) {
            isBinary_ = isBinary;
            state_ = payloadBytes > 0 ? State::Open : State::Closed;
        }
        return begin;
    }

    /// The message was delivered. The payload's storage is kept for the next one.
    void close() {
        payload_.clear();
        isBinary_ = false;
        state_ = State::Closed;
    }

private:
    enum class State { Closed, Open };

    std::vector<unsigned char>& payload_;
    bool& isBinary_;
    State state_ = State::Closed;
};

} // namespace ql::impl
