// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace vireo {

namespace impl {
struct EventRules;
class ChannelState;
} // namespace impl

/// How an EventChannel keeps and sends its events. What is out of bounds throws std::invalid_argument.
class VIREO_APP_API EventOptions {
public:
    EventOptions();
    EventOptions(const EventOptions& other);            ///< copies
    EventOptions& operator=(const EventOptions& other); ///< copies
    ~EventOptions();

    /// How much is kept for listeners that come back: a browser names the last event that it has seen, and gets those
    /// behind it. The last 256 events by default, as far as they have 1 MiB together.
    EventOptions& replay(std::size_t events, std::uint64_t bytes = 1048576);
    /// Has listeners that come for the first time get what replay() has kept, too, and not only what is published from
    /// then on: for the progress of a job, or with replay(1) for the value of the moment.
    EventOptions& replayToAll();
    /// How many bytes of events a listener may be behind; 1 MiB by default, at least 1. One that takes its events more
    /// slowly than they come loses its connection then, asks again, and is served from what replay() has kept.
    EventOptions& slowLimit(std::uint64_t bytes);
    /// After how long each listener is sent a comment of three bytes, so that proxies keep its connection and one that
    /// is gone is noticed; 25 s by default, from 10 ms to 100 years; 0 for never.
    EventOptions& heartbeat(std::chrono::milliseconds interval);
    /// How long browsers are to wait before they ask again; said to each listener at its begin. Nothing by default, so
    /// that each browser has its own time.
    EventOptions& retry(std::chrono::milliseconds wait);
    /// How many listeners there may be at a time; those beyond get a 503. 0, the default: any number.
    EventOptions& maxListeners(std::size_t count);

private:
    friend class EventChannel;

    std::unique_ptr<impl::EventRules> rules_;
};

inline namespace layout1 {

/// An event of an EventChannel: `channel.publish({.data = "21.5", .event = "temperature"})`.
struct Event {
    std::string_view data{};  ///< the text, UTF-8; line ends in it arrive as "\n"
    std::string_view event{}; ///< its kind; empty: "message", which is what EventSource.onmessage gets
    std::string_view id{};    ///< what Last-Event-ID will name; empty: one that no other event has, of any run
    std::optional<std::chrono::milliseconds> retry{}; ///< how long browsers are to wait before they ask again
};

} // namespace layout1

/// Events for many listeners (server-sent events): a handler answers with Response::events(), and anybody publishes.
///
///     vireo::EventChannel news;
///     app.get("/news", [news](vireo::Request&, vireo::Response& response) { response.events(news); });
///     ...
///     news.publish("it rains");
///
/// A value; copies are the same channel. Every member may be called from any thread, with any lock held, and none
/// waits. A channel serves any number of apps and outlives their runs: the listeners of an app that stops are ended,
/// and what it keeps is there for those that come later.
///
/// A listener gets all events from Response::events() on, in order; or, when it names the last one that it has seen
/// (Last-Event-ID), those behind that; or all that are kept, when that one is not kept any more. It is cut off where it
/// takes them too slowly: EventOptions::slowLimit().
///
/// A channel may be of one client: its handler gives a copy to whoever works for it, and with the last copy the stream
/// ends, behind all that was published. When that happens before the stream has begun, its client gets all that is
/// kept and then the end.
class EventChannel {
public:
    VIREO_APP_API explicit EventChannel(const EventOptions& options = {}); ///< a channel of its own
    /// Copies are the same channel.
    ///@{
    VIREO_APP_API EventChannel(const EventChannel& other);
    VIREO_APP_API EventChannel& operator=(const EventChannel& other);
    ///@}
    /// With the last copy goes what is kept for those that come back; listeners are ended, behind what was published.
    VIREO_APP_API ~EventChannel();

    /// Sends an event to all listeners of the moment, and keeps it for those that come back. It need not have reached
    /// anybody when this returns. Does nothing after close().
    ///
    /// Throws std::invalid_argument for an event or id with a line end, an id with NUL, a retry that is negative, or an
    /// event that is larger than both EventOptions::replay() and slowLimit() allow.
    ///@{
    void publish(std::string_view data) const { send(data, {}, {}, nullptr); }
    void publish(const Event& event) const {
        send(event.data, event.event, event.id, event.retry ? &*event.retry : nullptr);
    }
    ///@}

    /// How many there are, of all apps. A snapshot.
    VIREO_APP_API std::size_t listeners() const;

    /// Ends all listeners, behind what was published. Those that come later get what they would still have got, and the
    /// end; when that is nothing they are answered with 204, at which browsers stop asking.
    VIREO_APP_API void close() const;

private:
    friend class impl::ChannelState;

    VIREO_APP_API void send(std::string_view data, std::string_view event, std::string_view id,
                            const std::chrono::milliseconds* retry) const;

    std::shared_ptr<impl::ChannelState> state_;
};

} // namespace vireo
