// SPDX-License-Identifier: MIT
#pragma once

#include "app/testing/ClientConnection.h"
#include "app/testing/EventSplitter.h"
#include "app/testing/ResponseText.h"

#include <memory>

namespace vireo::impl {

/// The events that come as one response. For one thread.
class EventReader {
public:
    /// @param connection has been sent the request.
    explicit EventReader(std::shared_ptr<ClientConnection> connection);
    ~EventReader() { connection_->close(); }
    EventReader(const EventReader&) = delete;
    EventReader& operator=(const EventReader&) = delete;

    const ResponseText& answer() { return reader_.text(); }
    /// Waits for the next event. @return false at the stream's end.
    bool next();
    const EventSplitter::Event& event() const { return event_; }

private:
    void receive();

    const std::shared_ptr<ClientConnection> connection_;
    ResponseReader reader_{false};
    EventSplitter events_;
    EventSplitter::Event event_;
};

} // namespace vireo::impl
