// SPDX-License-Identifier: MIT
#include "app/testing/EventReader.h"

#include <optional>
#include <utility>

namespace vireo::impl {

EventReader::EventReader(std::shared_ptr<ClientConnection> connection) : connection_(std::move(connection)) {
    while (!reader_.hasHead()) {
        receive();
    }
}

bool EventReader::next() {
    const bool isStream = answer().status == 200 && answer().header("Content-Type").starts_with("text/event-stream");
    while (isStream) {
        events_.feed(std::exchange(reader_.text().body, {}));
        if (std::optional<EventSplitter::Event> event = events_.take()) {
            event_ = std::move(*event);
            return true;
        }
        if (reader_.isWhole()) {
            break;
        }
        receive();
    }
    return false;
}

void EventReader::receive() {
    const bool isOpen = connection_->receiveMore("an event");
    reader_.read(connection_->received());
    if (!isOpen) {
        reader_.finish();
    }
}

} // namespace vireo::impl
