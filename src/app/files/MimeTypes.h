// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace vireo::impl {

/// The extension of a file's name, without the dot; empty when there is none.
std::string_view extensionOf(std::string_view fileName);

/// The media type of an extension, of upper or lower case; "application/octet-stream" when it is not known. Texts are
/// UTF-8.
std::string_view mimeTypeOf(std::string_view extension);

} // namespace vireo::impl
