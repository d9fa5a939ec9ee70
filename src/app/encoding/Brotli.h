// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/BodyEncoder.h"

#include <memory>

namespace vireo::impl {

/// Whether the library was built with it.
bool hasBrotli();

/// The content coding "br".
/// @param level 0 to 11.
/// @return null where the library was built without.
/// @throws std::bad_alloc
std::unique_ptr<BodyEncoder> makeBrotliEncoder(int level);

} // namespace vireo::impl
