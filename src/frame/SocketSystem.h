// SPDX-License-Identifier: MIT
#pragma once

namespace ql::impl {

/// Brings the system's socket layer up for this library, where it wants that.
/// @return false when the system refuses; stopSocketSystem() is then harmless.
bool startSocketSystem();

/// Undoes one successful startSocketSystem().
void stopSocketSystem();

} // namespace ql::impl
