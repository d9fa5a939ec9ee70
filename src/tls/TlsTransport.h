// SPDX-License-Identifier: MIT
#pragma once

#include "tls/HandshakeWatch.h"

namespace ql::impl {

/// Carries the bytes of a session, in the place of GnuTLS's own functions, so that a handshake that waits for its
/// client is put aside. The daemon thread's alone.
class TlsTransport {
public:
    /// Before the handshake.
    /// @param session GnuTLS's, which this must outlive.
    /// @param watch outlives the session.
    void carry(void* session, const Handshake& handshake, HandshakeWatch& watch) noexcept;

private:
    struct Calls;

    int socket() const { return static_cast<int>(handshake_.socket); }
    void waitForClient() noexcept;

    Handshake handshake_;
    HandshakeWatch* watch_ = nullptr;
    bool isInHandshake_ = true;
    /// Whether there was nothing the last time as well.
    bool hasAskedInVain_ = false;
};

} // namespace ql::impl
