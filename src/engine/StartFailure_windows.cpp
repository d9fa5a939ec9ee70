#include "engine/StartFailure.h"

#include "vireo/support/SystemError.h"

#include <NativeSockets.h>

namespace ql::impl {

namespace {

using StartError = http::HttpServer::StartError;

StartError startError(int systemError) {
    switch (systemError) {
    case WSAEADDRINUSE:
        return StartError::AddressInUse;
    case WSAEADDRNOTAVAIL:
    case WSAEAFNOSUPPORT:
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

} // namespace

StartFailure systemFailure(int systemError) {
    return {startError(systemError), SystemError(systemError).toString()};
}

} // namespace ql::impl
