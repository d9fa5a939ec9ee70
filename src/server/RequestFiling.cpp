#include "server/RequestFiling.h"

#include "engine/ConnectionTracking.h"
#include "frame/ExceptionLog.h"
#include "request/LineIntake.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "request/StrictIntake.h"
#include "server/ClientConnection.h"
#include "vireo/HttpBaseRequest.h"

#include <optional>
#include <utility>

namespace ql::impl {

namespace {

/// Files a header, cookie or query parameter.
void fileValue(HttpBaseRequest& request, ValueKind kind, const char* name, const char* value) {
    switch (kind) {
    case ValueKind::Header:
        request.addHeader(name, value == nullptr ? "" : value);
        break;
    case ValueKind::Cookie:
        request.addCookie(name, value);
        break;
    case ValueKind::QueryParameter:
        request.addQueryParameter(name, value);
        break;
    }
}

void fileAsItCame(HttpBaseRequest& request, EngineConnection connection, const char* method, std::string&& target,
                  StrictHead* strict) {
    if (strict == nullptr) {
        fileLines(request, method, std::move(target), connection.headers(), std::nullopt);
    } else {
        auto& [head, verdict] = *strict;
        fileLines(request, head.method, std::move(verdict.target), std::move(head.fields), verdict.authority);
    }
}

/// Has what is parsed of a head made when somebody asks.
void prepareParsing(HttpBaseRequest& request, bool isStrict) {
    if (!isStrict && request.getRequestType() == HttpBaseRequest::RequestType::Unknown) {
        RequestAccess::setParseError(request, HttpBaseRequest::ParseErrorKind::Method, {}, "Unexpected HTTP method");
    }
    RequestAccess::state(request).isHeadUnparsed.store(true, std::memory_order_relaxed);
}

void noteMissingMemory(HttpBaseRequest& request) {
    RequestAccess::setMemoryError(request);
    logCurrentException("request intake", "httpserver");
}

} // namespace

void fileHead(HttpBaseRequest& request, EngineConnection connection, const ClientConnection* client,
              http::ServerOptions::Filing filing, const char* method, std::string&& target, StrictHead* strict) {
    request.setClientAddress(client != nullptr ? client->clientAddress() : connection.clientAddress());
    if (const ConnectionRecord* const record = connection.record()) {
        RequestAccess::state(request).tlsPeer = record->tls.peer();
    }
    if (filing != http::ServerOptions::Filing::Maps) {
        try {
            fileAsItCame(request, connection, method, std::move(target), strict);
            if (filing == http::ServerOptions::Filing::OnDemand) {
                prepareParsing(request, strict != nullptr);
            }
        } catch (...) {
            noteMissingMemory(request);
        }
        return;
    }
    if (strict != nullptr) {
        try {
            fileStrictHead(request, std::move(*strict));
        } catch (...) {
            noteMissingMemory(request);
        }
        return;
    }
    connection.visitValues([&request](ValueKind kind, const char* name, const char* value) {
        try {
            fileValue(request, kind, name, value);
        } catch (...) {
            noteMissingMemory(request);
        }
    });
    request.setHttpMethod(method);
    request.setOriginalFullUrl(std::move(target));
}

} // namespace ql::impl
