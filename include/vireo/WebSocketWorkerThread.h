// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/Reserve.h"
#include "vireo/support/qlThread.h"

#include <memory>

namespace ql::http {

class WebSocketThread;

/// One worker of a pool: takes connections out of the ready queue one at a time, sends what they have queued, reads
/// and delivers one frame, and gives them back. WebSocketThread::startThreads() makes them.
class VIREO_API WebSocketWorkerThread : public qlThread {
public:
    /// Starts the thread at once. A class derived from this one has nothing to override: the thread runs before the
    /// derived part exists.
    /// @param owner the pool, which must outlive this object.
    /// @throws std::system_error when the system has no thread to give.
    explicit WebSocketWorkerThread(WebSocketThread* owner);

    /// Waits for the thread, which ends when the pool stops: stop the pool first.
    ~WebSocketWorkerThread() override;

    WebSocketWorkerThread(const WebSocketWorkerThread&) = delete;
    WebSocketWorkerThread& operator=(const WebSocketWorkerThread&) = delete;

    /// The worker loop, on the thread of this object. Returns when the pool stops. What a connection throws ends that
    /// connection and is logged (type 5).
    void run() override;

private:
    /// Constant.
    WebSocketThread* const owner_;
    std::unique_ptr<impl::Reserve> reserve_;
};

} // namespace ql::http
