#include "engine/StartFailure.h"

#include "vireo/support/SystemError.h"

#include <cerrno>

namespace ql::impl {

namespace {

using StartError = http::HttpServer::StartError;

StartError startError(int systemError) {
    switch (systemError) {
    case EADDRINUSE:
        return StartError::AddressInUse;
    case EADDRNOTAVAIL:
    case EAFNOSUPPORT:
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
    case EINVAL: // an address that wants a link to be named
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
        return StartError::InvalidAddress;
    default:
        return StartError::Engine;
    }
}

} // namespace

StartFailure systemFailure(int systemError) {
    return {startError(systemError), SystemError(systemError).toString()};
}

} // namespace ql::impl
