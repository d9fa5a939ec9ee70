#include "vireo/HttpServerImpl.h"

#include "engine/EngineCallbacks.h"
#include "engine/EngineLog.h"

#include <utility>

namespace ql::http {

HttpServerImpl::HttpServerImpl() = default;
HttpServerImpl::~HttpServerImpl() = default;

void HttpServerImpl::setDefaultInternalError(std::string text) {
    defaultInternalError_ = std::move(text);
}

void* HttpServerImpl::GetHttpCallback() {
    return reinterpret_cast<void*>(&impl::onAccess);
}

void* HttpServerImpl::GetRequestCompletedCallback() {
    return reinterpret_cast<void*>(&impl::onRequestCompleted);
}

void* HttpServerImpl::GetUriLogCallback() {
    return reinterpret_cast<void*>(&impl::onUri);
}

void* HttpServerImpl::GetLogFunction() {
    return reinterpret_cast<void*>(&impl::relayEngineMessage);
}

void* HttpServerImpl::GetConnectionCallback() {
    return reinterpret_cast<void*>(&impl::onConnection);
}

} // namespace ql::http
