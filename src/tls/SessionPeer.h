// SPDX-License-Identifier: MIT
#pragma once

#include "tls/TlsPeerData.h"

#include <string>

#include <gnutls/gnutls.h>

// What a session of GnuTLS tells of its client.

namespace ql::impl {

/// Whether the client has shown a certificate that is good for clients.
/// @throws std::bad_alloc
bool isClientVerified(gnutls_session_t session);

/// The host that the client asked for; empty for none.
/// @throws std::bad_alloc
std::string serverNameOf(gnutls_session_t session);

/// All of it, which verifies the client's certificate. After the handshake.
/// @throws std::bad_alloc
TlsPeerData peerOfSession(gnutls_session_t session);

} // namespace ql::impl
