#include "support/Pattern.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace bench {

namespace {

constexpr std::size_t Period = 65521;

/// The period, and what makes every position contiguous.
std::vector<char> makeTable() {
    std::vector<char> table(Period + Pattern::Contiguous);
    std::uint32_t state = 2463534242U;
    for (std::size_t i = 0; i < Period; ++i) {
        state ^= state << 13U;
        state ^= state >> 17U;
        state ^= state << 5U;
        table[i] = static_cast<char>(state & 0xFFU);
    }
    for (std::size_t i = Period; i < table.size(); ++i) {
        table[i] = table[i - Period];
    }
    return table;
}

} // namespace

const char* Pattern::at(std::uint64_t position) {
    static const std::vector<char> table = makeTable();
    return table.data() + position % Period;
}

bool Pattern::matches(std::uint64_t position, const char* data, std::size_t size) {
    while (size != 0) {
        const std::size_t part = std::min(size, Contiguous);
        if (std::memcmp(data, at(position), part) != 0) {
            return false;
        }
        position += part;
        data += part;
        size -= part;
    }
    return true;
}

void UploadCheck::take(const char* data, std::size_t size) {
    intact_ = intact_ && Pattern::matches(received_, data, size);
    received_ += size;
}

std::string UploadCheck::report() const {
    return (intact_ ? "verified " : "damaged ") + std::to_string(received_);
}

} // namespace bench
