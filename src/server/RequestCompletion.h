// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/HttpResponseDevice.h"

namespace ql {
class HttpBaseRequest;
}

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

struct RequestContext;

/// The engine has finished with a request: ends the decoding of its form, marks it scheduler-done, tells the
/// application's scheduler, and tells the response device when the exchange ended abnormally. Daemon thread.
/// @param lossReason why the response was cut short; null when it was not.
void completeRequest(http::HttpServer& server, HttpBaseRequest& request, const char* lossReason) noexcept;

/// What comes before that where connections are suspended: this one is not any more, and a feed that has not got the
/// whole body is ended with an error. Daemon thread, under no lock. Nothing where the engine polls.
/// @param engineReason why the response was cut short, as the engine sees it; null when it was not.
/// @return the same as the library knows it: where it has cut the exchange itself, its own reason.
const char* completeExchange(RequestContext& context, const char* engineReason) noexcept;

/// What follows on that: tells the request's owner, if there is one, which may delete the request. Daemon thread, under
/// no lock.
void tellOwner(const RequestContext& context, const char* lossReason) noexcept;

/// What comes last: tells the observers of the exchange, if there are any and they have not been told. Daemon thread,
/// under no lock.
/// @param ending as the engine sees it.
void tellOfExchange(RequestContext& context, EngineConnection connection, http::ExchangeRecord::Ending ending) noexcept;

/// Tells a response device that nobody takes its body any more, which lets go of a waiting writer.
void reportLoss(HttpResponseDevice& device, const char* reason) noexcept QL_REQUIRES(device.getLock());

} // namespace ql::impl
