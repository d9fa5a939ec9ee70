// SPDX-License-Identifier: MIT
#pragma once

#include "engine/FileBody.h"

#include <memory>
#include <string_view>
#include <variant>

namespace ql::impl {

/// Bytes of the application's, which are the body of an answer where they lie.
struct BufferBody {
    std::string_view bytes;
    /// Keeps them; null where the request does.
    std::shared_ptr<const void> owner;
};

/// What is released as a body all at once.
struct WholeBody {
    std::variant<FileBody, BufferBody> source;
};

} // namespace ql::impl
