// SPDX-License-Identifier: MIT
#pragma once

#include "app/run/CurrentService.h"
#include "vireo/app/Handler.h"

#include <functional>
#include <memory>

namespace ql::http {
class ExchangeMetrics;
}

namespace vireo::impl {

/// Answers 200, or 503 until the run has begun, while it drains, and where the check says false or throws.
Handler healthHandler(std::shared_ptr<const CurrentService> current, std::function<bool()> check);

/// Counters of exchanges, and of the run that there is at the time.
std::shared_ptr<ql::http::ExchangeMetrics> makeMetrics(std::shared_ptr<const CurrentService> current);

/// Answers with them.
Handler metricsHandler(std::shared_ptr<const ql::http::ExchangeMetrics> metrics);

} // namespace vireo::impl
