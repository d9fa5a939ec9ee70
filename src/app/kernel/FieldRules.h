// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace vireo::impl {

/// @throws std::invalid_argument for what is no header that an application may set: its name is no token, its value
/// has control characters, or it is Content-Length or Transfer-Encoding.
void checkField(std::string_view name, std::string_view value);

/// Whether an answer has such a header once at most, so that a second line of it would mean nothing.
bool isSingular(std::string_view name);

} // namespace vireo::impl
