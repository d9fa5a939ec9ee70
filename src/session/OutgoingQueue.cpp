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
}

void OutgoingQueue::reserveForFinish() {
    ordered_.reserve(1 + held_.items().size());
}

void OutgoingQueue::finishMessage() noexcept {
    for (FrameList::Item& item : held_.items()) {
        ordered_.append(std::move(item));
    }
    held_.clear();
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

bool OutgoingQueue::dropOldestMessage() noexcept {
    if (dropOldestOf(ordered_)) {
        return true;
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
    for (FrameList* const list : {&urgent_, &ordered_}) {
        list->keepBegun();
        for (const FrameList::Item& item : list->items()) {
            bytes_ += item.rest().size();
        }
    }
}

void OutgoingQueue::clear() noexcept {
    dropHeld();
    urgent_.clear();
    ordered_.clear();
    bytes_ = 0;
    isMessageOpen_ = false;
}

std::span<SocketBuffer> OutgoingQueue::gather(std::span<SocketBuffer> out) const {
    std::size_t count = 0;
    const auto take = [&](std::span<const FrameList::Item> items) {
        for (const FrameList::Item& item : items.first(std::min(items.size(), out.size() - count))) {
            const std::span<const unsigned char> rest = item.rest();
            // The port's buffers serve both directions; what is sent is not written to.
            out[count++] = {const_cast<unsigned char*>(rest.data()), rest.size()};
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
        if (item.rest().empty()) {
            list.removeFirst();
        }
    }
}

} // namespace ql::impl
