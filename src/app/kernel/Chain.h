// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/Work.h"

#include <exception>
#include <functional>
#include <string>

namespace vireo {
class Request;
class Response;
} // namespace vireo

namespace vireo::impl {

struct Endpoint;
struct ResponseState;

/// Runs the endpoint's middlewares and `last`, which answers. Throws what nobody caught.
void runChain(const Endpoint& endpoint, Request& request, Response& response, const std::function<void()>& last);
/// The same around the endpoint's handler.
void runChain(const Work& work, Request& request, Response& response);

/// Has the answer say what went wrong: all but its hooks goes, and the scope's error handler, or the kernel, sets it
/// anew. Logs what is no HttpError.
void setFailure(const Endpoint& endpoint, Request& request, ResponseState& state, const std::exception_ptr& failure);

/// Makes the answer of a chain, or of a Later, one that can be sent: what went wrong and what was forgotten becomes an
/// error, and the hooks run.
/// @param failure what was thrown; null for nothing.
void finishAnswer(const Endpoint& endpoint, Request& request, ResponseState& state, const std::exception_ptr& failure);

/// Logs what was thrown when there was no answer left to change, unless it is what such an end throws.
void logUnsent(const Endpoint& endpoint, const ResponseState& state, const std::exception_ptr& failure);

/// "GET /notes/7 (route /notes/{id})", for the log.
std::string lineBegin(const Endpoint& endpoint, const ResponseState& state);

} // namespace vireo::impl
