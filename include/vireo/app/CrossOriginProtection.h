// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/export.h"

#include <memory>
#include <string>

namespace vireo {

namespace impl {
struct CrossOriginRules;
} // namespace impl

/// Whose pages crossOriginProtection() lets through besides the application's own.
class VIREO_APP_API CrossOriginOptions {
public:
    CrossOriginOptions();
    CrossOriginOptions(const CrossOriginOptions& other);            ///< copies
    CrossOriginOptions& operator=(const CrossOriginOptions& other); ///< copies
    ~CrossOriginOptions();

    /// Adds an origin whose pages may change things in their visitors' names, as "https://example.org" without a slash
    /// at its end. What is none, also "*" and "null", which every page can be, throws std::invalid_argument.
    CrossOriginOptions& trust(std::string origin);

private:
    friend struct impl::CrossOriginRules;

    std::unique_ptr<impl::CrossOriginRules> rules_;
};

/// Refuses with 403 what pages of other origins have a browser send in its user's name (CSRF), without tokens in forms:
/// `app.use(vireo::crossOriginProtection())`. GET, HEAD, OPTIONS and TRACE pass, and so have to change nothing. A page
/// whose own name leads here is of this origin: allowedHosts() refuses it.
///
/// A browser says where a request comes from: in Sec-Fetch-Site, where only "same-origin" and "none" pass; older ones,
/// and all without TLS, in Origin (RFC 6454 section 7), which has to be Request::scheme() and Request::host(), so
/// behind a proxy App::trustProxies() is to be set. What has neither is from no browser, and passes. Other origins of
/// the same site are refused as well, until CrossOriginOptions::trust() names them.
VIREO_APP_API Middleware crossOriginProtection(const CrossOriginOptions& options = {});

} // namespace vireo
