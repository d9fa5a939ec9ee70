#include "tls/TlsCredentials.h"

#include "tls/GnutlsHandles.h"
#include "tls/SessionPeer.h"
#include "tls/TlsSettings.h"
#include "vireo/support/SystemError.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlStringUtils.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <functional>
#include <map>
#include <string_view>
#include <vector>

#include <gnutls/abstract.h>
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

namespace ql::impl {

namespace {

using ClientCertificates = http::TlsOptions::ClientCertificates;

/// Without what has no forward secrecy or no authenticated encryption, and first the group that clients begin with:
/// another one costs a round trip.
constexpr const char* DefaultPriorities =
    "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:-RSA:-DHE-RSA:-AES-128-CBC:-AES-256-CBC:-SIGN-RSA-SHA1:-SIGN-ECDSA-"
    "SHA1:"
    "-GROUP-ALL:+GROUP-X25519:+GROUP-SECP256R1:+GROUP-SECP384R1:+GROUP-SECP521R1:%SERVER_PRECEDENCE";

constexpr std::string_view Protocol = "http/1.1";
constexpr std::string_view Wildcard = "*.";

using CertificateCredentials =
    std::unique_ptr<gnutls_certificate_credentials_st, GnutlsDeleter<gnutls_certificate_free_credentials>>;
using Priorities = std::unique_ptr<gnutls_priority_st, GnutlsDeleter<gnutls_priority_deinit>>;
using PrivateKey = std::unique_ptr<gnutls_x509_privkey_int, GnutlsDeleter<gnutls_x509_privkey_deinit>>;

gnutls_datum_t datumOf(std::string_view text) {
    return {const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>(text.data())),
            static_cast<unsigned int>(text.size())};
}

/// @return whether a call has succeeded; else the reason is told.
bool succeeded(int result, const std::string& subject, std::string& error) {
    if (result >= 0) {
        return true;
    }
    error = subject + " : " + gnutls_strerror(result);
    return false;
}

/// A text in PEM, and what it is called when it is broken.
class PemText {
public:
    /// @param name for one that is in memory.
    PemText(const PemSource& source, const std::string& name)
        : source_(source), name_(source.isFile ? source.value : name) {}

    bool load(std::string& error) {
        if (!source_.isFile) {
            return true;
        }
        if (gnutls_load_file(source_.value.c_str(), &file_.datum) < 0) {
            error = name_ + " : " + SystemError(errno).toString();
            return false;
        }
        return true;
    }

    gnutls_datum_t datum() const { return source_.isFile ? file_.datum : datumOf(source_.value); }
    const std::string& name() const { return name_; }

private:
    const PemSource& source_;
    const std::string name_;
    SecretBytes file_;
};

/// A server's certificate and those between it and its authority.
class CertificateChain {
public:
    CertificateChain() = default;
    ~CertificateChain() {
        for (unsigned int i = 0; i < size_; ++i) {
            gnutls_x509_crt_deinit(certificates_[i]);
        }
        gnutls_free(certificates_);
    }
    CertificateChain(const CertificateChain&) = delete;
    CertificateChain& operator=(const CertificateChain&) = delete;

    bool load(const PemText& text, std::string& error) {
        const gnutls_datum_t datum = text.datum();
        return succeeded(gnutls_x509_crt_list_import2(&certificates_, &size_, &datum, GNUTLS_X509_FMT_PEM,
                                                      GNUTLS_X509_CRT_LIST_SORT),
                         text.name(), error);
    }

    gnutls_x509_crt_t* certificates() const { return certificates_; }
    int size() const { return static_cast<int>(size_); }
    gnutls_x509_crt_t first() const { return certificates_[0]; }

private:
    gnutls_x509_crt_t* certificates_ = nullptr;
    unsigned int size_ = 0;
};

/// Clients will not like it, but it is for whoever has put it there to know.
void warnOfTime(gnutls_x509_crt_t certificate, const std::string& name) {
    const std::time_t now = std::time(nullptr);
    const char* trouble = nullptr;
    if (gnutls_x509_crt_get_expiration_time(certificate) < now) {
        trouble = "has expired";
    } else if (gnutls_x509_crt_get_activation_time(certificate) > now) {
        trouble = "is not valid yet";
    }
    if (trouble != nullptr) {
        qlLogObject(qlLogType::Failure, "tls") << "The certificate " << trouble << " : " << name;
    }
}

/// For gnutls_session_set_verify_function().
int verifyClient(gnutls_session_t session) noexcept {
    try {
        return isClientVerified(session) ? 0 : GNUTLS_E_CERTIFICATE_ERROR;
    } catch (...) {
        return GNUTLS_E_MEMORY_ERROR;
    }
}

std::string lowerCase(std::string text) {
    qlStringUtils::toLower(text);
    return text;
}

/// A certificate with its key, as TlsSettings::Pair names them.
class LoadedPair {
public:
    /// @param number that it is called by where it has no file.
    bool load(const TlsSettings::Pair& pair, const std::string& number, std::string& error);
    /// Puts it behind those that the credentials have.
    bool addTo(gnutls_certificate_credentials_t credentials, std::string& error) const;

    bool isFor(const std::string& host) const {
        return gnutls_x509_crt_check_hostname(chain_.first(), host.c_str()) != 0;
    }
    /// Its names that stand for many, such as "*.example.org".
    std::vector<std::string> wildcards() const;

private:
    CertificateChain chain_;
    PrivateKey key_;
    std::string name_;
};

bool LoadedPair::load(const TlsSettings::Pair& pair, const std::string& number, std::string& error) {
    PemText chainText(pair.chain, "certificate " + number);
    PemText keyText(pair.key, "key " + number);
    if (!chainText.load(error) || !chain_.load(chainText, error) || !keyText.load(error)) {
        return false;
    }
    gnutls_x509_privkey_t key = nullptr;
    if (!succeeded(gnutls_x509_privkey_init(&key), keyText.name(), error)) {
        return false;
    }
    key_.reset(key);
    const gnutls_datum_t datum = keyText.datum();
    if (!succeeded(gnutls_x509_privkey_import2(key, &datum, GNUTLS_X509_FMT_PEM, nullptr, 0), keyText.name(), error)) {
        return false;
    }
    name_ = chainText.name() + ", " + keyText.name();
    warnOfTime(chain_.first(), chainText.name());
    return true;
}

bool LoadedPair::addTo(gnutls_certificate_credentials_t credentials, std::string& error) const {
    return succeeded(gnutls_certificate_set_x509_key(credentials, chain_.certificates(), chain_.size(), key_.get()),
                     name_, error);
}

std::vector<std::string> LoadedPair::wildcards() const {
    std::vector<std::string> found;
    std::array<char, MostNameBytes> name{};
    for (unsigned int i = 0;; ++i) {
        std::size_t size = name.size();
        const int type = gnutls_x509_crt_get_subject_alt_name(chain_.first(), i, name.data(), &size, nullptr);
        if (type < 0 && type != GNUTLS_E_SHORT_MEMORY_BUFFER) {
            return found;
        }
        if (type == GNUTLS_SAN_DNSNAME && std::string_view(name.data(), size).starts_with(Wildcard)) {
            found.push_back(lowerCase({name.data(), size}));
        }
    }
}

class GnutlsCredentials final : public TlsCredentials {
public:
    bool load(const TlsSettings& settings, std::string& error);

    const char* prepare(void* session) const noexcept override;
    bool isVerificationRequired() const override { return clientCertificates_ == ClientCertificates::Required; }
    TlsPeerData peerOf(void* session) const override;

private:
    using Pairs = std::vector<std::unique_ptr<LoadedPair>>;

    bool loadPriorities(const std::string& wanted, std::string& error);
    /// Those that are for a host come first.
    static CertificateCredentials assemble(const Pairs& pairs, const std::string& host, const TlsSettings& settings,
                                           std::string& error);
    int prepareSession(gnutls_session_t session) const noexcept;
    /// For gnutls_handshake_set_post_client_hello_function().
    static int chooseCertificates(gnutls_session_t session) noexcept;

    CertificateCredentials certificates_;
    /// GnuTLS looks for a client's host by its whole name, and else takes the first certificate that fits. So there are
    /// others, with another first one, for the hosts of each wildcard.
    std::map<std::string, CertificateCredentials, std::less<>> certificatesOfWildcards_;
    Priorities priorities_;
    SecretBytes ticketKey_;
    ClientCertificates clientCertificates_ = ClientCertificates::None;
};

bool GnutlsCredentials::load(const TlsSettings& settings, std::string& error) {
    if (settings.pairs.empty()) {
        error = "There is no certificate";
        return false;
    }
    clientCertificates_ = settings.clientCertificates;
    if (isVerificationRequired() && settings.trusted.empty()) {
        error = "Certificates of clients are required, but none is trusted";
        return false;
    }
    Pairs pairs;
    for (const TlsSettings::Pair& pair : settings.pairs) {
        pairs.push_back(std::make_unique<LoadedPair>());
        if (!pairs.back()->load(pair, std::to_string(pairs.size()), error)) {
            return false;
        }
    }
    certificates_ = assemble(pairs, {}, settings, error);
    if (!certificates_) {
        return false;
    }
    for (const auto& pair : pairs) {
        for (const std::string& wildcard : pair->wildcards()) {
            CertificateCredentials& certificates = certificatesOfWildcards_[wildcard];
            if (!certificates) {
                certificates = assemble(pairs, "any" + wildcard.substr(1), settings, error);
            }
            if (!certificates) {
                return false;
            }
        }
    }
    return loadPriorities(settings.priorities, error) &&
           (!settings.resumption ||
            succeeded(gnutls_session_ticket_key_generate(&ticketKey_.datum), "key of tickets", error));
}

CertificateCredentials GnutlsCredentials::assemble(const Pairs& pairs, const std::string& host,
                                                   const TlsSettings& settings, std::string& error) {
    gnutls_certificate_credentials_t allocated = nullptr;
    if (!succeeded(gnutls_certificate_allocate_credentials(&allocated), "certificates", error)) {
        return nullptr;
    }
    CertificateCredentials credentials(allocated);
    for (const bool isFor : {true, false}) {
        for (const auto& pair : pairs) {
            if (pair->isFor(host) == isFor && !pair->addTo(allocated, error)) {
                return nullptr;
            }
        }
    }
    std::size_t number = 0;
    for (const PemSource& source : settings.trusted) {
        PemText text(source, "trusted certificates " + std::to_string(++number));
        if (!text.load(error)) {
            return nullptr;
        }
        const gnutls_datum_t datum = text.datum();
        const int count = gnutls_certificate_set_x509_trust_mem(allocated, &datum, GNUTLS_X509_FMT_PEM);
        if (!succeeded(count == 0 ? GNUTLS_E_NO_CERTIFICATE_FOUND : count, text.name(), error)) {
            return nullptr;
        }
    }
    return credentials;
}

bool GnutlsCredentials::loadPriorities(const std::string& wanted, std::string& error) {
    const std::string subject = "priorities \"" + wanted + '"';
    gnutls_priority_t priorities = nullptr;
    if (!succeeded(gnutls_priority_init(&priorities, wanted.empty() ? DefaultPriorities : wanted.c_str(), nullptr),
                   subject, error)) {
        return false;
    }
    priorities_.reset(priorities);
    const unsigned int* versions = nullptr;
    const int count = gnutls_priority_protocol_list(priorities, &versions);
    for (int i = 0; i < count; ++i) {
        // A version of TLS over datagrams does no harm here.
        if (versions[i] < GNUTLS_TLS1_2) {
            error = subject + " : they allow less than TLS 1.2";
            return false;
        }
    }
    return true;
}

const char* GnutlsCredentials::prepare(void* session) const noexcept {
    const int result = prepareSession(static_cast<gnutls_session_t>(session));
    return result < 0 ? gnutls_strerror(result) : nullptr;
}

int GnutlsCredentials::prepareSession(gnutls_session_t session) const noexcept {
    int result = gnutls_priority_set(session, priorities_.get());
    if (result < 0) {
        return result;
    }
    const gnutls_datum_t protocol = datumOf(Protocol);
    result = gnutls_alpn_set_protocols(session, &protocol, 1, GNUTLS_ALPN_MANDATORY);
    if (result < 0) {
        return result;
    }
    if (ticketKey_.datum.data != nullptr) {
        result = gnutls_session_ticket_enable_server(session, &ticketKey_.datum);
        if (result < 0) {
            return result;
        }
    }
    // Nothing else uses this pointer, since no sessions are stored; the other one is the engine's.
    gnutls_db_set_ptr(session, const_cast<GnutlsCredentials*>(this));
    gnutls_handshake_set_post_client_hello_function(session, &chooseCertificates);
    switch (clientCertificates_) {
    case ClientCertificates::None:
        break;
    case ClientCertificates::Asked:
        gnutls_certificate_server_set_request(session, GNUTLS_CERT_REQUEST);
        break;
    case ClientCertificates::Required:
        gnutls_certificate_server_set_request(session, GNUTLS_CERT_REQUIRE);
        gnutls_session_set_verify_function(session, verifyClient);
        break;
    }
    // The last, since without it there is no handshake.
    return gnutls_credentials_set(session, GNUTLS_CRD_CERTIFICATE, certificates_.get());
}

int GnutlsCredentials::chooseCertificates(gnutls_session_t session) noexcept {
    const auto& self = *static_cast<const GnutlsCredentials*>(gnutls_db_get_ptr(session));
    try {
        const std::string host = lowerCase(serverNameOf(session));
        const std::size_t dot = host.find('.');
        if (dot == std::string::npos) {
            return 0;
        }
        const auto found = self.certificatesOfWildcards_.find('*' + host.substr(dot));
        return found == self.certificatesOfWildcards_.end()
                   ? 0
                   : gnutls_credentials_set(session, GNUTLS_CRD_CERTIFICATE, found->second.get());
    } catch (...) {
        return GNUTLS_E_MEMORY_ERROR;
    }
}

TlsPeerData GnutlsCredentials::peerOf(void* session) const {
    return peerOfSession(static_cast<gnutls_session_t>(session));
}

/// A gnutls_certificate_retrieve_function2.
int findNoCertificate(gnutls_session_t /*session*/, const gnutls_datum_t* /*authorities*/, int /*authorityCount*/,
                      const gnutls_pk_algorithm_t* /*algorithms*/, int /*algorithmCount*/, gnutls_pcert_st** /*chain*/,
                      unsigned int* /*chainLength*/, gnutls_privkey_t* /*key*/) noexcept {
    return -1;
}

} // namespace

void* certificateOfNobody() {
    return reinterpret_cast<void*>(&findNoCertificate);
}

std::shared_ptr<const TlsCredentials> TlsCredentials::Create(const TlsSettings& settings, std::string& error) {
    auto credentials = std::make_shared<GnutlsCredentials>();
    return credentials->load(settings, error) ? credentials : nullptr;
}

} // namespace ql::impl
