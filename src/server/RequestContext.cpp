#include "server/RequestContext.h"

#include "server/EventServing.h"

namespace ql::impl {

RequestContext::RequestContext(const char* uri, EventServing& of, ClientConnection* ofClient) : RequestContext(uri) {
    serving = &of;
    client = ofClient;
    if (client != nullptr && !serving->observers.empty()) {
        recording.emplace(*client, fullUrl);
    }
}

} // namespace ql::impl
