// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/Answer.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace vireo::impl {

/// Sends the head of what was set, with its hooks, and has the body written: Response::stream().
/// @param length of the body, if it is known.
void streamAnswer(ResponseState& state, std::optional<std::uint64_t> length, const std::function<void(Output&)>& write);

} // namespace vireo::impl
