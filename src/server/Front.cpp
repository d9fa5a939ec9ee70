#include "server/Front.h"

#include "engine/ConnectionTracking.h"
#include "engine/PeerEnd.h"
#include "frame/ExceptionLog.h"
#include "server/ClientLife.h"
#include "vireo/support/qlLog.h"

#include <cstddef>
#include <optional>

namespace ql::impl {

namespace {

constexpr const char* LogTag = "httpserver";

/// What is not prepared does not come to a handshake: closing it at once spares its client the wait.
void beginTls(const http::TlsContext& context, EngineConnection connection, ConnectionRecord& record,
              HandshakeWatch& watch) noexcept {
    try {
        const char* const error = record.tls.begin(context, connection, watch);
        if (error == nullptr) {
            return;
        }
        qlLogObject(qlLogType::Failure, LogTag) << "Cannot begin a session of TLS : " << error;
    } catch (...) {
        logCurrentException("a session of TLS", LogTag);
    }
    shutSocket(connection.socket());
}

} // namespace

void beginOrEndConnection(Front& front, EngineConnection connection, void*& slot, bool started) noexcept {
    const http::TlsContext* tls = nullptr;
    if (started) {
        const std::optional<std::size_t> listener = front.admissions.begin(connection.socket());
        if (listener) {
            tls = front.tls[*listener].get();
        } else {
            // Nobody knows what its listener would ask of it.
            shutSocket(connection.socket());
        }
    } else {
        front.admissions.leave(connection.socket());
    }
    if (front.serving != nullptr) {
        beginOrEndClient(*front.serving, connection, slot, started);
    } else {
        trackConnection(slot, started, isTrackingLogged());
    }
    if (tls != nullptr && slot != nullptr) {
        beginTls(*tls, connection, *static_cast<ConnectionRecord*>(slot), front.handshakes);
    }
}

} // namespace ql::impl
