#include "app/events/EventRing.h"

#include "frame/InvalidArgument.h"

#include <algorithm>
#include <utility>

namespace vireo::impl {

EventRing::EventRing(const Limits& limits)
    : limits_(limits), maxBytes_(std::max(limits.replayBytes, limits.slowBytes)) {}

void EventRing::add(std::string id, Bytes bytes, bool hasListeners) {
    const std::uint64_t size = bytes->size();
    entries_.push_back({std::move(id), std::move(bytes)});
    bytes_ += size;
    replayBytes_ += size;
    while (end() - replayFirst_ > limits_.replayEvents || replayBytes_ > limits_.replayBytes) {
        replayBytes_ -= at(replayFirst_).bytes->size();
        ++replayFirst_;
    }
    if (!hasListeners) {
        trimToReplay();
    }
    while (bytes_ > maxBytes_) {
        dropFirst();
    }
}

void EventRing::trimToReplay() {
    while (first_ < replayFirst_) {
        dropFirst();
    }
}

std::uint64_t EventRing::cursorBehind(std::string_view lastId) const {
    for (std::uint64_t number = end(); number > first_; --number) {
        if (at(number - 1).id == lastId) {
            return number;
        }
    }
    return replayFirst_;
}

EventRing::Batch EventRing::read(std::uint64_t cursor, std::uint64_t maxBytes) const {
    Batch batch;
    std::uint64_t bytes = 0;
    for (batch.end = cursor; batch.end < end(); ++batch.end) {
        const Bytes& event = at(batch.end).bytes;
        bytes += event->size();
        if (bytes > maxBytes && batch.end != cursor) {
            break;
        }
        batch.events.push_back(event);
    }
    return batch;
}

void EventRing::dropFirst() {
    bytes_ -= entries_.front().bytes->size();
    entries_.pop_front();
    ++first_;
}

namespace {

void addLine(std::string& out, std::string_view field, std::string_view value) {
    out.append(field).append(": ").append(value).append("\n");
}

void checkField(std::string_view field, std::string_view value, std::string_view forbidden) {
    if (value.find_first_of(forbidden) != std::string_view::npos) {
        ql::impl::throwInvalidArgument("vireo::EventChannel::publish: the " + std::string(field) +
                                       " of an event holds a line end or NUL");
    }
}

/// Lines end as the protocol says: with CR, LF or both.
void addData(std::string& out, std::string_view data) {
    for (;;) {
        const std::size_t end = data.find_first_of("\r\n");
        addLine(out, "data", data.substr(0, end));
        if (end == std::string_view::npos) {
            return;
        }
        const bool isPair = data.substr(end, 2) == "\r\n";
        data.remove_prefix(end + (isPair ? 2 : 1));
    }
}

} // namespace

std::string framed(const EventText& text) {
    checkField("kind", text.event, std::string_view("\r\n", 2));
    checkField("id", text.id, std::string_view("\r\n\0", 3));
    if (text.retryMs && *text.retryMs < 0) {
        ql::impl::throwInvalidArgument("vireo::EventChannel::publish: the retry of an event is negative");
    }
    std::string out;
    out.reserve(text.data.size() + text.event.size() + text.id.size() + 64);
    addLine(out, "id", text.id);
    if (!text.event.empty()) {
        addLine(out, "event", text.event);
    }
    if (text.retryMs) {
        addLine(out, "retry", std::to_string(*text.retryMs));
    }
    addData(out, text.data);
    out += '\n';
    return out;
}

} // namespace vireo::impl
