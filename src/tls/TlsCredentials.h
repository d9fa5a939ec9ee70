// SPDX-License-Identifier: MIT
#pragma once

#include "tls/TlsPeerData.h"

#include <memory>
#include <string>

namespace ql::impl {

struct TlsSettings;

/// For MHD_OPTION_HTTPS_CERT_CALLBACK: has no certificate for anybody, so that a session which is not prepared comes to
/// nothing. Null where this build has no TLS.
void* certificateOfNobody();

/// What handshakes need: certificates with their keys, priorities, whom to trust, the key of the tickets. Never changed
/// once made, so sessions on any number of threads share it; each keeps it as long as it lives.
class TlsCredentials {
public:
    /// @param error receives what is wrong.
    /// @return null when something is missing or broken, or this build has no TLS.
    static std::shared_ptr<const TlsCredentials> Create(const TlsSettings& settings, std::string& error);

    TlsCredentials() = default;
    virtual ~TlsCredentials() = default;
    TlsCredentials(const TlsCredentials&) = delete;
    TlsCredentials& operator=(const TlsCredentials&) = delete;

    /// Prepares a session, which is GnuTLS's, before its handshake. One that is prepared in part cannot finish it.
    /// @return null, or why it could not be prepared.
    virtual const char* prepare(void* session) const noexcept = 0;

    /// Whether nobody may be served who is not verified.
    virtual bool isVerificationRequired() const = 0;

    /// Whom a session's handshake has led to, which verifies the client's certificate once more: in a session that was
    /// taken up again it is the former one's, and the handshake doesn't look at it.
    /// @throws std::bad_alloc
    virtual TlsPeerData peerOf(void* session) const = 0;
};

} // namespace ql::impl
