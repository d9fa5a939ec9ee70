// SPDX-License-Identifier: MIT
#pragma once

#include "session/SessionOutput.h"
#include "session/SessionSettings.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace ql::impl {

/// Decides when a peer is asked for a sign of life, and when it is given up. Of the thread that serves the session.
///
/// A sign of life is any byte, and room in a socket that was full. A peer that takes nothing for as long as one that is
/// silent may be is lost, too, whatever it sends, and whether there are pings or not: what waits for it costs memory,
/// and perhaps a thread its time.
class KeepAlive {
public:
    enum class Step {
        None,
        Ping,  ///< send one; pinged() tells that it was
        Close, ///< nobody had anything to say for too long
        Lose,  ///< there is no sign of life
    };

    KeepAlive(std::shared_ptr<const SessionSettings> settings, std::int64_t nowMs)
        : settings_(std::move(settings)), receivedMs_(nowMs), messageMs_(nowMs) {}

    void received(std::int64_t nowMs);
    void messageReceived(std::int64_t nowMs) { messageMs_ = nowMs; }
    void pinged(std::int64_t nowMs) { pingedMs_ = nowMs; }

    Step step(const SessionOutput::Status& output, std::int64_t nowMs) const;
    /// When step() may say something else, unless something happens.
    std::int64_t dueMs(const SessionOutput::Status& output) const;

private:
    struct Times {
        std::int64_t pingMs;
        std::int64_t closeMs;
        std::int64_t loseMs;
    };
    Times times(const SessionOutput::Status& output) const;

    std::shared_ptr<const SessionSettings> settings_;
    std::int64_t receivedMs_;
    std::int64_t messageMs_;
    /// Negative: no ping is under way.
    std::int64_t pingedMs_ = -1;
};

} // namespace ql::impl
