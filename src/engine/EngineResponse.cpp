#include "engine/EngineResponse.h"

#include "engine/ContentReader.h"
#include "engine/EngineCallbacks.h"
#include "engine/EngineConnection.h"
#include "engine/FileBody.h"
#include "frame/HttpSyntax.h"
#include "frame/Utf8.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/HttpServer.h"
#include "vireo/support/qlLog.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <utility>

#include <microhttpd.h>

namespace ql::impl {

namespace {

// What the byte estimates allow for beside name and value: separator and line end; "Set-cookie", too.
constexpr std::uint64_t HeaderLineOverhead = 3;
constexpr std::uint64_t SetCookieOverhead = 15;

/// How much of a streamed body the engine asks for at a time.
constexpr std::size_t StreamBlockBytes = 65536;

/// Of which an answer has one at most.
constexpr std::array<std::string_view, 11> SingleHeaders = {
    "Age",     "Content-Location", "Content-Range", "Content-Type", "Date",  "ETag",
    "Expires", "Last-Modified",    "Location",      "Retry-After",  "Server"};

/// What follows the value of a cookie, with the separators in front of each attribute.
bool areCookieAttributes(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c == ';' || isCookieAttributeValue({&c, 1}); });
}

} // namespace

// The engine's signature is not const; it only reads the bytes.

EngineResponse EngineResponse::OfCopy(const std::vector<char>& body) {
    return EngineResponse(
        MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY),
        body.size(), body.size());
}

EngineResponse EngineResponse::OfText(std::string_view body) {
    return EngineResponse(
        MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_PERSISTENT),
        body.size(), body.size());
}

EngineResponse EngineResponse::OfStream(HttpBaseRequest& request, std::optional<std::uint64_t> length, bool onlyHead) {
    MHD_Response* const response = MHD_create_response_from_callback(length.value_or(MHD_SIZE_UNKNOWN),
                                                                     StreamBlockBytes, readContent, &request, nullptr);
    if (response != nullptr && onlyHead && !length) {
        // Version 0.9.75 ends the body that it has not sent: a last chunk would stand before the next answer.
        MHD_set_response_options(response, MHD_RF_HTTP_1_0_COMPATIBLE_STRICT, MHD_RO_END);
    }
    return EngineResponse(response, 0, length);
}

EngineResponse EngineResponse::OfFile(HttpBaseRequest& request, FileBody&& body, bool isEncrypted) {
    const std::uint64_t size = body.size();
    if (size == 0) {
        return OfText({});
    }
    if (!isEncrypted && body.descriptor() >= 0 && MHD_is_feature_supported(MHD_FEATURE_SENDFILE) == MHD_YES) {
        MHD_Response* const response = MHD_create_response_from_fd_at_offset64(size, body.descriptor(), body.offset());
        if (response != nullptr) {
            body.disown();
        }
        return EngineResponse(response, size, size);
    }
    auto content = std::make_unique<FileContent>(FileContent{request, std::move(body)});
    MHD_Response* const response =
        MHD_create_response_from_callback(size, StreamBlockBytes, readFileContent, content.get(), freeFileContent);
    if (response != nullptr) {
        static_cast<void>(content.release());
    }
    return EngineResponse(response, 0, size);
}

EngineResponse EngineResponse::OfNoLength(HttpBaseRequest& request) {
#if MHD_VERSION >= 0x00097701
    static_cast<void>(request);
    MHD_Response* const response = MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
    if (response != nullptr) {
        MHD_set_response_options(response, MHD_RF_HEAD_ONLY_RESPONSE, MHD_RO_END);
    }
    return EngineResponse(response);
#else
    // Only what ends with the connection has no length.
    return OfStream(request, std::nullopt, true);
#endif
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
        qlLogObject(qlLogType::Engine, "httpserver") << "Dropping response header '" << withoutControls(name) << "'";
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

const char* EngineResponse::faultOf(const std::string& name, const std::string& value) const {
    if (!isFieldValue(value)) {
        return "its value has control characters";
    }
    if (isSameWord(name, "Transfer-Encoding")) {
        return "the coding is the library's";
    }
    if (isSameWord(name, "Content-Length") && (!length_ || value != std::to_string(*length_))) {
        return "the length of the answer is another one";
    }
    return nullptr;
}

std::uint64_t EngineResponse::addCheckedHeadersAndCookies(const HttpResponseInterface& description) {
    std::uint64_t bytes = 0;
    const auto drop = [](const char* what, std::string_view name, const char* fault) {
        qlLogObject(qlLogType::Failure, "httpserver") << "Dropping " << what << " '" << name << "' : " << fault;
    };
    std::vector<std::string_view> singles;
    for (const auto& [key, header] : description.getHeaders()) {
        const auto& [name, value] = header;
        if (!isToken(name)) {
            drop("response header", "?", "its name is none");
            continue;
        }
        const auto isThis = [&name = name](std::string_view other) { return isSameWord(name, other); };
        const bool isSingle = std::ranges::any_of(SingleHeaders, isThis);
        const char* fault = faultOf(name, value);
        if (fault == nullptr && isSingle && std::ranges::any_of(singles, isThis)) {
            fault = "there is one already";
        }
        if (fault != nullptr) {
            drop("response header", name, fault);
            continue;
        }
        if (isSingle) {
            singles.emplace_back(name);
        }
        // The engine writes the length itself.
        if (!isSameWord(name, "Content-Length")) {
            addHeader(name, value);
            bytes += name.size() + value.size() + HeaderLineOverhead;
        }
    }
    for (const auto& [name, value] : description.getCookies()) {
        const std::size_t end = (std::min)(value.find(';'), value.size());
        const std::string_view text = value;
        if (!isToken(name)) {
            drop("cookie", "?", "its name is none");
        } else if (!isCookieValue(text.substr(0, end)) || !areCookieAttributes(text.substr(end))) {
            drop("cookie", name, "its value has forbidden characters");
        } else {
            addHeader("Set-Cookie", std::string(name).append("=").append(value));
            bytes += name.size() + value.size() + SetCookieOverhead;
        }
    }
    return bytes;
}

Verdict EngineResponse::queue(EngineConnection connection, std::uint32_t status) {
    const bool queued = response_ != nullptr && MHD_queue_response(connection.handle(), status, response_) == MHD_YES;
    return queued ? Verdict::Continue : Verdict::Close;
}

} // namespace ql::impl
