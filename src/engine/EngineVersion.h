// SPDX-License-Identifier: MIT
#pragma once

namespace ql::impl {

/// The version of the engine that runs, such as "0.9.75".
const char* engineVersion();

} // namespace ql::impl
