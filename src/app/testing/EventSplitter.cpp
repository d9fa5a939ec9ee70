// SPDX-License-Identifier: MIT
#include "app/testing/EventSplitter.h"

#include <utility>

namespace vireo::impl {

void EventSplitter::feed(std::string_view bytes) {
    for (const char c : bytes) {
        const bool isRestOfEnd = c == '\n' && isAfterReturn_;
        isAfterReturn_ = c == '\r';
        if (isRestOfEnd) {
            continue;
        }
        if (c == '\n' || c == '\r') {
            takeLine(line_);
            line_.clear();
        } else {
            line_ += c;
        }
    }
}

std::optional<EventSplitter::Event> EventSplitter::take() {
    if (events_.empty()) {
        return std::nullopt;
    }
    Event event = std::move(events_.front());
    events_.pop_front();
    return event;
}

void EventSplitter::takeLine(std::string_view line) {
    constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
    if (std::exchange(isFirstLine_, false) && line.starts_with(ByteOrderMark)) {
        line.remove_prefix(ByteOrderMark.size());
    }
    if (line.empty()) {
        endEvent();
        return;
    }
    const std::string_view name = line.substr(0, line.find(':'));
    std::string_view value = line.substr(name.size());
    value.remove_prefix(value.empty() ? 0 : 1);
    value.remove_prefix(value.starts_with(' ') ? 1 : 0);
    setField(name, value);
}

void EventSplitter::setField(std::string_view name, std::string_view value) {
    if (name == "data") {
        data_ += value;
        data_ += '\n';
    } else if (name == "event") {
        type_ = value;
    } else if (name == "id" && value.find('\0') == std::string_view::npos) {
        lastId_ = value;
    }
}

void EventSplitter::endEvent() {
    if (!data_.empty()) {
        data_.pop_back();
        events_.push_back({std::move(data_), type_.empty() ? "message" : std::move(type_), lastId_});
    }
    data_.clear();
    type_.clear();
}

} // namespace vireo::impl
