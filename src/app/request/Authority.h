// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string_view>

namespace vireo::impl {

/// A host and its port, as in "example.org:8080" (RFC 3986 section 3.2). Lives as long as the text.
struct Authority {
    /// @return none for what has other characters than hosts and ports, and without a host.
    static std::optional<Authority> Parse(std::string_view text);

    /// The port, or the one that a scheme has when none is named.
    std::string_view portOf(std::string_view scheme) const;

    std::string_view host;
    /// Of digits; empty when it is missing.
    std::string_view port;
};

/// Whether it is a scheme and an authority, as browsers write them into Origin (RFC 6454 section 6.2).
bool isOrigin(std::string_view text);

/// Whether both are the same one, where the port that a scheme has may be missing.
bool isSameOrigin(std::string_view left, std::string_view right);

} // namespace vireo::impl
