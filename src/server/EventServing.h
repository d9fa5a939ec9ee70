// SPDX-License-Identifier: MIT
#pragma once

#include "server/ConnectionTable.h"
#include "server/ExchangeRegistry.h"
#include "vireo/ServerOptions.h"

#include <cstdint>

namespace ql::impl {

/// What one run of a server that waits by events consists of beside the engine, which it outlives.
struct EventServing {
    /// @param uploadWindowBytes what of a body is kept for its reader.
    EventServing(const http::ServerOptions& serverOptions, std::uint64_t uploadWindowBytes)
        : options(serverOptions), exchanges(uploadWindowBytes) {}

    const http::ServerOptions options;
    ExchangeRegistry exchanges;
    ConnectionTable connections;
};

} // namespace ql::impl
