// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace ql::impl {

/// How many connections a server takes when it takes as many as it can: what the system's limit of descriptors leaves
/// when an eighth of it is kept for everything else.
std::size_t connectionLimit();

} // namespace ql::impl
