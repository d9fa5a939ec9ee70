// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vireo::impl {

// What the client likes best of what is on offer (RFC 9110 section 12.5): the most special of its wishes that fits an
// offer has the say about it, and of offers that it likes as much the first counts. An element that is none is passed
// over. Empty when it wants none of them.

/// @param accept the header; none or empty: the first offer.
/// @param offers media types.
std::string chooseMediaType(std::optional<std::string_view> accept, std::span<const std::string_view> offers);

/// A wish for "de-AT" is content with "de", and one for "de" with "de-AT".
/// @param accept the header; none or empty: the first offer.
std::string chooseLanguage(std::optional<std::string_view> accept, std::span<const std::string_view> offers);

/// "identity" that the client does not mention is what it likes least of what it takes.
/// @param accept the header; none: "identity" where that is on offer, else the first; empty: "identity" alone.
std::string chooseEncoding(std::optional<std::string_view> accept, std::span<const std::string_view> offers);

} // namespace vireo::impl
