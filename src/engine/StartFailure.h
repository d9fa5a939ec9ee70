// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HttpServer.h"

namespace ql::impl {

/// Why a server could not start, by what the system said (SystemError); 0 when it said nothing.
http::HttpServer::StartError startFailure(int systemError);

} // namespace ql::impl
