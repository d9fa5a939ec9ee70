// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace ql::impl {

/// A name of HTTP, such as of a method, a field or a cookie (RFC 9110 section 5.6.2).
bool isToken(std::string_view text);

/// Whether a field may have this value: any text without control characters but tabs (RFC 9110 section 5.5).
bool isFieldValue(std::string_view text);

/// Without the blanks and tabs around it.
std::string_view withoutBlanks(std::string_view text);

/// Whether they are the same but for the case of ASCII letters.
bool isSameWord(std::string_view left, std::string_view right);

/// What may stand behind the "=" of a cookie, and behind that of each of its attributes (RFC 6265 section 4.1.1).
///@{
bool isCookieValue(std::string_view text);
bool isCookieAttributeValue(std::string_view text);
///@}

/// The byte that a percent-encoded escape stands for (RFC 3986 section 2.1); none when none begins there.
/// @param index of a percent sign.
std::optional<char> escapeAt(std::string_view text, std::size_t index);

/// Takes the next element of a list that is separated by commas, without the blanks around it.
/// @param list not empty; what is left of it.
std::string_view takeElement(std::string_view& list);

} // namespace ql::impl
