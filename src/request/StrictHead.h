// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HeaderLine.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ql::impl {

/// Name and value of a field together may have so many bytes. A longer one is refused by strict HTTP, and a parse error
/// otherwise.
constexpr std::size_t MaxFieldBytes = 8096;
/// So long may a target be that strict HTTP takes: RFC 9112 section 3 wants 8000 at least for the whole request line.
constexpr std::size_t MaxStrictTargetBytes = 8192;

/// The head of a request, as the engine has read it.
struct RequestHead {
    std::string_view method;
    std::string_view target;
    std::string_view version;
    /// In the order in which they came, with those that are there more than once.
    std::vector<HeaderLine> fields;
};

/// What strict HTTP makes of a head.
struct HeadVerdict {
    /// With which the request is refused; 0 when it is served.
    std::uint32_t status = 0;
    /// Why it is refused. Lives for ever.
    std::string_view reason;
    /// Path and query, as they came, or "*".
    std::string target;
    /// Of a target in absolute form. It holds instead of Host.
    std::optional<std::string> authority;
};

/// Looks at a head by RFC 9110 and RFC 9112: the request line first, then the fields. What the engine has already
/// refused, or keeps to itself, does not come here.
/// @param ownMethods tokens of the application, which are served beside those that the library knows.
/// @throws std::bad_alloc
HeadVerdict checkHead(const RequestHead& head, const std::vector<std::string>& ownMethods);

/// Whether one Host names where the request goes, as HTTP/1.1 wants it.
bool hasGoodHost(const RequestHead& head);

/// Whether the lists of this name have such an element, in any case of letters.
bool hasElement(const RequestHead& head, std::string_view name, std::string_view element);

/// The target of a request that is served, as RFC 3986 wants it written: what browsers leave as it is in a query is
/// percent-encoded, and "*" is the path "/".
std::string uriOfTarget(std::string_view target);

} // namespace ql::impl
