#include "tls/TlsTransport.h"

#include <cerrno>
#include <utility>

#include <gnutls/gnutls.h>
#include <sys/socket.h>

namespace ql::impl {

struct TlsTransport::Calls {
    static ssize_t pull(gnutls_transport_ptr_t transport, void* data, std::size_t size) noexcept {
        auto& self = *static_cast<TlsTransport*>(transport);
        const ssize_t received = ::recv(self.socket(), data, size, MSG_DONTWAIT);
        if (received >= 0) {
            self.hasAskedInVain_ = false;
        } else if (errno == EAGAIN) {
            self.waitForClient();
            errno = EAGAIN;
        }
        return received;
    }

    /// A message of which a handshake has one from each side.
    static int finish(gnutls_session_t session, unsigned int /*type*/, unsigned int /*when*/, unsigned int isIncoming,
                      const gnutls_datum_t* /*message*/) noexcept {
        if (isIncoming != 0) {
            static_cast<TlsTransport*>(gnutls_transport_get_ptr(session))->isInHandshake_ = false;
        }
        return 0;
    }

    // Who cannot send is not put aside: sessions send while the engine is closing their connections, too.
    static ssize_t push(gnutls_transport_ptr_t transport, const giovec_t* pieces, int count) noexcept {
        msghdr message{};
        message.msg_iov = const_cast<giovec_t*>(pieces);
        message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
        return ::sendmsg(static_cast<TlsTransport*>(transport)->socket(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    }
};

void TlsTransport::carry(void* session, const Handshake& handshake, HandshakeWatch& watch) noexcept {
    handshake_ = handshake;
    watch_ = &watch;
    auto* const carried = static_cast<gnutls_session_t>(session);
    gnutls_transport_set_ptr(carried, this);
    gnutls_transport_set_pull_function(carried, &Calls::pull);
    gnutls_transport_set_vec_push_function(carried, &Calls::push);
    gnutls_handshake_set_hook_function(carried, GNUTLS_HANDSHAKE_FINISHED, GNUTLS_HOOK_POST, &Calls::finish);
}

void TlsTransport::waitForClient() noexcept {
    // Who is about to go on anyway is spared the way to another thread and back.
    if (isInHandshake_ && std::exchange(hasAskedInVain_, true)) {
        (void)watch_->putAside(handshake_);
    }
}

} // namespace ql::impl
