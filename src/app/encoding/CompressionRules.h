// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vireo {
class CompressionOptions;
}

namespace vireo::impl {

struct Answer;

/// What CompressionOptions says.
struct CompressionRules {
    int level = 6;
    int brotliLevel = 4;
    std::uint64_t minBytes = 1024;
    std::vector<std::string> types; ///< lower case

    static const CompressionRules& of(const CompressionOptions& options);
};

/// Gives the answer an encoder, where it is worth it and the client takes the coding; and says that it depends on that,
/// where it does.
/// @param coding what the client likes best: "br", "gzip", "identity" or empty.
void offerEncoding(const CompressionRules& rules, std::string_view coding, Answer& answer);

} // namespace vireo::impl
