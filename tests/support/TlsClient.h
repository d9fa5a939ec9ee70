#pragma once

#include "support/RawClient.h"
#include "support/TestCertificates.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gnutls/gnutls.h>

namespace vireotest {

/// What a client wants of its handshake.
struct TlsWishes {
    /// Whom it trusts, in PEM; nobody is asked without.
    std::string trustPem;
    /// The host that it asks for, and which the server must be if anybody is trusted; empty for none.
    std::string serverName;
    std::string priorities = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";
    /// For ALPN.
    std::vector<std::string> protocols;
    std::optional<TestCertificate> certificate;
    /// What ClientSession::ticket() has given, to take that session up again.
    std::string ticket;
};

/// GnuTLS's session of a client. Whoever makes one gives it a transport.
class ClientSession {
public:
    explicit ClientSession(const TlsWishes& wishes);
    ~ClientSession();
    ClientSession(const ClientSession&) = delete;
    ClientSession& operator=(const ClientSession&) = delete;

    gnutls_session_t handle() const { return session_; }

    // After the handshake.

    std::string version() const;
    /// The one that ALPN has led to; empty for none.
    std::string protocol() const;
    bool isResumed() const { return gnutls_session_is_resumed(session_) != 0; }
    /// Of the server's certificate.
    std::string fingerprint() const;
    std::string ticket() const;

private:
    gnutls_certificate_credentials_t credentials_ = nullptr;
    gnutls_session_t session_ = nullptr;
};

/// A client whose bytes go through TLS. Connecting throws std::runtime_error with GnuTLS's reason when the handshake
/// fails; what the server only finds out later shows as a connection that is closed.
class TlsClient : public RawClient {
public:
    explicit TlsClient(std::uint16_t port, const TlsWishes& wishes = {});

    const ClientSession& session() const { return session_; }
    /// Sends close_notify, and reads none.
    void sayGoodbye() { gnutls_bye(session_.handle(), GNUTLS_SHUT_WR); }
    /// Whether the server has sent close_notify at the end.
    bool hasEndedCleanly() const { return isCleanEnd_; }

protected:
    RawSocket::Result sendSome(const char* data, std::size_t size, Deadline deadline) override;
    RawSocket::Result receiveSome(char* data, std::size_t size, Deadline deadline) override;

private:
    static ssize_t push(gnutls_transport_ptr_t client, const void* data, std::size_t size);
    static ssize_t pull(gnutls_transport_ptr_t client, void* data, std::size_t size);
    ssize_t transported(const RawSocket::Result& result);

    ClientSession session_;
    bool isLate_ = false;
    bool isCleanEnd_ = false;
};

} // namespace vireotest
