// SPDX-License-Identifier: MIT
#pragma once

#include "session/SessionRoster.h"
#include "session/SessionSettings.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace ql::impl {

struct SessionStart;
class TaskPool;

/// What one run of a server serves its sessions with. Outlives the engine's daemons, which hand connections over until
/// they have stopped.
class SessionServing {
public:
    /// Starts the threads of its pool, unless the options name one.
    /// @throws std::bad_alloc, std::system_error
    explicit SessionServing(const http::WebSocketOptions& options);
    ~SessionServing();
    SessionServing(const SessionServing&) = delete;
    SessionServing& operator=(const SessionServing&) = delete;

    // Daemon threads.

    const std::shared_ptr<const SessionSettings>& settings() const { return settings_; }

    /// Gives a connection to the pool, or closes it where that is not to be any more.
    void begin(SessionStart&& start) noexcept;

    // The server thread.

    /// Tells each session that is there or still comes that the server goes away.
    void sayGoodbye() noexcept;
    /// Tells them, and cuts off who has not gone when the time is over.
    /// @param patienceMs counts from sayGoodbye(). @return whether all have gone. Those that come later are closed.
    bool areGone(std::int64_t nowMs, std::int64_t patienceMs) noexcept;

private:
    const std::shared_ptr<const SessionSettings> settings_;
    SessionRoster roster_;
    /// Null where the server has a pool of its own, and the other way round.
    ///@{
    const std::shared_ptr<http::WebSocketPool> givenPool_;
    const std::unique_ptr<TaskPool> ownPool_;
    ///@}
    TaskPool& pool_;
    /// The server thread's.
    std::optional<std::int64_t> goodbyeMs_;
};

} // namespace ql::impl
