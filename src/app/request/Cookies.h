// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Request.h"

#include <string_view>
#include <vector>

namespace vireo::impl {

/// Adds the cookies of a line "Cookie": what is between its semicolons, split at the first "=", without the blanks
/// around both parts and the quotes around the value. What has no name is left out.
void parseCookies(std::string_view line, std::vector<Cookie>& cookies);

} // namespace vireo::impl
