// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HeaderLine.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

/// Files a head as it came: for those who parse it themselves.
/// @param lines in the order in which they came, with texts of somebody else's; blanks may stand behind a value.
/// @param authority of an absolute target, which holds instead of Host; none for others.
/// @throws std::bad_alloc; what was filed before stays.
void fileLines(HttpBaseRequest& request, std::string_view method, std::string&& target, std::vector<HeaderLine>&& lines,
               const std::optional<std::string>& authority);

} // namespace ql::impl
