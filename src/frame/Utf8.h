// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

namespace ql::impl {

/// Where the first sequence that is not well-formed UTF-8 begins, or std::string_view::npos when there is none.
std::size_t findInvalidUtf8(std::string_view text);

} // namespace ql::impl
