// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <memory>
#include <string>

namespace ql::impl {
struct TlsPeerData;
}

namespace ql::http {

/// Who is at the other end of a TLS connection, and how it is protected: HttpBaseRequest::getTlsPeer() has it. Made
/// once for a connection and never changed, so any number of threads may read it, as long as the request lives.
class VIREO_API TlsPeer {
public:
    /// For the library.
    explicit TlsPeer(impl::TlsPeerData&& data);
    ~TlsPeer();
    TlsPeer(const TlsPeer&) = delete;
    TlsPeer& operator=(const TlsPeer&) = delete;

    /// "TLS1.2" or "TLS1.3".
    const std::string& getVersion() const;
    /// GnuTLS's name for the cipher, such as "AES-256-GCM".
    const std::string& getCipher() const;
    /// Whether the client took up a former session, without the work of a new handshake.
    bool isResumed() const;
    /// The host name that the client wanted (SNI); empty when it named none.
    const std::string& getServerName() const;

    // ---- The client's certificate, as far as TlsOptions::setClientCertificates() asks for one ----

    /// Whether the client has shown one, whose key it has.
    bool hasCertificate() const;
    /// Whether that is good: issued by who is trusted, for clients, and neither expired nor from the future, at the
    /// time of the connection's first request.
    bool isVerified() const;
    /// Whose it is, as in RFC 4514: "CN=Ada,O=Example". Empty unless isVerified(): before that anybody can be in it.
    const std::string& getSubject() const;
    /// SHA-256 of the certificate, as 64 lower-case hexadecimal digits; empty without one. It names the same key holder
    /// each time, also where nobody has verified who that is.
    const std::string& getFingerprint() const;

private:
    const std::unique_ptr<const impl::TlsPeerData> data_;
};

} // namespace ql::http
