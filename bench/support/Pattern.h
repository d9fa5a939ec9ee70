#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

/// The bytes of every body. Its period is prime, so that a lost, doubled or swapped block of any usual size shows.
class Pattern {
public:
    /// How many bytes are in one piece from every position on.
    static constexpr std::size_t Contiguous = 262144;

    /// The body from `position` on.
    static const char* at(std::uint64_t position);

    /// Whether `data` is what stands at `position`; at the pace of memcmp.
    static bool matches(std::uint64_t position, const char* data, std::size_t size);
};

/// Takes an upload in pieces and compares it with the pattern.
class UploadCheck {
public:
    void take(const char* data, std::size_t size);

    /// The answer to the upload: "verified" or "damaged", and the number of bytes.
    std::string report() const;

private:
    std::uint64_t received_ = 0;
    bool intact_ = true;
};

} // namespace bench
