#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// Bytes of a file, from `begin` up to and without `end`. None when `begin` is no less.
struct Range {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
};

/// What a Range header asks for of a file with `size` bytes. Nothing for several ranges at once and for what is no
/// range: both get the whole file, which RFC 9110 section 14.2 allows.
std::optional<Range> findRange(const std::string& header, std::uint64_t size);
