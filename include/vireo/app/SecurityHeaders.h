// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/export.h"

#include <chrono>
#include <memory>
#include <string>

namespace vireo {

namespace impl {
struct SecurityRules;
} // namespace impl

/// What securityHeaders() says. An empty text leaves its header out; what is no text of a header throws
/// std::invalid_argument.
class VIREO_APP_API SecurityOptions {
public:
    SecurityOptions();
    SecurityOptions(const SecurityOptions& other);            ///< copies
    SecurityOptions& operator=(const SecurityOptions& other); ///< copies
    ~SecurityOptions();

    /// Content-Security-Policy; "default-src 'self'; base-uri 'self'; form-action 'self'" by default: scripts, styles
    /// and pictures come from here alone, and none stand in the page itself; links without a host, and forms, lead
    /// here.
    SecurityOptions& csp(std::string policy);
    /// Strict-Transport-Security, which is sent over TLS alone: for so long browsers come back by TLS; a year by
    /// default. 0 leaves it out.
    SecurityOptions& hsts(std::chrono::seconds maxAge);
    /// X-Frame-Options; "DENY" by default.
    SecurityOptions& frame(std::string value);
    /// Referrer-Policy; "no-referrer" by default.
    SecurityOptions& referrer(std::string policy);

private:
    friend struct impl::SecurityRules;

    std::unique_ptr<impl::SecurityRules> rules_;
};

/// Adds headers that have browsers be careful with pages, to errors as well: `app.use(vireo::securityHeaders())`. Also
/// `X-Content-Type-Options: nosniff`. What a handler has set stays.
VIREO_APP_API Middleware securityHeaders(const SecurityOptions& options = {});

} // namespace vireo
