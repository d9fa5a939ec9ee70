#include "engine/EngineResponse.h"

#include "engine/ContentReader.h"
#include "engine/EngineCallbacks.h"
#include "engine/EngineConnection.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/HttpServer.h"
#include "vireo/support/qlLog.h"

#include <cstddef>

#include <microhttpd.h>

namespace ql::impl {

namespace {

// What the byte estimates allow for beside name and value: separator and line end; "Set-cookie", too.
constexpr std::uint64_t HeaderLineOverhead = 3;
constexpr std::uint64_t SetCookieOverhead = 15;

/// How much of a streamed body the engine asks for at a time.
constexpr std::size_t StreamBlockBytes = 65536;

} // namespace

// The engine's signature is not const; it only reads the bytes.

EngineResponse EngineResponse::OfCopy(const std::vector<char>& body) {
    return EngineResponse(
        MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY),
        body.size());
}

EngineResponse EngineResponse::OfText(std::string_view body) {
    return EngineResponse(
        MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_PERSISTENT),
        body.size());
}

EngineResponse EngineResponse::OfStream(HttpBaseRequest& request, std::optional<std::uint64_t> length, bool onlyHead) {
    MHD_Response* const response = MHD_create_response_from_callback(length.value_or(MHD_SIZE_UNKNOWN),
                                                                     StreamBlockBytes, readContent, &request, nullptr);
    if (response != nullptr && onlyHead && !length) {
        // Version 0.9.75 ends the body that it has not sent: a last chunk would stand before the next answer.
        MHD_set_response_options(response, MHD_RF_HTTP_1_0_COMPATIBLE_STRICT, MHD_RO_END);
    }
    return EngineResponse(response);
}

EngineResponse EngineResponse::OfUpgrade(http::HttpServer& server) {
    return EngineResponse(MHD_create_response_for_upgrade(onUpgrade, &server));
}

EngineResponse::~EngineResponse() {
    if (response_ != nullptr) {
        MHD_destroy_response(response_);
    }
}

void EngineResponse::addHeader(const std::string& name, const std::string& value) {
    headerBytes_ += name.size() + value.size() + HeaderLineOverhead;
    if (response_ != nullptr && MHD_add_response_header(response_, name.c_str(), value.c_str()) == MHD_NO) {
        qlLogObject(qlLogType::Engine, "httpserver") << "Dropping response header '" << name << "'";
    }
}

void EngineResponse::close() noexcept {
    // Where there is no memory for a header, the connection is closed a request later.
    if (response_ != nullptr) {
        MHD_add_response_header(response_, "Connection", "close");
    }
}

std::uint64_t EngineResponse::addHeadersAndCookies(const HttpResponseInterface& description) {
    std::uint64_t bytes = 0;
    for (const auto& [key, header] : description.getHeaders()) {
        const auto& [name, value] = header;
        addHeader(name, value);
        bytes += name.size() + value.size() + HeaderLineOverhead;
    }
    for (const auto& [name, value] : description.getCookies()) {
        std::string cookie = name;
        cookie.append("=").append(value);
        addHeader("Set-cookie", cookie);
        bytes += name.size() + value.size() + SetCookieOverhead;
    }
    return bytes;
}

Verdict EngineResponse::queue(EngineConnection connection, std::uint32_t status) {
    const bool queued = response_ != nullptr && MHD_queue_response(connection.handle(), status, response_) == MHD_YES;
    return queued ? Verdict::Continue : Verdict::Close;
}

} // namespace ql::impl
