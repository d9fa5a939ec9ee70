// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vireo {

class NewFile;

namespace impl {
class BodyReader;
class RequestBody;
} // namespace impl

/// The body of a request; Request::body() gives it. One thread at a time.
///
/// Every function that reads throws ClientGone when the client has gone before the body was whole, and HttpError with
/// status 413 when the body is longer than the route allows; both again and again. So what ends without an exception
/// is whole.
class VIREO_APP_API Body {
public:
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

    /// The next piece, at most 64 KiB, as soon as there is some: `while (auto piece = body.read())`. Waits for the
    /// client where the body is longer than the server's window for uploads.
    /// @return none at the end. What it returns lives until the next call.
    std::optional<std::string_view> read();

    /// All of it, which is kept: asked for again, it is there, and so it is for read() and for forms.
    /// @throws std::logic_error when read(), saveTo() or a form has taken some of it already.
    const std::string& text();

    /// Its Content-Length; none for a body in chunks, of which only the end tells how long it is.
    std::optional<std::uint64_t> announced() const;

    /// Appends what is left of it to a file.
    /// @throws std::system_error as NewFile::write()
    void saveTo(NewFile& file);

private:
    friend class impl::RequestBody;
    explicit Body(impl::BodyReader& reader);

    impl::BodyReader& reader_;
};

} // namespace vireo
