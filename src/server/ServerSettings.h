// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace ql::impl {

/// What ql::http::ServerOptions holds.
struct ServerSettings {
    std::size_t connectionMemoryBytes = 262144;
    bool turbo = false;
};

} // namespace ql::impl
