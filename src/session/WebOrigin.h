// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ql::impl {

/// Where a page comes from (RFC 6454), as browsers tell with "Origin".
struct WebOrigin {
    /// @param text "https://example.org", with a port that is not the scheme's own.
    /// @return none for anything else, such as the "null" of documents without an origin.
    static std::optional<WebOrigin> parse(const std::string& text);

    /// That of a request with this Host for a page of the given scheme.
    /// @return none when it is no host.
    static std::optional<WebOrigin> ofHost(const std::string& scheme, std::string_view host);

    friend bool operator==(const WebOrigin& left, const WebOrigin& right) = default;

    /// Lower case.
    ///@{
    std::string scheme;
    std::string host;
    ///@}
    std::uint16_t port = 0;
};

} // namespace ql::impl
