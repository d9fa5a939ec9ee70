// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/export.h"

#include <string>
#include <vector>

namespace vireo {

/// Refuses with 421 (RFC 9110 section 15.5.20) what is for other hosts than these:
/// `app.use(vireo::allowedHosts({"example.org", "*.example.org"}))`. A server on a loopback or internal address needs
/// it: a page of anybody's can have its own name lead to that address (DNS rebinding), and then reads answers as its
/// own.
///
/// It looks at Request::host(), so behind a trusted proxy at the host that the proxy names; and a page that reaches the
/// server from a trusted address names what it likes, see App::trustProxies().
/// @param hosts names and addresses, in any case: "example.org", "127.0.0.1", "[::1]". "*.example.org" is all names
///        below that one, without itself. One with a port, "localhost:8080", is for that port alone, others for all.
///        None, and what is no host, throws std::invalid_argument.
VIREO_APP_API Middleware allowedHosts(const std::vector<std::string>& hosts);

} // namespace vireo
