// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace ql::impl {

/// How many connections a daemon takes when it takes as many as it can: what the system's limit of descriptors leaves
/// when an eighth of it is kept for everything else; at least one for each thread of the pool.
unsigned int connectionLimit(std::uint32_t threadPoolSize);

} // namespace ql::impl
