#include "server/RequestContext.h"

#include "server/ClientConnection.h"
#include "server/EventServing.h"
#include "server/Front.h"
#include "server/UncompletedRequests.h"

namespace ql::impl {

RequestContext::RequestContext(const char* uri, Front& of, ConnectionRecord* record) : RequestContext(uri) {
    front = &of;
    serving = of.serving;
    if (serving == nullptr || record == nullptr) {
        return;
    }
    client = static_cast<ClientConnection*>(record);
    client->context = this;
    if (!serving->observers.empty()) {
        recording.emplace(*client, fullUrl);
    }
}

RequestContext::~RequestContext() {
    if (client != nullptr) {
        client->context = nullptr;
    }
    noteCompleted(*this);
}

} // namespace ql::impl
