#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vireotest {

/// The bytes of a stream from a position on: with a prime period, so that what is lost, doubled or moved shows.
inline std::string patternFrom(std::uint64_t position, std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((position + i) % 251);
    }
    return bytes;
}

} // namespace vireotest
