// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "engine/Verdict.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace ql {
class HttpBaseRequest;
class HttpResponseInterface;
} // namespace ql

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

class EngineResponse;
class FileBody;
class ResponseWait;
struct RequestContext;
struct StrictHead;

/// Turns the engine's calls for one request into a request object, its body feed and its response. An object serves
/// one call, on the daemon thread that makes it.
class RequestDispatch {
public:
    /// @param wait what a response that is not there yet is waited for with, where the request has no exchange.
    RequestDispatch(http::HttpServer& server, EngineConnection connection, const char* method, const char* version,
                    ResponseWait& wait)
        : server_(server), connection_(connection), method_(method), version_(version), wait_(wait) {}

    /// Handles a call of the access handler: the first one of a request, one with body data, or one without, which
    /// asks for the response.
    /// @param slot the engine's per-request slot, which holds the RequestContext.
    Verdict handleCall(const char* data, std::size_t& dataSize, void*& slot) noexcept;

private:
    Verdict takeHead(RequestContext& context);
    /// @param strict null without strict HTTP.
    /// @return none for a request like others.
    std::optional<Verdict> answerUpgrade(RequestContext& context, const StrictHead* strict);
    /// @param strict null without strict HTTP.
    void createRequest(RequestContext& context, StrictHead* strict);
    void beginExchange(RequestContext& context);
    Verdict decideAtHead(RequestContext& context);
    void takeBody(HttpBaseRequest& request, const char* data, std::size_t size);
    bool takeBodyOfExchange(RequestContext& context, const char* data, std::size_t size);
    static void endBody(RequestContext& context, std::int64_t nowMs);

    Verdict answerWhenReady(RequestContext& context, std::int64_t nowMs);
    Verdict answer(RequestContext& context, HttpResponseInterface& description, std::int64_t nowMs);
    Verdict answerStream(RequestContext& context, HttpResponseInterface& description, bool bodyEnded);
    Verdict answerCopy(RequestContext& context, HttpResponseInterface& description, std::vector<char>&& body);
    Verdict answerFile(RequestContext& context, HttpResponseInterface& description, FileBody&& body);
    /// @param length of the body that it stands for; none when it says nothing of one.
    Verdict answerWithoutBody(RequestContext& context, const HttpResponseInterface& description,
                              std::optional<std::uint64_t> length);
    Verdict queue(RequestContext& context, const HttpResponseInterface& description, EngineResponse&& response);
    /// @param context null when it is lost.
    Verdict answerInternalError(RequestContext* context) noexcept;

    bool isStrict() const;
    bool isHead() const;
    ResponseWait& waitOf(const RequestContext& context);

    http::HttpServer& server_;
    const EngineConnection connection_;
    const char* const method_;
    const char* const version_;
    ResponseWait& wait_;
};

} // namespace ql::impl
