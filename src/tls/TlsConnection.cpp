#include "tls/TlsConnection.h"

#include "tls/TlsCredentials.h"
#include "vireo/TlsContext.h"
#include "vireo/TlsPeer.h"

namespace ql::impl {

const char* TlsConnection::begin(const http::TlsContext& context, void* session) {
    credentials_ = context.credentials();
    return session == nullptr ? "the engine has none" : credentials_->prepare(session);
}

bool TlsConnection::meetPeer(void* session) {
    if (session == nullptr) {
        return false;
    }
    if (!peer_) {
        peer_ = std::make_shared<const http::TlsPeer>(credentials_->peerOf(session));
    }
    return peer_->isVerified() || !credentials_->isVerificationRequired();
}

} // namespace ql::impl
