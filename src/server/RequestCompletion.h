// SPDX-License-Identifier: MIT
#pragma once

#include <microhttpd.h>

namespace ql {
class HttpBaseRequest;
}

namespace ql::http {

class HttpServer;

/// The engine has finished with a request: marks it scheduler-done, tells the application's scheduler, and tells the
/// response device when the exchange ended abnormally. Daemon thread.
void completeRequest(HttpServer& server, HttpBaseRequest& request, MHD_RequestTerminationCode code) noexcept;

} // namespace ql::http
