#pragma once

#include "EventBoard.h"
#include "skeleton/Request.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace demo {

class DemoServer;
struct Route;

/// What a handler throws to have the request answered with 400 and this text.
class BadRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A request to the demo, and what a handler needs to answer it.
class DemoRequest final : public skeleton::Request {
public:
    explicit DemoRequest(DemoServer& server);

    DemoServer& server() { return server_; }
    /// Turns that were taken before this one.
    unsigned int pastTurns() const { return pastTurns_; }
    std::int64_t elapsedMs() const { return applicationTimer_.getElapsedMs(); }

    /// The argument `name` of the query; `otherwise` when it is missing.
    /// @throws BadRequest when it is not one number from 0 to `max`.
    std::uint64_t number(const std::string& name, std::uint64_t otherwise, std::uint64_t max) const;

    /// Reads a body of up to `max` bytes. Refuses a longer one with 413, if its length is announced before it is sent.
    /// @return nothing when it was refused.
    std::optional<std::string> readWholeBody(std::size_t max);

    /// The request gets a turn at each event from now on.
    void enterEventBoard();
    void leaveEventBoard() { eventStream_.reset(); }
    /// Null unless it has entered.
    EventStream* eventStream() { return eventStream_ ? &*eventStream_ : nullptr; }

    /// Which handler serves the request; to be set before its first turn.
    void setRoute(const Route& route) { route_ = &route; }

private:
    Pause serve() override;
    void ended(const std::string& loss) override;

    DemoServer& server_;
    const Route* route_ = nullptr;
    unsigned int pastTurns_ = 0;
    std::optional<EventStream> eventStream_;
};

} // namespace demo
