// SPDX-License-Identifier: MIT
#pragma once

#include "engine/Verdict.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct MHD_Response;

namespace ql {
class HttpBaseRequest;
class HttpResponseInterface;
} // namespace ql

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

class EngineConnection;
class FileBody;

/// Owns a response object of the engine, or nothing when there was no memory for one. The engine holds a reference of
/// its own once the response is queued.
class EngineResponse {
public:
    /// Of a body that is copied.
    static EngineResponse OfCopy(const std::vector<char>& body);
    /// Of bytes that live until the exchange has ended: they are not copied.
    static EngineResponse OfText(std::string_view body);
    /// Of what the request's response device gives.
    /// @param length none when it is unknown.
    /// @param onlyHead whether the request is a HEAD, so that the body stays behind.
    static EngineResponse OfStream(HttpBaseRequest& request, std::optional<std::uint64_t> length, bool onlyHead);
    /// Of a part of a file, which is closed with the response: the engine has the system send it where that can be,
    /// and otherwise it is read in blocks.
    /// @param isEncrypted whether the connection speaks TLS, which the system cannot.
    static EngineResponse OfFile(HttpBaseRequest& request, FileBody&& body, bool isEncrypted);
    /// Without a body, and saying nothing of the length of one.
    static EngineResponse OfNoLength(HttpBaseRequest& request);
    /// That hands the connection's socket to the server.
    static EngineResponse OfUpgrade(http::HttpServer& server);

    explicit EngineResponse(MHD_Response* response, std::uint64_t bodyBytes = 0,
                            std::optional<std::uint64_t> length = std::nullopt)
        : response_(response), bodyBytes_(bodyBytes), length_(length) {}
    ~EngineResponse();
    EngineResponse(const EngineResponse&) = delete;
    EngineResponse& operator=(const EngineResponse&) = delete;

    /// Adds a header. What the engine refuses, such as a value with a line end, is left out and logged.
    void addHeader(const std::string& name, const std::string& value);

    /// Says that the connection is closed, as it then is; but for an upgrade, with which the engine bears no such word.
    void close() noexcept;

    /// Adds the headers and cookies of a response description.
    /// @return estimate of the bytes they take.
    std::uint64_t addHeadersAndCookies(const HttpResponseInterface& description);

    /// The same for strict HTTP: what RFC 9110 section 5 or RFC 6265 section 4.1.1 does not allow is left out, and
    /// logged as a failure of the application. So are a coding or a length that is not the answer's own, and a header
    /// again that may be there once.
    std::uint64_t addCheckedHeadersAndCookies(const HttpResponseInterface& description);

    /// Estimate of the bytes that the headers take which were added.
    std::uint64_t headerBytes() const { return headerBytes_; }
    /// 0 for a stream or a file with a reader, which counts, and for an upgrade.
    std::uint64_t bodyBytes() const { return bodyBytes_; }

    /// @return Verdict::Close when there is no response or the engine refused it.
    Verdict queue(EngineConnection connection, std::uint32_t status);

private:
    /// @return what is wrong with a header; null for nothing.
    const char* faultOf(const std::string& name, const std::string& value) const;

    MHD_Response* const response_;
    std::uint64_t headerBytes_ = 0;
    const std::uint64_t bodyBytes_;
    /// What it says of the length of its body.
    const std::optional<std::uint64_t> length_;
};

} // namespace ql::impl
