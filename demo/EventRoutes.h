#pragma once

#include "DemoRequest.h"

/// The handlers of the event stream.
namespace demo {

/// A stream of events, text/event-stream, until the client leaves.
DemoRequest::Pause listenToEvents(DemoRequest& request);
/// Sends the body to all streams, as the lines of an event.
DemoRequest::Pause publishEvent(DemoRequest& request);

} // namespace demo
