#include "engine/StartFailure.h"

#include <cerrno>

namespace ql::impl {

http::HttpServer::StartError startFailure(int systemError) {
    using StartError = http::HttpServer::StartError;
    switch (systemError) {
    case EADDRINUSE:
        return StartError::AddressInUse;
    case EADDRNOTAVAIL:
        return StartError::AddressNotAvailable;
    case EACCES:
    case EPERM:
        return StartError::PermissionDenied;
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
    case EAGAIN:
        return StartError::OutOfResources;
    default:
        return StartError::Engine;
    }
}

} // namespace ql::impl
