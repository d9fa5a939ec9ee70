// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>
#include <string>
#include <string_view>

/// Text helpers that do not depend on the locale. Every function may be called from any thread.
class VIREO_API qlStringUtils {
public:
    /// Lower-cases A to Z in place; every other byte stays.
    static void toLower(std::string& text);

    /// True when a byte lies outside the printable ASCII range, 0x20 to 0x7E. So text beyond ASCII counts too.
    static bool ContainsAsciiNonPrintableChar(const std::string& text);

    /// True when `text` is well-formed UTF-8 (RFC 3629): no over-long forms, no surrogates, nothing above U+10FFFF,
    /// nothing cut off. The empty text is.
    static bool IsUtf8(std::string_view text);

    /// `value` in decimal, with leading zeros up to `minDigits` digits.
    static std::string fromUInt64(std::uint64_t value, int minDigits);
};

namespace ql {
using ::qlStringUtils;
}
