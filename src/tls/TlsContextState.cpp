#include "tls/TlsContextState.h"

#include "tls/TlsCredentials.h"

#include <utility>

namespace ql::impl {

bool TlsContextState::load(const TlsSettings* settings, std::string& error) {
    const qlMutexLocker loading(loading_);
    TlsSettings wanted = settings == nullptr ? settings_ : *settings;
    std::shared_ptr<const TlsCredentials> fresh = TlsCredentials::Create(wanted, error);
    if (!fresh) {
        return false;
    }
    settings_ = std::move(wanted);
    // The former ones are destroyed behind the lock.
    const qlMutexLocker locker(mutex_);
    credentials_.swap(fresh);
    return true;
}

std::shared_ptr<const TlsCredentials> TlsContextState::credentials() {
    const qlMutexLocker locker(mutex_);
    return credentials_;
}

} // namespace ql::impl
