// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/export.h"

#include <functional>
#include <string>
#include <string_view>

namespace vireo {

/// Lets those through whose name and password the check takes (RFC 7617); all others get 401 with a challenge, upon
/// which browsers ask for both. userOf() is the name then. Without TLS anybody on the way can read the password: the
/// log says so, once, when one comes that way from another machine.
/// @param realm what it protects, as users see it. What is no text of a header throws std::invalid_argument.
/// @param check on the handlers' threads, many at once; around WebSockets on the daemon thread, where a hash that takes
/// its time holds up other clients: let a session stand for the password there. Compare passwords by isSameText().
VIREO_APP_API Middleware basicAuth(std::string_view realm,
                                   std::function<bool(std::string_view user, std::string_view password)> check);

/// Lets those through whose token the check takes (RFC 6750); all others get 401 with a challenge.
/// @param realm what it protects. What is no text of a header throws std::invalid_argument.
/// @param check on the handlers' threads, many at once; may set userOf().
VIREO_APP_API Middleware bearerAuth(std::string_view realm,
                                    std::function<bool(Request& request, std::string_view token)> check);

/// Who has made the request, as basicAuth() or a check of yours has found; empty for nobody.
VIREO_APP_API std::string& userOf(Request& request);

/// Compares a secret, in a time that does not tell where it differs; only its length.
VIREO_APP_API bool isSameText(std::string_view left, std::string_view right);

} // namespace vireo
