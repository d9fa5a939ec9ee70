#include "engine/DurationText.h"

#include "vireo/support/qlStringUtils.h"

#include <array>
#include <cstddef>

namespace ql::impl {

std::string durationText(std::uint64_t durationMs) {
    static constexpr std::array<const char*, 5> Suffixes{"ms", "s", "m", "h", "d"};
    static constexpr std::array<std::uint64_t, 4> Divisors{1000, 60, 60, 24};

    std::array<std::uint64_t, 5> parts{};
    for (std::size_t i = 0; i < Divisors.size(); ++i) {
        parts[i] = durationMs % Divisors[i];
        durationMs /= Divisors[i];
    }
    parts.back() = durationMs;

    std::size_t count = parts.size();
    while (count > 0 && parts[count - 1] == 0) {
        --count;
    }
    if (count == 0) {
        return "0ms";
    }
    // The longer it lasted, the coarser the last unit told.
    std::size_t lowest = count <= 2 ? 0 : count == 3 ? 1 : 2;
    while (parts[lowest] == 0 && lowest + 1 < count) {
        ++lowest;
    }
    std::string text;
    for (std::size_t i = count; i > lowest; --i) {
        if (!text.empty()) {
            text += ' ';
        }
        text += qlStringUtils::fromUInt64(parts[i - 1], 1) + Suffixes[i - 1];
    }
    return text;
}

} // namespace ql::impl
