// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"

#include <cstdint>
#include <string>

namespace ql::impl {

/// The request that a WebSocketOpening shows. It is answered by the library, so that its own response is none.
class OpeningRequest final : public HttpBaseRequest {
public:
    explicit OpeningRequest(http::HttpServerImpl& implementation) : implementation_(implementation) {}

    HttpResponseInterface& getResponse() override { return response_; }
    http::HttpServerImpl& getServerImpl() override { return implementation_; }

private:
    class NoResponse final : public HttpResponseInterface {
    public:
        const Cookies& getCookies() const override { return cookies_; }
        const Headers& getHeaders() const override { return headers_; }
        std::uint32_t getStatusCode() const override { return 0; }
        std::int64_t getContentLength() const override { return -1; }
        std::string getReasonPhrase() const override { return {}; }

    private:
        const Cookies cookies_{};
        const Headers headers_{};
    };

    http::HttpServerImpl& implementation_;
    NoResponse response_;
};

} // namespace ql::impl
