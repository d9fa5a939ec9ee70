#pragma once

#include <string_view>

#include <microhttpd.h>

namespace vireotest {

/// Whether the engine that runs is a 0.9, which lets through much that 1.0 refuses.
inline bool isEngine09() {
    return std::string_view(MHD_get_version()).substr(0, 4) == "0.9.";
}

} // namespace vireotest
