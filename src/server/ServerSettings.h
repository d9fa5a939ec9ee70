// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/ServerOptions.h"

#include <cstddef>
#include <cstdint>

namespace ql::impl {

/// What ql::http::ServerOptions holds.
struct ServerSettings {
    std::size_t connectionMemoryBytes = 262144;
    bool turbo = false;
    http::ServerOptions::Waiting waiting = http::ServerOptions::Waiting::Polling;
    std::uint64_t uploadWindowBytes = 1048576;
};

} // namespace ql::impl
