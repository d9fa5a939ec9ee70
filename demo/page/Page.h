#pragma once

#include <string_view>

namespace demo {

/// The HTML page at "/": page/index.html, built into the program.
std::string_view page();

} // namespace demo
