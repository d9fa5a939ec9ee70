// SPDX-License-Identifier: MIT
#pragma once

#include "session/MessageEncoder.h"
#include "websocket/SocketPort.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace ql::impl {

/// First in, first out, and no memory while it is empty.
class FrameList {
public:
    enum class Kind {
        Message, ///< a whole message, which may be dropped
        Piece,   ///< of a message in pieces
        Control,
        Pong,
    };

    struct Item {
        EncodedFrame frame;
        Kind kind = Kind::Message;
        /// Bytes of the frame that are on their way.
        std::size_t sent = 0;

        std::span<const unsigned char> rest() const { return frame.bytes().subspan(sent); }
    };

    bool isEmpty() const { return first_ == items_.size(); }
    std::span<Item> items() { return std::span(items_).subspan(first_); }
    std::span<const Item> items() const { return std::span(items_).subspan(first_); }

    /// The next `count` calls of append() will not throw. @throws std::bad_alloc
    void reserve(std::size_t count);
    /// @throws std::bad_alloc
    void append(Item item);
    void removeFirst() { remove(0); }
    /// Its place goes to those before it, of which there are few.
    void remove(std::size_t index);
    void swap(FrameList& other) noexcept;
    /// What nothing is sent of goes.
    void keepBegun();
    void clear();

private:
    std::vector<Item> items_;
    std::size_t first_ = 0;
};

/// What waits for one peer, framed. One thread at a time.
///
/// It leaves in this order: the rest of a frame that was begun, pings and pongs, messages and the close. While a
/// message in pieces is unfinished, whole messages wait behind it.
class OutgoingQueue {
public:
    /// What a frame takes beside its bytes, about. Without it, a limit would let through any number of tiny ones.
    static constexpr std::uint64_t FrameCost = 64;

    /// Whether nothing can be sent now.
    bool isEmpty() const { return urgent_.isEmpty() && ordered_.isEmpty(); }
    /// Of everything that is here and not sent.
    std::uint64_t bytes() const { return bytes_; }
    /// Without the messages that wait for the end of one in pieces.
    std::uint64_t sendableBytes() const { return bytes_ - heldBytes_; }
    /// The bytes and the cost of the frames: of everything, without those messages, of what cannot be dropped.
    ///@{
    std::uint64_t load() const { return sendableLoad() + heldBytes_ + FrameCost * held_.items().size(); }
    std::uint64_t sendableLoad() const { return sendableBytes() + FrameCost * frames(); }
    std::uint64_t undroppableLoad() const;
    ///@}
    bool isMessageOpen() const { return isMessageOpen_; }

    // Each that adds something may throw std::bad_alloc; the queue is as it was then.

    /// @param sent bytes of it that are on their way; not while a message in pieces is open.
    void addMessage(const EncodedFrame& frame, std::size_t sent = 0);
    /// Whole messages wait from now on until finishMessage().
    void openMessage() { isMessageOpen_ = true; }
    void addPiece(const EncodedFrame& frame, std::size_t sent = 0);
    /// Behind its last piece.
    void finishMessage();
    void addPing(const EncodedFrame& frame);
    /// In the place of one of which nothing is sent: the peer is interested in its last ping.
    void setPong(const EncodedFrame& frame);
    /// The last frame of all. Messages that wait for the end of one in pieces go: it will not come.
    void addClose(const EncodedFrame& frame);

    /// The oldest message of which nothing is sent goes.
    /// @param isHeldToo false for none of those that wait for the end of one in pieces.
    /// @return false when there is none.
    bool dropOldestMessage(bool isHeldToo) noexcept;
    /// Everything of which nothing is sent goes.
    void dropUnsent() noexcept;
    void clear() noexcept;

    /// What is to be sent next, as far as `out` has room for it. Empty: nothing.
    std::span<SocketBuffer> gather(std::span<SocketBuffer> out) const;
    /// How many buffers it would take to gather everything.
    std::size_t frames() const { return urgent_.items().size() + ordered_.items().size(); }
    /// So many bytes of what gather() gives are on their way.
    void skip(std::uint64_t count) noexcept;

private:
    /// Then it comes before what is urgent.
    bool hasBegunOrdered() const { return !ordered_.isEmpty() && ordered_.items().front().sent > 0; }
    void add(FrameList& list, const EncodedFrame& frame, FrameList::Kind kind, std::size_t sent);
    bool dropOldestOf(FrameList& list) noexcept;
    void dropHeld() noexcept;
    /// The list whose front is sent next; not of an empty queue.
    FrameList& next();

    FrameList urgent_;
    FrameList ordered_;
    /// Messages behind the one in pieces.
    FrameList held_;
    std::uint64_t bytes_ = 0;
    std::uint64_t heldBytes_ = 0;
    std::size_t pieces_ = 0;
    std::uint64_t pieceBytes_ = 0;
    bool isMessageOpen_ = false;
};

} // namespace ql::impl
