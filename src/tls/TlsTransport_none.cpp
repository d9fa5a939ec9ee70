#include "tls/TlsTransport.h"

namespace ql::impl {

// Without TLS nothing is carried, and without epoll no engine asks more often than its sockets are ready.
void TlsTransport::carry(void* /*session*/, const Handshake& /*handshake*/, HandshakeWatch& /*watch*/) noexcept {}

} // namespace ql::impl
