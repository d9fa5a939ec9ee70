#include "tls/TlsTransport.h"

#include <cerrno>

#include <gnutls/gnutls.h>
#include <poll.h>
#include <sys/socket.h>

namespace ql::impl {

namespace {

/// How often bytes have moved on this thread, or a session has waited for that.
thread_local std::uint64_t happened = 1;

} // namespace

struct TlsTransport::Calls {
    static ssize_t pull(gnutls_transport_ptr_t transport, void* data, std::size_t size) noexcept {
        auto& self = *static_cast<TlsTransport*>(transport);
        ssize_t received = ::recv(self.socket_, data, size, MSG_DONTWAIT);
        if (received < 0 && errno == EAGAIN && self.awaitEvents()) {
            received = ::recv(self.socket_, data, size, MSG_DONTWAIT);
        }
        if (received >= 0) {
            ++happened;
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

    static ssize_t push(gnutls_transport_ptr_t transport, const giovec_t* pieces, int count) noexcept {
        msghdr message{};
        message.msg_iov = const_cast<giovec_t*>(pieces);
        message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
        const ssize_t sent =
            ::sendmsg(static_cast<TlsTransport*>(transport)->socket_, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0) {
            ++happened;
        }
        return sent;
    }
};

void TlsTransport::carry(void* session, std::uint64_t socket, int events, int patienceMs) noexcept {
    if (events < 0) {
        return;
    }
    socket_ = static_cast<int>(socket);
    events_ = events;
    patienceMs_ = patienceMs;
    auto* const carried = static_cast<gnutls_session_t>(session);
    gnutls_transport_set_ptr(carried, this);
    gnutls_transport_set_pull_function(carried, &Calls::pull);
    gnutls_transport_set_vec_push_function(carried, &Calls::push);
    gnutls_handshake_set_hook_function(carried, GNUTLS_HANDSHAKE_FINISHED, GNUTLS_HOOK_POST, &Calls::finish);
}

bool TlsTransport::awaitEvents() noexcept {
    // All others have had their turn since it was asked last, and none of them has waited.
    const bool isIdle = isInHandshake_ && seen_ == happened;
    if (isIdle) {
        pollfd entry{events_, POLLIN, 0};
        (void)::poll(&entry, 1, patienceMs_);
        ++happened;
    }
    seen_ = happened;
    return isIdle;
}

} // namespace ql::impl
