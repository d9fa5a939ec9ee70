#include "ThrowAwayCertificate.h"

#include <array>
#include <cstddef>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string_view>

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

namespace demo {

namespace {

constexpr std::time_t HourSeconds = 3600;
constexpr std::time_t DaySeconds = 86400;
constexpr std::string_view Host = "localhost";
constexpr std::array<unsigned char, 4> Address{127, 0, 0, 1};

/// Calls the function with what it holds.
template <auto Function>
struct Deleter {
    template <typename Pointer>
    void operator()(Pointer* held) const {
        Function(held);
    }
};
using Key = std::unique_ptr<gnutls_x509_privkey_int, Deleter<gnutls_x509_privkey_deinit>>;
using Certificate = std::unique_ptr<gnutls_x509_crt_int, Deleter<gnutls_x509_crt_deinit>>;

void require(int result) {
    if (result < 0) {
        throw std::runtime_error(std::string("no certificate can be made: ") + gnutls_strerror(result));
    }
}

std::string textOf(const gnutls_datum_t& datum) {
    std::string text(reinterpret_cast<const char*>(datum.data), datum.size);
    gnutls_free(datum.data);
    return text;
}

Key makeKey() {
    gnutls_x509_privkey_t made = nullptr;
    require(gnutls_x509_privkey_init(&made));
    Key key(made);
    require(gnutls_x509_privkey_generate(made, GNUTLS_PK_ECDSA, GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0));
    return key;
}

Certificate makeCertificate(gnutls_x509_privkey_t key) {
    gnutls_x509_crt_t made = nullptr;
    require(gnutls_x509_crt_init(&made));
    Certificate certificate(made);
    std::array<unsigned char, 16> serial{};
    require(gnutls_rnd(GNUTLS_RND_NONCE, serial.data(), serial.size()));
    serial[0] &= 0x7FU; // a positive number
    const std::time_t now = std::time(nullptr);
    require(gnutls_x509_crt_set_version(made, 3));
    require(gnutls_x509_crt_set_serial(made, serial.data(), serial.size()));
    require(gnutls_x509_crt_set_activation_time(made, now - HourSeconds));
    require(gnutls_x509_crt_set_expiration_time(made, now + DaySeconds));
    require(gnutls_x509_crt_set_dn_by_oid(made, GNUTLS_OID_X520_COMMON_NAME, 0, Host.data(), Host.size()));
    require(gnutls_x509_crt_set_subject_alt_name(made, GNUTLS_SAN_DNSNAME, Host.data(), Host.size(), GNUTLS_FSAN_SET));
    require(gnutls_x509_crt_set_subject_alt_name(made, GNUTLS_SAN_IPADDRESS, Address.data(), Address.size(),
                                                 GNUTLS_FSAN_APPEND));
    require(gnutls_x509_crt_set_key_purpose_oid(made, GNUTLS_KP_TLS_WWW_SERVER, 0));
    require(gnutls_x509_crt_set_key(made, key));
    require(gnutls_x509_crt_sign2(made, made, key, GNUTLS_DIG_SHA256, 0));
    return certificate;
}

} // namespace

ThrowAwayCertificate makeThrowAwayCertificate() {
    const Key key = makeKey();
    const Certificate certificate = makeCertificate(key.get());
    gnutls_datum_t chainPem{};
    require(gnutls_x509_crt_export2(certificate.get(), GNUTLS_X509_FMT_PEM, &chainPem));
    ThrowAwayCertificate result;
    result.chainPem = textOf(chainPem);
    gnutls_datum_t keyPem{};
    require(gnutls_x509_privkey_export2_pkcs8(key.get(), GNUTLS_X509_FMT_PEM, nullptr, GNUTLS_PKCS_PLAIN, &keyPem));
    result.keyPem = textOf(keyPem);
    return result;
}

} // namespace demo
