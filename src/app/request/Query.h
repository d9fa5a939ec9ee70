// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Request.h"

#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

/// The arguments of a query, as browsers write those of a form (the URL standard's application/x-www-form-urlencoded):
/// a plus is a blank, what is no escape stays as it is, and what is no UTF-8 becomes U+FFFD.
std::vector<QueryArgument> parseQuery(std::string_view query);

/// With U+FFFD for each longest piece that begins no UTF-8 sequence or breaks it off (the encoding standard).
std::string withReplacedUtf8(std::string text);

} // namespace vireo::impl
