// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace ql {

/// One line of a request's head, as it came. Refers to texts of its owner's.
struct HeaderLine {
    std::string_view name;  ///< in the client's letters; compare without regard to case
    std::string_view value; ///< without the blanks around it
};

} // namespace ql
