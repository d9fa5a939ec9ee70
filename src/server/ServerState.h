// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/ServerOptions.h"

namespace ql::impl {

/// What a server keeps beside the declared fields of its class.
struct ServerState {
    /// Constant after construction.
    const http::ServerOptions options;
};

} // namespace ql::impl
