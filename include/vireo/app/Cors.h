// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/export.h"

#include <chrono>
#include <memory>
#include <string>

namespace vireo {

namespace impl {
struct CorsRules;
} // namespace impl

/// Which pages of other origins may read answers. What cannot be throws std::invalid_argument.
class VIREO_APP_API CorsOptions {
public:
    CorsOptions();
    CorsOptions(const CorsOptions& other);            ///< copies
    CorsOptions& operator=(const CorsOptions& other); ///< copies
    ~CorsOptions();

    /// Adds an origin, as "https://example.org" without a slash at its end, or "null"; "*", the default, is all of
    /// them.
    CorsOptions& origin(std::string origin);
    /// Adds a method. GET, HEAD, POST, PUT, PATCH and DELETE by default.
    CorsOptions& method(std::string method);
    /// Adds a header that pages may send. By default all that they ask for.
    CorsOptions& header(std::string name);
    /// Adds a header of answers that pages may read, besides those that browsers let them read anyway.
    CorsOptions& expose(std::string name);
    /// Whether they may send cookies and passwords. Not with all origins, and not with "null", which every page can
    /// make itself: any page would act in its visitor's name then.
    CorsOptions& credentials(bool on = true);
    /// How long browsers keep what a preflight was told; 10 minutes by default.
    CorsOptions& maxAge(std::chrono::seconds age);

private:
    friend struct impl::CorsRules;

    std::unique_ptr<impl::CorsRules> rules_;
};

/// Lets pages of other origins read answers, errors as well: `api.use(vireo::cors(options))`. Answers preflights, which
/// go no further. Put it before what checks passwords, which preflights do not have.
///
/// Throws std::invalid_argument for credentials with all origins or with "null".
VIREO_APP_API Middleware cors(const CorsOptions& options = {});

} // namespace vireo
