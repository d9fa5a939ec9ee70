#include "engine/EngineCallbacks.h"

#include "engine/ConnectionTracking.h"
#include "engine/EngineConnection.h"
#include "engine/LossReason.h"
#include "engine/ShutReminder.h"
#include "engine/UpgradeHandle.h"
#include "server/ClientConnection.h"
#include "server/ClientLife.h"
#include "server/EventServing.h"
#include "server/Front.h"
#include "server/RequestCompletion.h"
#include "server/RequestContext.h"
#include "server/RequestDispatch.h"
#include "server/UncompletedRequests.h"
#include "server/WebSocketHandshake.h"
#include "streams/DaemonCall.h"
#include "streams/PollingWait.h"
#include "vireo/HttpServer.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace ql::impl {

MHD_Result onAccess(void* server, MHD_Connection* connection, const char* /*url*/, const char* method,
                    const char* version, const char* uploadData, std::size_t* uploadDataSize,
                    void** requestSlot) noexcept {
    const DaemonCall call;
    RequestDispatch dispatch(*static_cast<http::HttpServer*>(server), EngineConnection(connection), method, version,
                             PollingWait::ofThisThread());
    return dispatch.handleCall(uploadData, *uploadDataSize, *requestSlot) == Verdict::Continue ? MHD_YES : MHD_NO;
}

void* onUri(void* /*closure*/, const char* uri, MHD_Connection* connection) noexcept {
    return onUriOfFront(nullptr, uri, connection);
}

void* onUriOfFront(void* front, const char* uri, MHD_Connection* connection) noexcept {
    try {
        const EngineConnection of(connection);
        auto context = front == nullptr
                           ? std::make_unique<RequestContext>(uri)
                           : std::make_unique<RequestContext>(uri, *static_cast<Front*>(front), of.record());
        if (context->serving == nullptr) {
            endUncompleted(of.socket());
            noteUncompleted(of.socket(), *context);
        }
        return context.release();
    } catch (...) {
        return &lostContext;
    }
}

void onRequestCompleted(void* server, MHD_Connection* connection, void** requestSlot,
                        MHD_RequestTerminationCode code) noexcept {
    const DaemonCall call;
    followUpgradeClosers();
    void* const slot = std::exchange(*requestSlot, nullptr);
    if (slot == &lostContext) {
        return;
    }
    const std::unique_ptr<RequestContext> context(static_cast<RequestContext*>(slot));
    if (!context) {
        return;
    }
    if (context->request != nullptr) {
        const char* const reason = completeExchange(*context, lossReason(code));
        completeRequest(*static_cast<http::HttpServer*>(server), *context->request, reason);
        tellOwner(*context, reason);
    }
    tellOfExchange(*context, EngineConnection(connection), endingOf(code));
}

void onConnection(void* /*closure*/, MHD_Connection* /*connection*/, void** socketSlot,
                  MHD_ConnectionNotificationCode code) noexcept {
    trackConnection(*socketSlot, code == MHD_CONNECTION_NOTIFY_STARTED, true);
}

void onConnectionOfFront(void* front, MHD_Connection* connection, void** socketSlot,
                         MHD_ConnectionNotificationCode code) noexcept {
    Front& of = *static_cast<Front*>(front);
    const bool started = code == MHD_CONNECTION_NOTIFY_STARTED;
    if (of.serving != nullptr && takeReminder(*of.serving, connection, started)) {
        return;
    }
    if (!started && of.serving == nullptr) {
        endUncompleted(EngineConnection(connection).socket());
    } else if (!started && *socketSlot != nullptr) {
        // The engine does not complete the request of a connection that it gives up because it cannot watch it, nor,
        // version 0.9.75, one that it refuses for a second reason.
        void* request = static_cast<ClientConnection*>(static_cast<ConnectionRecord*>(*socketSlot))->context;
        onRequestCompleted(&of.serving->server, connection, &request, MHD_REQUEST_TERMINATED_WITH_ERROR);
    }
    if (!started) {
        awaitUpgradeClosers(EngineConnection(connection).socket());
    }
    beginOrEndConnection(of, EngineConnection(connection), *socketSlot, started);
}

void onUpgrade(void* server, MHD_Connection* connection, void* requestSlot, const char* extraBytes,
               std::size_t extraByteCount, MHD_socket socket, MHD_UpgradeResponseHandle* handle) noexcept {
    const DaemonCall call;
    if (auto* const context = static_cast<RequestContext*>(requestSlot)) {
        endUpgradedClient(*context, static_cast<std::uint64_t>(socket));
    }
    const UpgradedSocket upgraded{static_cast<std::uint64_t>(socket),
                                  handle,
                                  {reinterpret_cast<const unsigned char*>(extraBytes), extraByteCount}};
    handOverUpgradedSocket(*static_cast<http::HttpServer*>(server), static_cast<RequestContext*>(requestSlot),
                           EngineConnection(connection), upgraded);
}

} // namespace ql::impl
