// SPDX-License-Identifier: MIT
#pragma once

#include "server/CutReason.h"
#include "server/DeadlineMarks.h"

#include <cstdint>

namespace ql::impl {

/// How long a connection may make no progress, in milliseconds; 0 for ever.
struct DeadlineLimits {
    std::int64_t headMs = 0;
    /// How long a kept connection may be without a request.
    std::int64_t idleMs = 0;
    /// What of a body must come in bodyMs.
    std::uint64_t bodyBytes = 0;
    std::int64_t bodyMs = 0;
    std::int64_t answerMs = 0;
    std::int64_t writeMs = 0;
};

/// The last progress of a connection that was seen, and when.
struct LastProgress {
    Progress progress;
    std::int64_t sinceMs = 0;
    /// A deadline has passed, and the connection is to be closed.
    bool isCut = false;
};

inline bool isSending(Stage stage) {
    return stage == Stage::Sending || stage == Stage::Streaming;
}

/// Looks at a connection again.
/// @param last what was seen of it before; brought up to date.
/// @param now how far it has come.
/// @return the deadline that has passed, None for none.
CutReason checkDeadline(LastProgress& last, const Progress& now, std::int64_t nowMs, const DeadlineLimits& limits);

} // namespace ql::impl
