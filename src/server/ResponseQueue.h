// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <microhttpd.h>

namespace ql {
class HttpResponseInterface;
}

namespace ql::http {

/// Owns a response object of the engine. The engine holds a reference of its own once the response is queued.
class EngineResponse {
public:
    explicit EngineResponse(MHD_Response* response) : response_(response) {}
    ~EngineResponse();
    EngineResponse(const EngineResponse&) = delete;
    EngineResponse& operator=(const EngineResponse&) = delete;

    /// Adds a header. What the engine refuses, such as a value with a line end, is left out and logged.
    void addHeader(const std::string& name, const std::string& value);

    /// Adds the headers and cookies of a response description.
    /// @return estimate of the bytes they take.
    std::uint64_t addHeadersAndCookies(const HttpResponseInterface& description);

    /// @return MHD_NO, which makes the engine close the connection, when there is no response or it was refused.
    MHD_Result queue(MHD_Connection* connection, std::uint32_t status);

private:
    MHD_Response* response_;
};

/// A response that the library makes itself.
/// @param body must live until the daemon has stopped: it is not copied.
EngineResponse makeFixedResponse(std::string_view body);

} // namespace ql::http
