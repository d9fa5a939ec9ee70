// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vireo {

namespace impl {
struct NewFileState;
}

/// A file that appears under its name only once it is whole: what is written stands beside it under a name of its own
/// until keepAs(), and is removed where that is not called. One thread at a time.
///
/// One that Request::newFile() has made, or that Body::saveTo() has filled, knows the body of its request: once the
/// client has gone in the middle of that, it can no longer be kept, even where the exception was swallowed.
class VIREO_APP_API NewFile {
public:
    /// @param directory where the file is to stand; exists already.
    /// @throws std::system_error when nothing can be made there.
    explicit NewFile(const std::string& directory);
    NewFile(NewFile&& other) noexcept;            ///< takes over: the other may only be assigned to or destroyed
    NewFile& operator=(NewFile&& other) noexcept; ///< takes over; removes what it held
    /// Removes what was not kept.
    ~NewFile();

    /// Appends.
    /// @throws std::system_error when the disk is full, for instance.
    /// @throws std::logic_error when the file is kept already.
    void write(std::string_view bytes);

    /// Closes the file and gives it its name, by one step that replaces a file of that name.
    /// @param name of the file in its directory, also one that a client has chosen: `keepAs(request.path("name"))`.
    /// @throws HttpError 400 when the name is empty, begins with a dot, as those of hidden files and of files that are
    ///         not whole yet do, has a slash, a backslash or a zero byte, is longer than 255 bytes,
    ///         or is none on this system.
    /// @throws ClientGone when the body that it is made of was cut short: it is removed.
    /// @throws std::system_error when the system refuses.
    /// @throws std::logic_error when the file is kept already.
    void keepAs(const std::string& name);

    /// How many bytes were written.
    std::uint64_t size() const;

private:
    friend struct impl::NewFileState;

    std::unique_ptr<impl::NewFileState> state_;
};

} // namespace vireo
