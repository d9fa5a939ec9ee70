// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/export.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace vireo {

namespace impl {
struct RateRules;
} // namespace impl

/// How rateLimit() counts.
class VIREO_APP_API RateOptions {
public:
    RateOptions();
    RateOptions(const RateOptions& other);            ///< copies
    RateOptions& operator=(const RateOptions& other); ///< copies
    ~RateOptions();

    /// How many requests may come at once after a pause; by default as many as in the whole time. 0 throws
    /// std::invalid_argument.
    RateOptions& burst(unsigned int requests);
    /// Who a request is from, in place of its client's address: on the handlers' threads, many at once.
    RateOptions& key(std::function<std::string(Request&)> key);

private:
    friend struct impl::RateRules;

    std::unique_ptr<impl::RateRules> rules_;
};

/// Answers clients that ask too often with 429 and Retry-After: `app.use(vireo::rateLimit(100, 1min))`. IPv6 clients of
/// one network (/64) are one, and so are all of a local socket. Behind a proxy they are told apart by
/// App::trustProxies(). Of more than 65,536 clients those that have asked least are forgotten.
/// @param requests in the time `per`, evenly spread after the first burst. 0 of either throws
///        std::invalid_argument, and so does a time, or one in which a burst comes back, of more than 100 years.
VIREO_APP_API Middleware rateLimit(unsigned int requests, std::chrono::milliseconds per,
                                   const RateOptions& options = {});

} // namespace vireo
