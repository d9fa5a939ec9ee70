// SPDX-License-Identifier: MIT
#include "app/testing/RequestPlan.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/TestClient.h"

#include <utility>

namespace vireo {

TestRequest::TestRequest(std::string method, std::string target) : plan_(std::make_unique<impl::RequestPlan>()) {
    plan_->method = std::move(method);
    plan_->target = std::move(target);
}

TestRequest::TestRequest(const TestRequest& other) : plan_(std::make_unique<impl::RequestPlan>(*other.plan_)) {}

TestRequest::TestRequest(TestRequest&& other) noexcept = default;

TestRequest& TestRequest::operator=(const TestRequest& other) {
    return *this = TestRequest(other);
}

TestRequest& TestRequest::operator=(TestRequest&& other) noexcept = default;

TestRequest::~TestRequest() = default;

TestRequest& TestRequest::header(std::string name, std::string value) {
    plan_->headers.emplace_back(std::move(name), std::move(value));
    return *this;
}

TestRequest& TestRequest::basic(std::string_view user, std::string_view password) {
    return header("Authorization", impl::basicCredentials(user, password));
}

TestRequest& TestRequest::bearer(std::string_view token) {
    return header("Authorization", impl::bearerCredentials(token));
}

TestRequest& TestRequest::body(std::string bytes, std::string type) {
    plan_->body = std::move(bytes);
    plan_->type = std::move(type);
    return *this;
}

TestRequest& TestRequest::field(std::string name, std::string value) {
    plan_->parts.push_back({std::move(name), {}, std::move(value), {}});
    return *this;
}

TestRequest& TestRequest::file(std::string name, std::string fileName, std::string bytes, std::string type) {
    plan_->parts.push_back({std::move(name), std::move(fileName), std::move(bytes), std::move(type)});
    return *this;
}

TestRequest& TestRequest::chunked(std::size_t chunkBytes) {
    if (chunkBytes == 0) {
        ql::impl::throwInvalidArgument("a chunk of no bytes is the end of a body");
    }
    plan_->chunkBytes = chunkBytes;
    return *this;
}

const impl::RequestPlan& TestRequest::plan() const {
    return *plan_;
}

} // namespace vireo
