#pragma once

#include "support/Pattern.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vireotest {

/// The bytes of a stream from a position on, as in pattern(), without making them anew: at most 256 KiB.
inline std::string_view patternFrom(std::uint64_t position, std::size_t size) {
    constexpr std::size_t Period = 251;
    constexpr std::size_t Most = std::size_t{256} * 1024;
    static const std::string bytes = pattern(Most + Period);
    if (size > Most) {
        throw std::logic_error("more of the pattern is asked for than there is");
    }
    return std::string_view(bytes).substr(position % Period, size);
}

} // namespace vireotest
