#include "tls/TlsSettings.h"

#include <memory>
#include <utility>

namespace ql::http {

TlsOptions::TlsOptions() : settings_(std::make_unique<impl::TlsSettings>()) {}
TlsOptions::TlsOptions(const TlsOptions& other) : settings_(std::make_unique<impl::TlsSettings>(*other.settings_)) {}
TlsOptions::TlsOptions(TlsOptions&& other) noexcept = default;
TlsOptions& TlsOptions::operator=(TlsOptions&& other) noexcept = default;
TlsOptions::~TlsOptions() = default;

TlsOptions& TlsOptions::operator=(const TlsOptions& other) {
    return *this = TlsOptions(other);
}

void TlsOptions::addCertificate(std::string chainPem, std::string keyPem) {
    settings_->pairs.push_back({{std::move(chainPem), false}, {std::move(keyPem), false}});
}

void TlsOptions::addCertificateFiles(std::string chainFile, std::string keyFile) {
    settings_->pairs.push_back({{std::move(chainFile), true}, {std::move(keyFile), true}});
}

void TlsOptions::setClientCertificates(ClientCertificates wanted) {
    settings_->clientCertificates = wanted;
}

TlsOptions::ClientCertificates TlsOptions::getClientCertificates() const {
    return settings_->clientCertificates;
}

void TlsOptions::addTrusted(std::string pem) {
    settings_->trusted.push_back({std::move(pem), false});
}

void TlsOptions::addTrustedFile(std::string file) {
    settings_->trusted.push_back({std::move(file), true});
}

void TlsOptions::setPriorities(std::string priorities) {
    settings_->priorities = std::move(priorities);
}

const std::string& TlsOptions::getPriorities() const {
    return settings_->priorities;
}

void TlsOptions::setResumption(bool on) {
    settings_->resumption = on;
}

bool TlsOptions::isResumption() const {
    return settings_->resumption;
}

} // namespace ql::http
