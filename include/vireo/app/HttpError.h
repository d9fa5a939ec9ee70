// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace vireo {

namespace impl {
struct HttpErrorData;
}

/// What a handler or a middleware throws to answer with an error: `throw vireo::HttpError(404, "no such note")`. The
/// client gets status, text and headers, unless there is an error handler that says otherwise: see Group::onError().
///
/// A value. Copies share what they have until one is changed, and copying throws nothing.
class VIREO_APP_API HttpError : public std::exception {
public:
    /// @param status 400 to 599; else std::invalid_argument is thrown.
    /// @param text the body, which clients see, with a line feed behind it; as text/plain.
    ///@{
    HttpError(int status, std::string text);
    /// With the status's reason phrase for a text.
    explicit HttpError(int status);
    ///@}
    /// Copies share.
    ///@{
    HttpError(const HttpError& other) noexcept;
    HttpError& operator=(const HttpError& other) noexcept;
    ///@}
    ~HttpError() override;

    /// Adds a header to the answer: `throw HttpError(503).header("Retry-After", "60")`.
    ///
    /// Throws std::invalid_argument for what is no field of HTTP, and for Content-Length and Transfer-Encoding.
    HttpError& header(std::string_view name, std::string_view value);

    /// As it was given.
    int status() const noexcept;
    /// The text.
    const char* what() const noexcept override;

    /// Calls `visit` with each header's name and value, in their order.
    void forEachHeader(const std::function<void(const std::string&, const std::string&)>& visit) const;

private:
    std::shared_ptr<const impl::HttpErrorData> data_;
};

} // namespace vireo
