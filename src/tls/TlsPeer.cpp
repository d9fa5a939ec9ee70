#include "vireo/TlsPeer.h"

#include "tls/TlsPeerData.h"

#include <utility>

namespace ql::http {

TlsPeer::TlsPeer(impl::TlsPeerData&& data) : data_(std::make_unique<const impl::TlsPeerData>(std::move(data))) {}
TlsPeer::~TlsPeer() = default;

const std::string& TlsPeer::getVersion() const {
    return data_->version;
}

const std::string& TlsPeer::getCipher() const {
    return data_->cipher;
}

bool TlsPeer::isResumed() const {
    return data_->isResumed;
}

const std::string& TlsPeer::getServerName() const {
    return data_->serverName;
}

bool TlsPeer::hasCertificate() const {
    return data_->hasCertificate;
}

bool TlsPeer::isVerified() const {
    return data_->isVerified;
}

const std::string& TlsPeer::getSubject() const {
    return data_->subject;
}

const std::string& TlsPeer::getFingerprint() const {
    return data_->fingerprint;
}

} // namespace ql::http
