#include "server/ResponseQueue.h"

#include "vireo/HttpResponseInterface.h"
#include "vireo/support/qlLog.h"

namespace ql::http {

namespace {

// What the byte estimates allow for beside name and value: separator and line end; "Set-cookie", too.
constexpr std::uint64_t HeaderLineOverhead = 3;
constexpr std::uint64_t SetCookieOverhead = 15;

} // namespace

EngineResponse::~EngineResponse() {
    if (response_ != nullptr) {
        MHD_destroy_response(response_);
    }
}

void EngineResponse::addHeader(const std::string& name, const std::string& value) {
    if (response_ != nullptr && MHD_add_response_header(response_, name.c_str(), value.c_str()) == MHD_NO) {
        qlLogObject(qlLogType::Engine, "httpserver") << "Dropping response header '" << name << "'";
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

MHD_Result EngineResponse::queue(MHD_Connection* connection, std::uint32_t status) {
    return response_ == nullptr ? MHD_NO : MHD_queue_response(connection, status, response_);
}

EngineResponse makeFixedResponse(std::string_view body) {
    // The engine's signature is not const; a persistent buffer is only read.
    return EngineResponse(
        MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_PERSISTENT));
}

} // namespace ql::http
