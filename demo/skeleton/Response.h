#pragma once

#include "vireo/HttpResponseInterface.h"

#include <cstdint>
#include <string>

namespace skeleton {

/// The description of one response: a plain record that the handler fills before it releases the response.
class Response final : public ql::HttpResponseInterface {
public:
    void setStatus(std::uint32_t status) { status_ = status; }
    void setHeader(const std::string& name, const std::string& value) { headers_[name] = {name, value}; }
    /// @param bytes of the body; negative when they are not known yet, the state at first.
    void setContentLength(std::int64_t bytes) { contentLength_ = bytes; }

    const Cookies& getCookies() const override { return cookies_; }
    const Headers& getHeaders() const override { return headers_; }
    std::uint32_t getStatusCode() const override { return status_; }
    std::int64_t getContentLength() const override { return contentLength_; }
    std::string getReasonPhrase() const override { return status_ < 400 ? "OK" : "Error"; }

private:
    Cookies cookies_;
    Headers headers_;
    std::uint32_t status_ = 200;
    std::int64_t contentLength_ = -1;
};

} // namespace skeleton
