// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/export.h"

#include <chrono>

namespace vireo {

/// Answers in a handler's place when it takes too long: `app.group("/reports").use(vireo::timeout(20s))`. It counts
/// from here on, and holds for an answer by a Later as well.
///
/// The handler is not stopped: it goes on, on its worker, what it answers is dropped, and Request::isGone() becomes
/// true. A stream that has begun is left alone, and so are the openings of WebSockets. Nothing that was set in the
/// answer so far is sent, nor the headers of other middlewares.
///
/// @param limit from 1 ms to 100 years; otherwise std::invalid_argument is thrown.
/// @param status of the answer, 400 to 599.
VIREO_APP_API Middleware timeout(std::chrono::milliseconds limit, int status = 503);

} // namespace vireo
