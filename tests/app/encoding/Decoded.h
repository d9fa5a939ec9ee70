#pragma once

#include <string>
#include <string_view>

namespace encodingtest {

/// What a client makes of an encoded body, or of the first part of one: as much as can be told so far.
/// @param isWhole set when the body is complete and nothing follows.
///@{
std::string decodedGzip(std::string_view body, bool* isWhole = nullptr);
std::string decodedBrotli(std::string_view body, bool* isWhole = nullptr);
///@}

} // namespace encodingtest
