#pragma once

#include "support/TlsClient.h"
#include "tls/TlsCredentials.h"
#include "vireo/TlsContext.h"
#include "vireo/TlsPeer.h"

#include <memory>
#include <string>

#include <gnutls/gnutls.h>

namespace vireotest {

/// A handshake between a client and a server with given credentials, on one thread and without a socket.
class TlsHandshake {
public:
    /// Runs it to its end.
    TlsHandshake(const ql::impl::TlsCredentials& credentials, const TlsWishes& wishes);
    ~TlsHandshake();
    TlsHandshake(const TlsHandshake&) = delete;
    TlsHandshake& operator=(const TlsHandshake&) = delete;

    /// Whether both ends have finished it.
    bool isDone() const { return clientResult_ == 0 && serverResult_ == 0; }
    const ClientSession& client() const { return client_; }
    ql::http::TlsPeer peer() const { return ql::http::TlsPeer(credentials_.peerOf(server_)); }
    /// The bytes that the client has not read, such as tickets, are read.
    std::string ticket();

private:
    /// What one end has sent and the other has not received.
    struct Pipe {
        std::string bytes;
    };
    struct End {
        gnutls_session_t session;
        Pipe& in;
        Pipe& out;
    };

    static ssize_t push(gnutls_transport_ptr_t end, const void* data, std::size_t size);
    static ssize_t pull(gnutls_transport_ptr_t end, void* data, std::size_t size);
    static void connect(End& end);
    void run();

    const ql::impl::TlsCredentials& credentials_;
    ClientSession client_;
    gnutls_session_t server_ = nullptr;
    Pipe toServer_;
    Pipe toClient_;
    End clientEnd_;
    End serverEnd_;
    int clientResult_ = GNUTLS_E_AGAIN;
    int serverResult_ = GNUTLS_E_AGAIN;
};

/// The credentials that options lead to. Throws std::runtime_error with the reason when they lead to none.
std::shared_ptr<const ql::impl::TlsCredentials> credentialsOf(const ql::http::TlsOptions& options);

} // namespace vireotest
