// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HttpServer.h"

#include <cstdint>

namespace ql::impl {

class Acceptor;
class Admissions;
class SessionServing;
struct EventServing;

/// How a server goes away without losing a request that was accepted. Every answer asks its client to close from the
/// beginning on; the rest are steps, each of which may end the drain when its time is over:
///
///     Accepting --grace--> Closing --listener closed--> Emptying --nobody left--> Over
///
/// Made under the server's mutex, then for the server thread, which looks at it every now and then.
class Drain {
public:
    using Result = http::HttpServer::DrainResult;

    /// @param sessions null for none.
    Drain(EventServing& serving, Admissions& admissions, Acceptor& acceptor, SessionServing* sessions,
          std::int64_t nowMs);

    /// Goes on as far as it can. @param deadlineMs when it is over in any case. @return whether it is over.
    bool isOver(std::int64_t nowMs, std::int64_t deadlineMs);

    bool hasEnded() const { return step_ == Step::Over; }

    /// What has become of the requests and WebSockets up to now.
    Result result() const;

private:
    enum class Step { Accepting, Closing, Emptying, Over };

    Step next(std::int64_t nowMs);
    void close();
    bool isQuiet(std::int64_t nowMs);
    bool isBusy(std::int64_t nowMs);
    std::uint64_t ended() const;

    EventServing& serving_;
    Admissions& admissions_;
    Acceptor& acceptor_;
    SessionServing* const sessions_;
    const std::int64_t graceEndMs_;
    const std::uint64_t endedBefore_;
    Step step_ = Step::Accepting;
    std::uint64_t begunBefore_ = 0;
    std::int64_t quietSinceMs_ = 0;
};

} // namespace ql::impl
