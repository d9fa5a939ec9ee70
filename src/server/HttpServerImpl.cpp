#include "vireo/HttpServerImpl.h"

#include "server/EngineCallbacks.h"
#include "server/EngineLog.h"

#include <utility>

namespace ql::http {

HttpServerImpl::HttpServerImpl() = default;
HttpServerImpl::~HttpServerImpl() = default;

void HttpServerImpl::setDefaultInternalError(std::string text) {
    defaultInternalError_ = std::move(text);
}

void* HttpServerImpl::GetHttpCallback() {
    return reinterpret_cast<void*>(&onAccess);
}

void* HttpServerImpl::GetRequestCompletedCallback() {
    return reinterpret_cast<void*>(&onRequestCompleted);
}

void* HttpServerImpl::GetUriLogCallback() {
    return reinterpret_cast<void*>(&onUri);
}

void* HttpServerImpl::GetLogFunction() {
    return reinterpret_cast<void*>(&relayEngineMessage);
}

void* HttpServerImpl::GetConnectionCallback() {
    return reinterpret_cast<void*>(&onConnection);
}

} // namespace ql::http
