#include "app/kernel/FieldRules.h"
#include "app/kernel/HttpErrorData.h"
#include "app/kernel/Reason.h"
#include "frame/InvalidArgument.h"

#include <memory>
#include <utility>

namespace vireo {

namespace {

constexpr int MinStatus = 400;
constexpr int MaxStatus = 599;

} // namespace

HttpError::HttpError(int status, std::string text) {
    if (status < MinStatus || status > MaxStatus) {
        ql::impl::throwInvalidArgument("HttpError : the status is " + std::to_string(status) + ", not 400 to 599");
    }
    data_ = std::make_shared<impl::HttpErrorData>(impl::HttpErrorData{status, std::move(text), {}});
}

HttpError::HttpError(int status) : HttpError(status, impl::reasonPhrase(status)) {}

HttpError::HttpError(const HttpError& other) noexcept = default;
HttpError& HttpError::operator=(const HttpError& other) noexcept = default;
HttpError::~HttpError() = default;

HttpError& HttpError::header(std::string_view name, std::string_view value) {
    impl::checkField(name, value);
    auto changed = std::make_shared<impl::HttpErrorData>(*data_);
    changed->headers.emplace_back(name, value);
    data_ = std::move(changed);
    return *this;
}

int HttpError::status() const noexcept {
    return data_->status;
}

const char* HttpError::what() const noexcept {
    return data_->text.c_str();
}

void HttpError::forEachHeader(const std::function<void(const std::string&, const std::string&)>& visit) const {
    for (const auto& [name, value] : data_->headers) {
        visit(name, value);
    }
}

} // namespace vireo
