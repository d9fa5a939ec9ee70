// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace ql::impl {

/// Tells of text that arrives in pieces whether it is well-formed UTF-8: without over-long forms, surrogates or code
/// points above U+10FFFF. A piece may end inside a sequence.
class Utf8Validator {
public:
    /// @return false from the first byte on after which nothing could make the text well-formed. Then there is no more
    ///         to feed.
    bool feed(std::span<const unsigned char> bytes) { return findInvalid(bytes) == std::string_view::npos; }

    /// Whether the text may end here: no sequence has begun that isn't complete.
    bool isComplete() const { return missing_ == 0; }

private:
    friend std::size_t findInvalidUtf8(std::string_view text);

    /// The index of the first byte that cannot stand where it does, or npos.
    std::size_t findInvalid(std::span<const unsigned char> bytes);
    bool begin(unsigned char lead);
    bool goOn(unsigned char continuation);

    /// Bytes of the sequence that is not complete: those that have come, and those that are to come.
    ///@{
    unsigned char taken_ = 0;
    unsigned char missing_ = 0;
    ///@}
    /// What the next of them may be.
    ///@{
    unsigned char low_ = 0;
    unsigned char high_ = 0;
    ///@}
};

/// Where the first sequence that is not well-formed UTF-8 begins, or std::string_view::npos when there is none.
std::size_t findInvalidUtf8(std::string_view text);

/// The text with a blank in place of each control character, those of ASCII and U+0080 to U+009F: for lines of a log,
/// where a line break would begin another one, and which a terminal obeys.
std::string withoutControls(std::string_view text);

} // namespace ql::impl
