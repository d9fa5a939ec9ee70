#include "server/ClientLife.h"

#include "frame/ExceptionLog.h"
#include "server/ClientConnection.h"
#include "server/EventServing.h"
#include "server/RequestContext.h"
#include "vireo/support/qlLog.h"

#include <memory>
#include <utility>

namespace ql::impl {

namespace {

bool isLogged() {
    const qlLog* const log = qlLog::msInstance;
    return log != nullptr && log->isVerbose();
}

} // namespace

void beginOrEndClient(EventServing& serving, EngineConnection connection, void*& slot, bool started) noexcept {
    try {
        if (started) {
            serving.admissions.begin(connection.socket());
            ClientConnection* const client = serving.connections.add(connection).get();
            slot = static_cast<ConnectionRecord*>(client);
            serving.watch.add(*client);
            if (!serving.observers.empty()) {
                client->ends = connection.ends();
            }
            if (isLogged()) {
                logStarted(*client);
            }
            return;
        }
        serving.admissions.leave(connection.socket());
        auto* const record = static_cast<ConnectionRecord*>(std::exchange(slot, nullptr));
        if (record == nullptr) {
            return;
        }
        auto& client = static_cast<ClientConnection&>(*record);
        if (isLogged()) {
            logClosed(client);
        }
        serving.watch.remove(client);
        if (client.wasAnsweredEarly()) {
            serving.watch.linger(client);
        }
        serving.connections.remove(client);
    } catch (...) {
        logCurrentException("connection tracking", "httpserver");
    }
}

void endUpgradedClient(RequestContext& context) noexcept {
    if (context.client != nullptr) {
        context.serving->watch.remove(*context.client);
        context.client->setAnsweredEarly(false);
        context.client->close();
    }
}

} // namespace ql::impl
