#include "engine/StartFailure.h"

#include <NativeSockets.h>

namespace ql::impl {

http::HttpServer::StartError startFailure(int systemError) {
    using StartError = http::HttpServer::StartError;
    switch (systemError) {
    case WSAEADDRINUSE:
        return StartError::AddressInUse;
    case WSAEADDRNOTAVAIL:
        return StartError::AddressNotAvailable;
    case WSAEACCES:
        return StartError::PermissionDenied;
    case WSAEMFILE:
    case WSAENOBUFS:
        return StartError::OutOfResources;
    default:
        return StartError::Engine;
    }
}

} // namespace ql::impl
