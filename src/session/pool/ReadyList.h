// SPDX-License-Identifier: MIT
#pragma once

namespace ql::impl {

/// What can stand in a ReadyList. The list's alone.
struct ReadyLink {
    ReadyLink* previousReady = nullptr;
    ReadyLink* nextReady = nullptr;
};

/// Who waits for a turn, first in first out. It links what is there and never allocates.
class ReadyList {
public:
    ReadyList() { end_.previousReady = end_.nextReady = &end_; }
    ReadyList(const ReadyList&) = delete;
    ReadyList& operator=(const ReadyList&) = delete;

    bool isEmpty() const { return end_.nextReady == &end_; }

    /// @param link stands in no list.
    void append(ReadyLink& link) noexcept {
        link.previousReady = end_.previousReady;
        link.nextReady = &end_;
        link.previousReady->nextReady = &link;
        end_.previousReady = &link;
    }

    /// @return the first, no longer in the list; null when it is empty.
    ReadyLink* take() noexcept {
        if (isEmpty()) {
            return nullptr;
        }
        ReadyLink* const first = end_.nextReady;
        remove(*first);
        return first;
    }

    /// Nothing happens to one that stands in no list.
    static void remove(ReadyLink& link) noexcept {
        if (link.nextReady != nullptr) {
            link.previousReady->nextReady = link.nextReady;
            link.nextReady->previousReady = link.previousReady;
            link.previousReady = link.nextReady = nullptr;
        }
    }

private:
    ReadyLink end_;
};

} // namespace ql::impl
