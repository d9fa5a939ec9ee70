// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <microhttpd.h>

namespace ql {
class HttpBaseRequest;
class HttpResponseInterface;
namespace impl {
class ResponseWait;
}
} // namespace ql

namespace ql::http {

class EngineResponse;
class HttpServer;
struct RequestContext;

/// Turns the engine's calls for one request into a request object, its body feed and its response. An object serves
/// one call, on the daemon thread that makes it.
class RequestDispatch {
public:
    /// @param wait what a response that is not there yet is waited for with.
    RequestDispatch(HttpServer& server, MHD_Connection* connection, impl::ResponseWait& wait)
        : server_(server), connection_(connection), wait_(wait) {}

    /// Handles a call of the access handler: the first one of a request, one with body data, or one without, which
    /// asks for the response.
    MHD_Result handleCall(const char* method, const char* version, const char* data, std::size_t& dataSize,
                          void*& slot) noexcept;

private:
    MHD_Result takeHead(RequestContext& context, const char* method, const char* version);
    void createRequest(RequestContext& context, const char* method);
    /// Files a header, cookie or query parameter in the request that `closure` is (MHD_KeyValueIterator).
    static MHD_Result FileConnectionValue(void* closure, MHD_ValueKind kind, const char* name,
                                          const char* value) noexcept;
    void takeBody(HttpBaseRequest& request, const char* data, std::size_t size);
    static void endBody(RequestContext& context, std::int64_t nowMs);

    MHD_Result answerWhenReady(RequestContext& context, std::int64_t nowMs);
    MHD_Result answer(HttpBaseRequest& request, HttpResponseInterface& description, std::int64_t nowMs);
    MHD_Result answerStream(HttpBaseRequest& request, HttpResponseInterface& description, bool bodyEnded);
    MHD_Result answerBuffer(HttpBaseRequest& request, HttpResponseInterface& description, std::vector<char>&& body);
    MHD_Result queue(HttpBaseRequest& request, const HttpResponseInterface& description, EngineResponse&& response);
    MHD_Result answerInternalError() noexcept;

    HttpServer& server_;
    MHD_Connection* const connection_;
    impl::ResponseWait& wait_;
};

} // namespace ql::http
