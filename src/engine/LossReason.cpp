#include "engine/LossReason.h"

namespace ql::impl {

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

http::ExchangeRecord::Ending endingOf(MHD_RequestTerminationCode code) {
    using Ending = http::ExchangeRecord::Ending;
    switch (code) {
    case MHD_REQUEST_TERMINATED_COMPLETED_OK:
        return Ending::Completed;
    case MHD_REQUEST_TERMINATED_WITH_ERROR:
        return Ending::WriteError;
    case MHD_REQUEST_TERMINATED_TIMEOUT_REACHED:
        return Ending::IdleTimeout;
    case MHD_REQUEST_TERMINATED_DAEMON_SHUTDOWN:
        return Ending::ServerStopped;
    case MHD_REQUEST_TERMINATED_READ_ERROR:
        return Ending::ReadError;
    case MHD_REQUEST_TERMINATED_CLIENT_ABORT:
        return Ending::ClientLeft;
    }
    return Ending::Completed;
}

} // namespace ql::impl
