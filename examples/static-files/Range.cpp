#include "Range.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

namespace {

/// @return false when `text` is no number, or one that is too large.
bool parseNumber(std::string_view text, std::uint64_t& number) {
    const char* const end = text.data() + text.size();
    const auto [parsed, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && parsed == end;
}

} // namespace

std::optional<Range> findRange(const std::string& header, std::uint64_t size) {
    constexpr std::string_view Unit = "bytes=";
    const std::size_t dash = header.find('-');
    if (!header.starts_with(Unit) || dash == std::string::npos) {
        return {};
    }
    const std::string_view range = header;
    const std::string_view firstText = range.substr(Unit.size(), dash - Unit.size());
    const std::string_view lastText = range.substr(dash + 1);
    std::uint64_t first = 0;
    std::uint64_t last = size;
    if ((!firstText.empty() && !parseNumber(firstText, first)) || (!lastText.empty() && !parseNumber(lastText, last))) {
        return {};
    }
    if (firstText.empty()) { // so many at the end
        return lastText.empty() ? std::nullopt : std::optional(Range{size - std::min(last, size), size});
    }
    if (!lastText.empty() && last < first) {
        return {};
    }
    return Range{first, last < size ? last + 1 : size};
}
