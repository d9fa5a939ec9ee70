#include "tls/SessionPeer.h"

#include "tls/GnutlsHandles.h"

#include <array>
#include <cstddef>

namespace ql::impl {

namespace {

std::string textOf(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

void appendHex(std::string& text, unsigned char byte) {
    text += "0123456789abcdef"[byte >> 4U];
    text += "0123456789abcdef"[byte & 0x0FU];
}

std::string subjectOf(gnutls_x509_crt_t certificate) {
    SecretBytes name;
    if (gnutls_x509_crt_get_dn3(certificate, &name.datum, 0) < 0) {
        return {};
    }
    // GnuTLS leaves control characters as they are.
    constexpr unsigned char FirstPrintable = 0x20;
    constexpr unsigned char Delete = 0x7F;
    std::string text;
    for (unsigned int i = 0; i < name.datum.size; ++i) {
        const unsigned char byte = name.datum.data[i];
        if (byte < FirstPrintable || byte == Delete) {
            text += '\\';
            appendHex(text, byte);
        } else {
            text += static_cast<char>(byte);
        }
    }
    return text;
}

std::string fingerprintOf(gnutls_x509_crt_t certificate) {
    std::array<unsigned char, 32> digest{};
    std::size_t size = digest.size();
    if (gnutls_x509_crt_get_fingerprint(certificate, GNUTLS_DIG_SHA256, digest.data(), &size) < 0) {
        return {};
    }
    std::string text;
    text.reserve(2 * digest.size());
    for (const unsigned char byte : digest) {
        appendHex(text, byte);
    }
    return text;
}

void describeCertificate(gnutls_session_t session, TlsPeerData& peer) {
    unsigned int count = 0;
    const gnutls_datum_t* const shown = gnutls_certificate_get_peers(session, &count);
    gnutls_x509_crt_t imported = nullptr;
    if (shown == nullptr || count == 0 || gnutls_x509_crt_init(&imported) < 0) {
        return;
    }
    const Certificate certificate(imported);
    if (gnutls_x509_crt_import(imported, shown, GNUTLS_X509_FMT_DER) < 0) {
        return;
    }
    peer.hasCertificate = true;
    peer.fingerprint = fingerprintOf(imported);
    peer.isVerified = isClientVerified(session);
    if (peer.isVerified) {
        peer.subject = subjectOf(imported);
    }
}

} // namespace

bool isClientVerified(gnutls_session_t session) {
    std::string purpose = GNUTLS_KP_TLS_WWW_CLIENT;
    gnutls_typed_vdata_st wanted{};
    wanted.type = GNUTLS_DT_KEY_PURPOSE_OID;
    wanted.data = reinterpret_cast<unsigned char*>(purpose.data());
    unsigned int trouble = 0;
    return gnutls_certificate_verify_peers(session, &wanted, 1, &trouble) >= 0 && trouble == 0;
}

std::string serverNameOf(gnutls_session_t session) {
    std::array<char, MostNameBytes> name{};
    std::size_t size = name.size();
    unsigned int type = 0;
    if (gnutls_server_name_get(session, name.data(), &size, &type, 0) < 0 || type != GNUTLS_NAME_DNS) {
        return {};
    }
    return {name.data(), size};
}

TlsPeerData peerOfSession(gnutls_session_t session) {
    TlsPeerData peer;
    peer.version = textOf(gnutls_protocol_get_name(gnutls_protocol_get_version(session)));
    peer.cipher = textOf(gnutls_cipher_get_name(gnutls_cipher_get(session)));
    peer.isResumed = gnutls_session_is_resumed(session) != 0;
    peer.serverName = serverNameOf(session);
    describeCertificate(session, peer);
    return peer;
}

} // namespace ql::impl
