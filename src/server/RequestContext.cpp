#include "server/RequestContext.h"

#include "server/ClientConnection.h"
#include "server/EventServing.h"

namespace ql::impl {

RequestContext::RequestContext(const char* uri, EventServing& of, ClientConnection* ofClient) : RequestContext(uri) {
    serving = &of;
    client = ofClient;
    if (client == nullptr) {
        return;
    }
    client->context = this;
    if (!serving->observers.empty()) {
        recording.emplace(*client, fullUrl);
    }
}

RequestContext::~RequestContext() {
    if (client != nullptr) {
        client->context = nullptr;
    }
}

} // namespace ql::impl
