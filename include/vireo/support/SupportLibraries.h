// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <string>

// Bring-up and take-down of the support layer's components, counted. ql::initializeVireo() and ql::terminateVireo()
// call them; an application that uses a support class without the server may call them itself, in pairs.

namespace ql {

/// The URL, header and address types. `configuration` is kept for future settings; pass an empty text.
VIREO_API void initializeTanager(const std::string& configuration);
/// Undoes one initializeTanager().
VIREO_API void terminateTanager();
/// Whether more were brought up than taken down. Any thread.
VIREO_API bool isTanagerInitialized();

namespace json {

/// The JSON component.
VIREO_API void initializeQlPipit();
/// Undoes one initializeQlPipit().
VIREO_API void terminateQlPipit();
/// Whether more were brought up than taken down. Any thread.
VIREO_API bool isQlPipitInitialized();

} // namespace json
} // namespace ql
