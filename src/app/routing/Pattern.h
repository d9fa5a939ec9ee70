// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

/// A route's pattern, such as "/notes/{id:int}": between its slashes each segment is a literal, percent-encoded as in a
/// path, or one parameter.
struct Pattern {
    enum class Kind : std::uint8_t {
        Literal,
        Int,  ///< {name:int}: a decimal of 64 bits
        Uuid, ///< {name:uuid}
        Text, ///< {name}: anything but an empty segment
        Rest, ///< {name:path}: the last one, which takes all segments that are left, with the slashes between them
    };
    struct Segment {
        Kind kind = Kind::Literal;
        /// The literal, decoded; or the parameter's name.
        std::string text;
    };

    /// @throws std::invalid_argument that names the place for what is no pattern.
    static Pattern parse(std::string_view text);
    /// That of a group: empty, or a pattern that neither ends with a slash nor takes the rest of the path.
    /// @throws std::invalid_argument for anything else.
    static Pattern parsePrefix(std::string_view text);

    std::vector<Segment> segments;
};

/// Whether a decoded segment is what {name:int} takes.
bool isInt(std::string_view segment);
/// Whether a decoded segment is what {name:uuid} takes: 8-4-4-4-12 hexadecimal digits.
bool isUuid(std::string_view segment);

/// Which of a pattern's parameters has this name.
/// @param pattern a right one.
std::optional<std::size_t> findParameter(std::string_view pattern, std::string_view name);

} // namespace vireo::impl
