#include "support/TlsClient.h"

#include <array>
#include <cerrno>
#include <stdexcept>

#include <gnutls/x509.h>

namespace vireotest {

namespace {

void require(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string(what) + " : " + gnutls_strerror(result));
    }
}

gnutls_datum_t datumOf(const std::string& text) {
    return {const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>(text.data())),
            static_cast<unsigned int>(text.size())};
}

} // namespace

ClientSession::ClientSession(const TlsWishes& wishes) {
    require(gnutls_certificate_allocate_credentials(&credentials_), "credentials");
    // The certificate is shown also where another authority's is wanted.
    require(gnutls_init(&session_, GNUTLS_CLIENT | GNUTLS_NO_SIGNAL | GNUTLS_FORCE_CLIENT_CERT), "session");
    require(gnutls_priority_set_direct(session_, wishes.priorities.c_str(), nullptr), "priorities");
    if (wishes.certificate) {
        const gnutls_datum_t chain = datumOf(wishes.certificate->chainPem);
        const gnutls_datum_t key = datumOf(wishes.certificate->keyPem);
        require(gnutls_certificate_set_x509_key_mem(credentials_, &chain, &key, GNUTLS_X509_FMT_PEM), "certificate");
    }
    require(gnutls_credentials_set(session_, GNUTLS_CRD_CERTIFICATE, credentials_), "credentials");
    if (!wishes.serverName.empty()) {
        require(gnutls_server_name_set(session_, GNUTLS_NAME_DNS, wishes.serverName.data(), wishes.serverName.size()),
                "server name");
    }
    if (!wishes.trustPem.empty()) {
        const gnutls_datum_t trust = datumOf(wishes.trustPem);
        require(gnutls_certificate_set_x509_trust_mem(credentials_, &trust, GNUTLS_X509_FMT_PEM), "trust");
        gnutls_session_set_verify_cert(session_, wishes.serverName.empty() ? nullptr : wishes.serverName.c_str(), 0);
    }
    if (!wishes.protocols.empty()) {
        std::vector<gnutls_datum_t> protocols;
        for (const std::string& protocol : wishes.protocols) {
            protocols.push_back(datumOf(protocol));
        }
        require(gnutls_alpn_set_protocols(session_, protocols.data(), static_cast<unsigned int>(protocols.size()), 0),
                "protocols");
    }
    if (!wishes.ticket.empty()) {
        require(gnutls_session_set_data(session_, wishes.ticket.data(), wishes.ticket.size()), "ticket");
    }
}

ClientSession::~ClientSession() {
    gnutls_deinit(session_);
    gnutls_certificate_free_credentials(credentials_);
}

std::string ClientSession::version() const {
    return gnutls_protocol_get_name(gnutls_protocol_get_version(session_));
}

std::string ClientSession::protocol() const {
    gnutls_datum_t protocol{};
    if (gnutls_alpn_get_selected_protocol(session_, &protocol) < 0) {
        return {};
    }
    return {reinterpret_cast<const char*>(protocol.data), protocol.size};
}

std::string ClientSession::fingerprint() const {
    unsigned int count = 0;
    const gnutls_datum_t* const shown = gnutls_certificate_get_peers(session_, &count);
    if (shown == nullptr) {
        return {};
    }
    std::array<unsigned char, 32> digest{};
    std::size_t size = digest.size();
    require(gnutls_fingerprint(GNUTLS_DIG_SHA256, shown, digest.data(), &size), "fingerprint");
    std::string text;
    for (const unsigned char byte : digest) {
        text += "0123456789abcdef"[byte >> 4U];
        text += "0123456789abcdef"[byte & 0x0FU];
    }
    return text;
}

std::string ClientSession::ticket() const {
    gnutls_datum_t data{};
    require(gnutls_session_get_data2(session_, &data), "ticket");
    std::string ticket(reinterpret_cast<const char*>(data.data), data.size);
    gnutls_free(data.data);
    return ticket;
}

TlsClient::TlsClient(std::uint16_t port, const TlsWishes& wishes) : RawClient(port), session_(wishes) {
    gnutls_session_t session = session_.handle();
    gnutls_transport_set_ptr(session, this);
    gnutls_transport_set_push_function(session, &push);
    gnutls_transport_set_pull_function(session, &pull);
    int result = 0;
    do {
        result = gnutls_handshake(session);
    } while (result < 0 && gnutls_error_is_fatal(result) == 0);
    require(result, "handshake");
}

RawSocket::Result TlsClient::sendSome(const char* data, std::size_t size, Deadline /*deadline*/) {
    const ssize_t sent = gnutls_record_send(session_.handle(), data, size);
    if (sent >= 0) {
        return {RawSocket::Status::Done, static_cast<std::size_t>(sent)};
    }
    return {isLate_ ? RawSocket::Status::TimedOut : RawSocket::Status::Broken, 0};
}

RawSocket::Result TlsClient::receiveSome(char* data, std::size_t size, Deadline /*deadline*/) {
    ssize_t received = 0;
    do {
        received = gnutls_record_recv(session_.handle(), data, size);
    } while (received < 0 && gnutls_error_is_fatal(static_cast<int>(received)) == 0);
    if (received > 0) {
        return {RawSocket::Status::Done, static_cast<std::size_t>(received)};
    }
    isCleanEnd_ = received == 0;
    if (received == 0 || received == GNUTLS_E_PREMATURE_TERMINATION) {
        return {RawSocket::Status::End, 0};
    }
    return {isLate_ ? RawSocket::Status::TimedOut : RawSocket::Status::Broken, 0};
}

ssize_t TlsClient::push(gnutls_transport_ptr_t client, const void* data, std::size_t size) {
    auto& self = *static_cast<TlsClient*>(client);
    return self.transported(self.RawClient::sendSome(static_cast<const char*>(data), size, soon()));
}

ssize_t TlsClient::pull(gnutls_transport_ptr_t client, void* data, std::size_t size) {
    auto& self = *static_cast<TlsClient*>(client);
    return self.transported(self.RawClient::receiveSome(static_cast<char*>(data), size, soon()));
}

ssize_t TlsClient::transported(const RawSocket::Result& result) {
    switch (result.status) {
    case RawSocket::Status::Done:
    case RawSocket::Status::End:
        return static_cast<ssize_t>(result.bytes);
    case RawSocket::Status::TimedOut:
        isLate_ = true;
        break;
    case RawSocket::Status::Broken:
        break;
    }
    gnutls_transport_set_errno(session_.handle(), ECONNRESET);
    return -1;
}

} // namespace vireotest
