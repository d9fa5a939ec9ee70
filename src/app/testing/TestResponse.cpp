// SPDX-License-Identifier: MIT
#include "app/testing/CookieJar.h"
#include "app/testing/ResponseText.h"
#include "vireo/app/TestClient.h"

#include <utility>

namespace vireo {

TestResponse::TestResponse(impl::ResponseText&& text) : text_(std::make_unique<impl::ResponseText>(std::move(text))) {}

TestResponse::TestResponse(const TestResponse& other) : text_(std::make_unique<impl::ResponseText>(*other.text_)) {}

TestResponse::TestResponse(TestResponse&& other) noexcept = default;

TestResponse& TestResponse::operator=(const TestResponse& other) {
    return *this = TestResponse(other);
}

TestResponse& TestResponse::operator=(TestResponse&& other) noexcept = default;

TestResponse::~TestResponse() = default;

int TestResponse::status() const {
    return text_->status;
}

std::string TestResponse::header(std::string_view name) const {
    return text_->header(name);
}

const std::vector<std::pair<std::string, std::string>>& TestResponse::headers() const {
    return text_->headers;
}

const std::string& TestResponse::body() const {
    return text_->body;
}

std::string TestResponse::cookie(std::string_view name) const {
    std::string value;
    for (const std::string& text : text_->values("Set-Cookie")) {
        const impl::CookieSetting setting = impl::CookieSetting::Of(text);
        if (setting.name == name) {
            value = setting.value;
        }
    }
    return value;
}

} // namespace vireo
