#include "tls/TlsConnection.h"

#include "engine/EngineConnection.h"
#include "tls/TlsCredentials.h"
#include "vireo/TlsContext.h"
#include "vireo/TlsPeer.h"
#include "vireo/support/qlSystemUtils.h"

namespace ql::impl {

const char* TlsConnection::begin(const http::TlsContext& context, EngineConnection connection, HandshakeWatch& watch) {
    credentials_ = context.credentials();
    void* const session = connection.tlsSession();
    if (session == nullptr) {
        return "the engine has none";
    }
    if (connection.isToldByEdges()) {
        transport_.carry(session, {connection, connection.socket(), qlSystemUtils::GetTimeBaseMs()}, watch);
    }
    return credentials_->prepare(session);
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
