#include "server/ExchangeCut.h"

#include "engine/PeerEnd.h"
#include "request/RequestAccess.h"
#include "server/Exchange.h"
#include "server/RequestCompletion.h"
#include "streams/FeedAccess.h"
#include "vireo/HttpBaseRequest.h"

namespace ql::impl {

void cutExchange(ClientConnection& client, CutReason reason) noexcept {
    if (HttpBaseRequest* const request = client.request(); request != nullptr && client.exchange()->cut(reason)) {
        // First the way out, so that a worker whose reading fails does not write in vain. The daemon thread, which
        // learns of it here, comes no further than to the gate.
        HttpResponseDevice& device = request->editInternalResponseDevice();
        {
            const qlMutexLocker locker(device.getLock());
            reportLoss(device, cutWord(reason));
        }
        if (HttpReceiveDevice* const feed = RequestAccess::feedOfBody(*request)) {
            FeedAccess::fail(*feed, cutWord(reason));
        }
    }
    if (client.isOpen()) {
        // Where the connection is not suspended, this is what the engine notices.
        shutSocket(client.socket());
    }
}

} // namespace ql::impl
