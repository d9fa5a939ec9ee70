// SPDX-License-Identifier: MIT
#pragma once

#include "app/testing/ResponseText.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vireo::impl {

/// A cookie that a response sets.
struct CookieSetting {
    /// @param text the value of a "Set-Cookie" header.
    static CookieSetting Of(std::string_view text);

    std::string name;
    std::string value;
    /// Whether it takes the cookie away: Max-Age up to 0, or Expires in 1970.
    bool isRemoval = false;
};

/// The cookies of a client that knows one server. Their paths are not looked at.
class CookieJar {
public:
    void take(const ResponseText& response);
    /// What "Cookie" says; empty without one.
    std::string header() const;
    void clear() { values_.clear(); }

private:
    std::map<std::string, std::string> values_;
};

} // namespace vireo::impl
