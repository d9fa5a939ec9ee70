// SPDX-License-Identifier: MIT
#pragma once

namespace vireo::impl {

/// The reason phrase of a status (RFC 9110 section 15); "Error" for one that has none.
const char* reasonPhrase(int status);

} // namespace vireo::impl
