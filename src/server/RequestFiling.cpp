#include "server/RequestFiling.h"

#include "engine/ConnectionTracking.h"
#include "frame/ExceptionLog.h"
#include "request/LineIntake.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "request/StrictIntake.h"
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
        fileLines(request, head.method, std::move(verdict.target), head.fields, verdict.authority);
    }
}

/// The application must see that something is missing.
void noteMissingMemory(HttpBaseRequest& request) {
    // So short a text takes no memory.
    RequestAccess::setParseError(request, HttpBaseRequest::ParseErrorKind::Memory, {}, "out of memory");
    logCurrentException("request intake", "httpserver");
}

} // namespace

void fileHead(HttpBaseRequest& request, EngineConnection connection, http::ServerOptions::Filing filing,
              const char* method, std::string&& target, StrictHead* strict) {
    request.setClientAddress(connection.clientAddress());
    if (const ConnectionRecord* const record = connection.record()) {
        RequestAccess::state(request).tlsPeer = record->tls.peer();
    }
    if (filing == http::ServerOptions::Filing::Lines) {
        try {
            fileAsItCame(request, connection, method, std::move(target), strict);
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
