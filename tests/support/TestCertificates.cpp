#include "support/TestCertificates.h"

#include <array>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include <gnutls/abstract.h>
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

namespace vireotest {

namespace {

void require(int result) {
    if (result < 0) {
        throw std::runtime_error(std::string("no certificate : ") + gnutls_strerror(result));
    }
}

std::string textOf(const gnutls_datum_t& datum) {
    std::string text(reinterpret_cast<const char*>(datum.data), datum.size);
    gnutls_free(datum.data);
    return text;
}

std::string pemOf(gnutls_x509_crt_t certificate) {
    gnutls_datum_t datum{};
    require(gnutls_x509_crt_export2(certificate, GNUTLS_X509_FMT_PEM, &datum));
    return textOf(datum);
}

std::string pemOf(gnutls_x509_privkey_t key) {
    gnutls_datum_t datum{};
    require(gnutls_x509_privkey_export2_pkcs8(key, GNUTLS_X509_FMT_PEM, nullptr, GNUTLS_PKCS_PLAIN, &datum));
    return textOf(datum);
}

std::string fingerprintOf(gnutls_x509_crt_t certificate) {
    std::array<unsigned char, 32> digest{};
    std::size_t size = digest.size();
    require(gnutls_x509_crt_get_fingerprint(certificate, GNUTLS_DIG_SHA256, digest.data(), &size));
    std::string text;
    for (const unsigned char byte : digest) {
        text += "0123456789abcdef"[byte >> 4U];
        text += "0123456789abcdef"[byte & 0x0FU];
    }
    return text;
}

const char* purposeOf(CertificateOrder::Purpose purpose) {
    return purpose == CertificateOrder::Purpose::Client ? GNUTLS_KP_TLS_WWW_CLIENT : GNUTLS_KP_TLS_WWW_SERVER;
}

} // namespace

struct TestAuthority::KeyPair {
    explicit KeyPair(CertificateOrder::Key kind) {
        require(gnutls_x509_crt_init(&certificate));
        require(gnutls_x509_privkey_init(&key));
        if (kind == CertificateOrder::Key::Rsa) {
            constexpr unsigned int Bits = 2048;
            require(gnutls_x509_privkey_generate(key, GNUTLS_PK_RSA, Bits, 0));
        } else {
            require(gnutls_x509_privkey_generate(key, GNUTLS_PK_ECDSA, GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1),
                                                 0));
        }
    }
    ~KeyPair() {
        gnutls_x509_privkey_deinit(key);
        gnutls_x509_crt_deinit(certificate);
    }
    KeyPair(const KeyPair&) = delete;
    KeyPair& operator=(const KeyPair&) = delete;

    void describe(const CertificateOrder& order, std::uint32_t serial) const {
        require(gnutls_x509_crt_set_version(certificate, 3));
        const std::array<unsigned char, 4> bytes{
            static_cast<unsigned char>((serial >> 24U) & 0x7FU), static_cast<unsigned char>((serial >> 16U) & 0xFFU),
            static_cast<unsigned char>((serial >> 8U) & 0xFFU), static_cast<unsigned char>(serial & 0xFFU)};
        require(gnutls_x509_crt_set_serial(certificate, bytes.data(), bytes.size()));
        const std::time_t now = std::time(nullptr);
        require(gnutls_x509_crt_set_activation_time(certificate, now + order.begin));
        require(gnutls_x509_crt_set_expiration_time(certificate, now + order.end));
        require(gnutls_x509_crt_set_dn_by_oid(certificate, GNUTLS_OID_X520_COMMON_NAME, 0, order.commonName.data(),
                                              static_cast<unsigned int>(order.commonName.size())));
        for (const std::string& name : order.names) {
            require(gnutls_x509_crt_set_subject_alt_name(certificate, GNUTLS_SAN_DNSNAME, name.data(),
                                                         static_cast<unsigned int>(name.size()), GNUTLS_FSAN_APPEND));
        }
        if (order.purpose != CertificateOrder::Purpose::Any) {
            require(gnutls_x509_crt_set_key_purpose_oid(certificate, purposeOf(order.purpose), 0));
        }
        require(gnutls_x509_crt_set_basic_constraints(certificate, order.isAuthority ? 1 : 0, -1));
        if (order.isAuthority) {
            require(gnutls_x509_crt_set_key_usage(certificate, GNUTLS_KEY_KEY_CERT_SIGN));
        }
        require(gnutls_x509_crt_set_key(certificate, key));
    }

    gnutls_x509_crt_t certificate = nullptr;
    gnutls_x509_privkey_t key = nullptr;
};

TestAuthority::TestAuthority(const std::string& name) : own_(std::make_unique<KeyPair>(CertificateOrder::Key::Ecdsa)) {
    CertificateOrder order;
    order.commonName = name;
    order.isAuthority = true;
    own_->describe(order, lastSerial_);
    require(gnutls_x509_crt_sign2(own_->certificate, own_->certificate, own_->key, GNUTLS_DIG_SHA256, 0));
    pem_ = pemOf(own_->certificate);
}

TestAuthority::~TestAuthority() = default;

TestCertificate TestAuthority::issue(const CertificateOrder& order) {
    const KeyPair pair(order.key);
    pair.describe(order, ++lastSerial_);
    require(gnutls_x509_crt_sign2(pair.certificate, own_->certificate, own_->key, GNUTLS_DIG_SHA256, 0));
    return {pemOf(pair.certificate), pemOf(pair.key), fingerprintOf(pair.certificate)};
}

TestCertificate TestAuthority::issueFor(std::vector<std::string> names, CertificateOrder::Key key) {
    CertificateOrder order;
    order.commonName = names.front();
    order.names = std::move(names);
    order.key = key;
    order.purpose = CertificateOrder::Purpose::Server;
    return issue(order);
}

} // namespace vireotest
