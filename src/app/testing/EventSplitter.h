// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace vireo::impl {

/// Takes a stream of server-sent events apart, as browsers do, in any pieces.
class EventSplitter {
public:
    struct Event {
        std::string data;
        std::string type;
        std::string id;
    };

    void feed(std::string_view bytes);
    /// The next event that is whole.
    std::optional<Event> take();

private:
    void takeLine(std::string_view line);
    void setField(std::string_view name, std::string_view value);
    void endEvent();

    /// A line that has begun.
    std::string line_;
    /// A byte order mark may stand before it, which says nothing.
    bool isFirstLine_ = true;
    /// Whether a line feed would belong to the line end before.
    bool isAfterReturn_ = false;
    /// The event that has begun; its data with a line feed behind each line.
    ///@{
    std::string data_;
    std::string type_;
    ///@}
    std::string lastId_;
    std::deque<Event> events_;
};

} // namespace vireo::impl
