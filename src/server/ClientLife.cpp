#include "server/ClientLife.h"

#include "engine/ConnectionTracking.h"
#include "engine/Listener.h"
#include "engine/OwnSocket.h"
#include "engine/PeerEnd.h"
#include "frame/ExceptionLog.h"
#include "server/ClientConnection.h"
#include "server/EventServing.h"
#include "server/ExchangeRecording.h"
#include "server/RequestContext.h"

#include <memory>
#include <utility>

namespace ql::impl {

namespace {

/// A head without so much as its first line had no exchange that would be told of.
void tellOfLateHead(EventServing& serving, ClientConnection& client) noexcept {
    if (!client.takeHeadLate() || serving.observers.empty()) {
        return;
    }
    try {
        ExchangeRecording recording(client, {});
        recording.noteCut(CutReason::HeadTimeout);
        recording.finish(serving.observers, http::ExchangeRecord::Ending::HeadTimeout, 0);
    } catch (...) {
        logCurrentException("the record of an exchange", "httpserver");
    }
}

/// From here on nobody but the engine touches the descriptor.
/// @return the connection, which is not in the table any more.
std::shared_ptr<ClientConnection> letGo(EventServing& serving, ClientConnection& client) noexcept {
    serving.watch.remove(client);
    // Who has ended its session has sent that, and nobody has read it.
    const bool hasEndedSession = client.tls.isOn() && client.requestCount != 0 && unreadBytes(client.socket()) != 0;
    if (client.wasAnsweredEarly() || hasEndedSession) {
        serving.watch.linger(client);
    }
    return serving.connections.remove(client);
}

} // namespace

void beginOrEndClient(EventServing& serving, EngineConnection connection, void*& slot, bool started) noexcept {
    try {
        if (started) {
            ClientConnection* const client = serving.connections.add(connection).get();
            slot = static_cast<ConnectionRecord*>(client);
            serving.watch.add(*client);
            if (!serving.observers.empty()) {
                client->ends = connection.ends();
            }
            if (isTrackingLogged()) {
                logStarted(*client);
            }
            return;
        }
        auto* const record = static_cast<ConnectionRecord*>(std::exchange(slot, nullptr));
        if (record == nullptr) {
            return;
        }
        const std::shared_ptr<ClientConnection> client = letGo(serving, static_cast<ClientConnection&>(*record));
        tellOfLateHead(serving, *client);
        if (isTrackingLogged()) {
            logClosed(*client);
        }
    } catch (...) {
        logCurrentException("connection tracking", "httpserver");
        if (started) {
            // The engine takes a connection that it has announced.
            shutSocket(connection.socket());
        }
    }
}

void endUpgradedClient(RequestContext& context, std::uint64_t socket) noexcept {
    if (context.client == nullptr) {
        return;
    }
    ClientConnection& client = *context.client;
    client.setAnsweredEarly(false);
    context.serving->connections.noteUpgrade(client);
    if (client.tls.isOn()) {
        client.handOver(OwnSocket::DuplicateOf(socket));
    } else {
        context.serving->watch.remove(client);
        client.close();
    }
}

} // namespace ql::impl
