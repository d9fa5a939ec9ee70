// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HttpServer.h"

#include <string>

namespace ql::impl {

/// Why a server does not start, or a listener does not listen.
struct StartFailure {
    http::HttpServer::StartError error = http::HttpServer::StartError::None;
    /// For people.
    std::string text;
};

/// By what the system said (SystemError).
StartFailure systemFailure(int systemError);

} // namespace ql::impl
