// SPDX-License-Identifier: MIT
#pragma once

namespace ql::impl {

/// What the engine is to do with a connection after it has called for a request.
enum class Verdict {
    Continue, ///< go on: with what was queued, or by calling again
    Close,    ///< close it, without an answer
};

} // namespace ql::impl
