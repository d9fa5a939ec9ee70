#include "tls/TlsHandshake.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace vireotest {

TlsHandshake::TlsHandshake(const ql::impl::TlsCredentials& credentials, const TlsWishes& wishes)
    : credentials_(credentials),
      client_(wishes),
      clientEnd_{client_.handle(), toClient_, toServer_},
      serverEnd_{nullptr, toServer_, toClient_} {
    gnutls_init(&server_, GNUTLS_SERVER | GNUTLS_NONBLOCK);
    serverEnd_.session = server_;
    if (const char* const error = credentials.prepare(server_)) {
        throw std::runtime_error(error);
    }
    connect(clientEnd_);
    connect(serverEnd_);
    run();
}

TlsHandshake::~TlsHandshake() {
    gnutls_deinit(server_);
}

std::string TlsHandshake::ticket() {
    std::array<char, 1> byte{};
    gnutls_record_recv(client_.handle(), byte.data(), byte.size());
    return client_.ticket();
}

void TlsHandshake::connect(End& end) {
    gnutls_transport_set_ptr(end.session, &end);
    gnutls_transport_set_push_function(end.session, &push);
    gnutls_transport_set_pull_function(end.session, &pull);
}

void TlsHandshake::run() {
    const auto isUnderWay = [](int result) { return result < 0 && gnutls_error_is_fatal(result) == 0; };
    const auto step = [&](gnutls_session_t session, int& result) {
        if (isUnderWay(result)) {
            result = gnutls_handshake(session);
        }
    };
    // A handshake takes a few flights.
    for (int flight = 0; flight < 20; ++flight) {
        step(client_.handle(), clientResult_);
        step(server_, serverResult_);
    }
}

ssize_t TlsHandshake::push(gnutls_transport_ptr_t end, const void* data, std::size_t size) {
    static_cast<End*>(end)->out.bytes.append(static_cast<const char*>(data), size);
    return static_cast<ssize_t>(size);
}

ssize_t TlsHandshake::pull(gnutls_transport_ptr_t end, void* data, std::size_t size) {
    End& self = *static_cast<End*>(end);
    if (self.in.bytes.empty()) {
        gnutls_transport_set_errno(self.session, EAGAIN);
        return -1;
    }
    const std::size_t taken = std::min(size, self.in.bytes.size());
    std::memcpy(data, self.in.bytes.data(), taken);
    self.in.bytes.erase(0, taken);
    return static_cast<ssize_t>(taken);
}

std::shared_ptr<const ql::impl::TlsCredentials> credentialsOf(const ql::http::TlsOptions& options) {
    std::string error;
    const auto context = ql::http::TlsContext::Create(options, &error);
    if (!context) {
        throw std::runtime_error(error);
    }
    return context->credentials();
}

} // namespace vireotest
