// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HeaderLine.h"
#include "vireo/support/IpAddress.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

/// Which peers are proxies whose word about the client counts. Constant; any thread.
class ProxyRules {
public:
    /// @param networks such as "127.0.0.1", "10.0.0.0/8", "::1" and "unix:", which is every peer without an address.
    /// @throws std::invalid_argument for anything else.
    explicit ProxyRules(const std::vector<std::string>& networks);

    bool isTrusted(const ql::IpAddress& peer) const;

private:
    struct Network {
        ql::IpAddress address;
        unsigned bits;
    };
    std::vector<Network> networks_;
    bool areLocalSocketsTrusted_ = false;
};

/// Who has sent a request through trusted proxies: the last address of the lines "X-Forwarded-For" that is no trusted
/// proxy's. What is no address ends the search, since whoever wrote it could have written anything before it.
ql::IpAddress findForwardedClient(std::span<const ql::HeaderLine> lines, const ql::IpAddress& peer,
                                  const ProxyRules& proxies);

} // namespace vireo::impl
