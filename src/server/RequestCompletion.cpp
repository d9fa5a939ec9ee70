#include "server/RequestCompletion.h"

#include "frame/ExceptionLog.h"
#include "request/Misuse.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/support/qlSystemUtils.h"

namespace ql::http {

namespace {

/// Why a response was cut short; null when it was not.
const char* lossReason(MHD_RequestTerminationCode code) {
    switch (code) {
    case MHD_REQUEST_TERMINATED_COMPLETED_OK:
        return nullptr;
    case MHD_REQUEST_TERMINATED_WITH_ERROR:
        return "WriteError";
    case MHD_REQUEST_TERMINATED_TIMEOUT_REACHED:
        return "TimeoutReached";
    case MHD_REQUEST_TERMINATED_DAEMON_SHUTDOWN:
        return "DaemonShutdown";
    case MHD_REQUEST_TERMINATED_READ_ERROR:
        return "ReadError";
    case MHD_REQUEST_TERMINATED_CLIENT_ABORT:
        return "ClientAbort";
    }
    return nullptr;
}

} // namespace

void completeRequest(HttpServer& server, HttpBaseRequest& request, MHD_RequestTerminationCode code) noexcept {
    impl::nameMissingRelease(request, qlSystemUtils::GetTimeBaseMs());
    HttpResponseDevice& device = request.editInternalResponseDevice();
    const qlMutexLocker locker(device.getLock());
    // Once the request is scheduler-done the application may delete it at any time. Its destructor stops at the
    // device's lock, held here: the device is safe to use until the end of this scope, the request is not.
    request.setSchedulerDone();
    try {
        server.getHttpImplementation()->notifyScheduler();
    } catch (...) {
        impl::logCurrentException("notifyScheduler", "httpserver");
    }
    if (const char* const reason = lossReason(code)) {
        try {
            device.setConnectionLost(reason);
        } catch (...) {
            impl::logCurrentException("completion of a request", "httpserver");
        }
    }
}

} // namespace ql::http
