#pragma once

#include <cstddef>
#include <string>

namespace vireotest {

/// Bytes of which any piece that is lost, doubled or out of place shows: byte `i` depends on `i`, with a period that no
/// power of two divides.
inline std::string pattern(std::size_t size, std::size_t first = 0) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((first + i) % 251);
    }
    return bytes;
}

} // namespace vireotest
