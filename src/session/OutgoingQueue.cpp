#include "session/OutgoingQueue.h"

#include <algorithm>
#include <utility>

namespace ql::impl {

void FrameList::reserve(std::size_t count) {
    if (items_.capacity() - items_.size() < count) {
        items_.reserve(std::max(items_.size() + count, 2 * items_.size()));
    }
}

void FrameList::append(Item item) {
    if (first_ > items_.size() / 2) {
        items_.erase(items_.begin(), items_.begin() + static_cast<std::ptrdiff_t>(first_));
        first_ = 0;
    }
    items_.push_back(std::move(item));
}

void FrameList::remove(std::size_t index) {
    const auto first = items_.begin() + static_cast<std::ptrdiff_t>(first_);
    const auto gap = first + static_cast<std::ptrdiff_t>(index);
    std::move_backward(first, gap, gap + 1);
    *first = Item{};
    ++first_;
    if (isEmpty()) {
        clear();
    }
}

void FrameList::swap(FrameList& other) noexcept {
    items_.swap(other.items_);
    std::swap(first_, other.first_);
}

void FrameList::keepBegun() {
    const std::size_t begun = !isEmpty() && items().front().sent > 0 ? 1 : 0;
    items_.resize(first_ + begun);
    if (isEmpty()) {
        clear();
    }
}

void FrameList::clear() {
    std::vector<Item>().swap(items_);
    first_ = 0;
}

void OutgoingQueue::add(FrameList& list, const EncodedFrame& frame, FrameList::Kind kind, std::size_t sent) {
    list.append({frame, kind, sent});
    bytes_ += frame.bytes().size() - sent;
}

void OutgoingQueue::addMessage(const EncodedFrame& frame, std::size_t sent) {
    if (isMessageOpen_) {
        add(held_, frame, FrameList::Kind::Message, 0);
        heldBytes_ += frame.bytes().size();
    } else {
        add(ordered_, frame, FrameList::Kind::Message, sent);
    }
}

void OutgoingQueue::addPiece(const EncodedFrame& frame, std::size_t sent) {
    add(ordered_, frame, FrameList::Kind::Piece, sent);
    ++pieces_;
    pieceBytes_ += frame.bytes().size() - sent;
}

void OutgoingQueue::finishMessage() {
    if (ordered_.isEmpty()) {
        ordered_.swap(held_);
    } else {
        ordered_.reserve(held_.items().size());
        for (FrameList::Item& item : held_.items()) {
            ordered_.append(std::move(item));
        }
        held_.clear();
    }
    heldBytes_ = 0;
    isMessageOpen_ = false;
}

void OutgoingQueue::addPing(const EncodedFrame& frame) {
    add(urgent_, frame, FrameList::Kind::Control, 0);
}

void OutgoingQueue::setPong(const EncodedFrame& frame) {
    const auto items = urgent_.items();
    const auto waiting = std::ranges::find_if(
        items, [](const FrameList::Item& item) { return item.kind == FrameList::Kind::Pong && item.sent == 0; });
    if (waiting == items.end()) {
        add(urgent_, frame, FrameList::Kind::Pong, 0);
        return;
    }
    bytes_ = bytes_ - waiting->frame.bytes().size() + frame.bytes().size();
    waiting->frame = frame;
}

void OutgoingQueue::addClose(const EncodedFrame& frame) {
    add(ordered_, frame, FrameList::Kind::Control, 0);
    dropHeld();
    isMessageOpen_ = false;
}

std::uint64_t OutgoingQueue::undroppableLoad() const {
    std::uint64_t load = pieceBytes_ + FrameCost * (pieces_ + urgent_.items().size());
    for (const FrameList::Item& item : urgent_.items()) {
        load += item.rest().size();
    }
    if (hasBegunOrdered() && ordered_.items().front().kind == FrameList::Kind::Message) {
        load += ordered_.items().front().rest().size() + FrameCost;
    }
    return load;
}

bool OutgoingQueue::dropOldestMessage(bool isHeldToo) noexcept {
    if (dropOldestOf(ordered_)) {
        return true;
    }
    if (!isHeldToo) {
        return false;
    }
    const std::uint64_t before = bytes_;
    const bool dropped = dropOldestOf(held_);
    heldBytes_ -= before - bytes_;
    return dropped;
}

bool OutgoingQueue::dropOldestOf(FrameList& list) noexcept {
    const auto items = list.items();
    const auto oldest = std::ranges::find_if(
        items, [](const FrameList::Item& item) { return item.kind == FrameList::Kind::Message && item.sent == 0; });
    if (oldest == items.end()) {
        return false;
    }
    bytes_ -= oldest->frame.bytes().size();
    list.remove(static_cast<std::size_t>(oldest - items.begin()));
    return true;
}

void OutgoingQueue::dropHeld() noexcept {
    held_.clear();
    bytes_ -= heldBytes_;
    heldBytes_ = 0;
}

void OutgoingQueue::dropUnsent() noexcept {
    dropHeld();
    bytes_ = 0;
    pieces_ = 0;
    pieceBytes_ = 0;
    for (FrameList* const list : {&urgent_, &ordered_}) {
        list->keepBegun();
        for (const FrameList::Item& item : list->items()) {
            bytes_ += item.rest().size();
            if (item.kind == FrameList::Kind::Piece) {
                ++pieces_;
                pieceBytes_ += item.rest().size();
            }
        }
    }
}

void OutgoingQueue::clear() noexcept {
    dropHeld();
    urgent_.clear();
    ordered_.clear();
    bytes_ = 0;
    pieces_ = 0;
    pieceBytes_ = 0;
    isMessageOpen_ = false;
}

std::span<SocketBuffer> OutgoingQueue::gather(std::span<SocketBuffer> out) const {
    std::size_t count = 0;
    const auto take = [&](std::span<const FrameList::Item> items) {
        for (const FrameList::Item& item : items.first(std::min(items.size(), out.size() - count))) {
            out[count++] = bufferToSend(item.rest());
        }
    };
    const std::span<const FrameList::Item> ordered = ordered_.items();
    const std::size_t begun = hasBegunOrdered() ? 1 : 0;
    take(ordered.first(begun));
    take(urgent_.items());
    take(ordered.subspan(begun));
    return out.first(count);
}

FrameList& OutgoingQueue::next() {
    return hasBegunOrdered() || urgent_.isEmpty() ? ordered_ : urgent_;
}

void OutgoingQueue::skip(std::uint64_t count) noexcept {
    bytes_ -= count;
    while (count > 0) {
        FrameList& list = next();
        FrameList::Item& item = list.items().front();
        const std::uint64_t part = std::min<std::uint64_t>(count, item.rest().size());
        item.sent += static_cast<std::size_t>(part);
        count -= part;
        const bool isDone = item.rest().empty();
        if (item.kind == FrameList::Kind::Piece) {
            pieceBytes_ -= part;
            pieces_ -= isDone ? 1 : 0;
        }
        if (isDone) {
            list.removeFirst();
        }
    }
}

} // namespace ql::impl
