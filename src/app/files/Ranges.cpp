#include "app/files/Ranges.h"

#include "frame/HttpSyntax.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <optional>

namespace vireo::impl {

namespace {

using ql::impl::isSameWord;
using ql::impl::takeElement;

constexpr std::uint64_t Maximum = std::numeric_limits<std::uint64_t>::max();

/// A number beyond all files counts as the largest one. @return none for what is no number.
std::optional<std::uint64_t> numberOf(std::string_view text) {
    if (text.empty()) {
        return std::nullopt;
    }
    std::uint64_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        const auto digit = static_cast<std::uint64_t>(c - '0');
        value = value > (Maximum - digit) / 10 ? Maximum : value * 10 + digit;
    }
    return value;
}

/// What one element of the set asks for.
struct Element {
    bool isValid = false;
    /// Empty where the file has nothing of it.
    ByteRange range{};
};

Element suffixOf(std::string_view text, std::uint64_t size) {
    const auto length = numberOf(text);
    if (!length) {
        return {};
    }
    const std::uint64_t taken = (std::min)(*length, size);
    return {true, {size - taken, taken}};
}

Element elementOf(std::string_view text, std::uint64_t size) {
    const std::size_t dash = text.find('-');
    if (dash == std::string_view::npos) {
        return {};
    }
    if (dash == 0) {
        return suffixOf(text.substr(1), size);
    }
    const auto first = numberOf(text.substr(0, dash));
    const std::string_view end = text.substr(dash + 1);
    const auto last = end.empty() ? Maximum : numberOf(end);
    if (!first || !last || *last < *first) {
        return {};
    }
    if (*first >= size) {
        return {true};
    }
    return {true, {*first, (std::min)(*last, size - 1) - *first + 1}};
}

struct Placed {
    ByteRange range;
    std::size_t place;
};

/// Those made one that overlap or touch, each where the first of them stood.
std::vector<ByteRange> merged(const std::vector<ByteRange>& ranges) {
    std::vector<Placed> placed;
    placed.reserve(ranges.size());
    for (const ByteRange& range : ranges) {
        placed.push_back({range, placed.size()});
    }
    std::ranges::sort(placed, {}, [](const Placed& part) { return part.range.offset; });
    std::vector<Placed> joined;
    for (const Placed& next : placed) {
        ByteRange* const last = joined.empty() ? nullptr : &joined.back().range;
        if (last == nullptr || next.range.offset > last->offset + last->size) {
            joined.push_back(next);
            continue;
        }
        last->size = (std::max)(last->offset + last->size, next.range.offset + next.range.size) - last->offset;
        joined.back().place = (std::min)(joined.back().place, next.place);
    }
    std::ranges::sort(joined, {}, &Placed::place);
    std::vector<ByteRange> parts;
    std::ranges::transform(joined, std::back_inserter(parts), &Placed::range);
    return parts;
}

} // namespace

RangeChoice chooseRanges(std::string_view header, std::uint64_t size) {
    using Kind = RangeChoice::Kind;
    const std::size_t equals = header.find('=');
    // Of an empty file no part can be named.
    if (size == 0 || equals == std::string_view::npos || !isSameWord(header.substr(0, equals), "bytes")) {
        return {};
    }
    std::string_view set = header.substr(equals + 1);
    std::vector<ByteRange> ranges;
    bool hasElements = false;
    while (!set.empty()) {
        const std::string_view text = takeElement(set);
        if (text.empty()) {
            continue;
        }
        const Element element = elementOf(text, size);
        if (!element.isValid) {
            return {};
        }
        hasElements = true;
        if (element.range.size != 0) {
            ranges.push_back(element.range);
        }
    }
    if (!hasElements) {
        return {};
    }
    if (ranges.empty()) {
        return {Kind::Unsatisfiable};
    }
    return {Kind::Parts, merged(ranges)};
}

std::string contentRange(const ByteRange& part, std::uint64_t size) {
    return "bytes " + std::to_string(part.offset) + "-" + std::to_string(part.offset + part.size - 1) + "/" +
           std::to_string(size);
}

} // namespace vireo::impl
