// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

/// Files a head as it came: for those who parse it themselves.
/// @param fields names and values, in the order in which they came.
/// @param authority of an absolute target, which holds instead of Host; none for others.
/// @throws std::bad_alloc; what was filed before stays.
void fileLines(HttpBaseRequest& request, std::string_view method, std::string&& target,
               const std::vector<std::pair<std::string_view, std::string_view>>& fields,
               const std::optional<std::string>& authority);

} // namespace ql::impl
