// SPDX-License-Identifier: MIT
#pragma once

namespace ql::impl {

/// Why the library ends an exchange, or a connection without one, before its time.
enum class CutReason {
    None, ///< it does not
    ClientLeft,
    HeadTimeout,
    BodyTimeout,
    AnswerTimeout,
    WriteTimeout,
    BodyTooLarge,
};

/// The word for it behind "lost connection : "; null for None.
const char* cutWord(CutReason reason);

} // namespace ql::impl
