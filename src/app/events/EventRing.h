// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

/// The last events of a channel as they are sent, numbered from 1. A listener has a cursor: the number of the event
/// that it is to get next. One thread at a time.
class EventRing {
public:
    struct Limits {
        std::size_t replayEvents;
        std::uint64_t replayBytes;
        std::uint64_t slowBytes;
    };
    using Bytes = std::shared_ptr<const std::string>;
    /// Events that follow each other.
    struct Batch {
        std::vector<Bytes> events;
        std::uint64_t end = 0; ///< the cursor behind them
    };

    explicit EventRing(const Limits& limits);

    /// The largest event that may be added.
    std::uint64_t maxEventBytes() const { return maxBytes_; }
    /// The number of the event that is added next; the cursor of who wants nothing that was.
    std::uint64_t end() const { return first_ + entries_.size(); }
    /// The first that is here still.
    std::uint64_t begin() const { return first_; }

    /// @param bytes at most maxEventBytes().
    /// @param hasListeners whether somebody may be behind: more is kept then.
    void add(std::string id, Bytes bytes, bool hasListeners);
    /// Nobody is behind.
    void trimToReplay();

    /// @param lastId the last event that a listener has seen.
    /// @return the number behind it; where it isn't here, of the first that is kept for replay.
    std::uint64_t cursorBehind(std::string_view lastId) const;

    /// @param cursor from begin() to end().
    /// @return events from there on of `maxBytes` in all, or one that is larger.
    Batch read(std::uint64_t cursor, std::uint64_t maxBytes) const;

private:
    struct Entry {
        std::string id;
        Bytes bytes;
    };

    const Entry& at(std::uint64_t number) const { return entries_[number - first_]; }
    void dropFirst();

    const Limits limits_;
    const std::uint64_t maxBytes_;
    std::deque<Entry> entries_;
    std::uint64_t first_ = 1;
    std::uint64_t bytes_ = 0;
    /// The first that is kept for replay, and the bytes from there on.
    std::uint64_t replayFirst_ = 1;
    std::uint64_t replayBytes_ = 0;
};

/// What publish() was told.
struct EventText {
    std::string_view data;
    std::string_view event;
    std::string_view id;
    std::optional<std::int64_t> retryMs;
};

/// @return the event as the protocol has it.
/// @throws std::invalid_argument for what cannot be said in it.
std::string framed(const EventText& text);

} // namespace vireo::impl
