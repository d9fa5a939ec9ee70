// The header Range of static files, beside a reference that goes by single bytes. The first byte of an input is the
// size of the file, so that every range is near its end.

#include "Check.h"
#include "app/files/Ranges.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;
using vireo::impl::ByteRange;
using vireo::impl::chooseRanges;
using vireo::impl::RangeChoice;

/// Beyond all files of this fuzzer.
constexpr std::uint64_t Far = 1000;

std::optional<std::uint64_t> number(const std::string& digits) {
    if (digits.empty() || !std::all_of(digits.begin(), digits.end(),
                                       [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; })) {
        return std::nullopt;
    }
    const std::size_t start = (std::min)(digits.find_first_not_of('0'), digits.size() - 1);
    return digits.size() - start > 3 ? Far : std::stoull(digits.substr(start));
}

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// Which bytes are asked for; none where the header means nothing.
std::optional<std::vector<bool>> wanted(const std::string& header, std::size_t size) {
    std::string unit = header.substr(0, header.find('='));
    std::transform(unit.begin(), unit.end(), unit.begin(),
                   [](unsigned char c) { return static_cast<char>(c < 128 ? std::tolower(c) : c); });
    if (size == 0 || header.find('=') == std::string::npos || unit != "bytes") {
        return std::nullopt;
    }
    std::vector<bool> bytes(size);
    bool hasOne = false;
    std::string rest = header.substr(header.find('=') + 1) + ",";
    for (std::size_t comma = rest.find(','); comma != std::string::npos; comma = rest.find(',')) {
        const std::string element = trimmed(rest.substr(0, comma));
        rest.erase(0, comma + 1);
        if (element.empty()) {
            continue;
        }
        hasOne = true;
        const std::size_t dash = element.find('-');
        if (dash == std::string::npos) {
            return std::nullopt;
        }
        const std::string from = element.substr(0, dash);
        const std::string to = element.substr(dash + 1);
        const auto first = number(from);
        const auto last = number(to);
        if (from.empty() ? !last : !first || (!to.empty() && !last)) {
            return std::nullopt;
        }
        // Two numbers beyond everything are not compared here: which is greater, only their digits tell.
        if (!from.empty() && last && *last < *first) {
            return std::nullopt;
        }
        for (std::uint64_t byte = 0; byte < size; ++byte) {
            const bool isWanted = from.empty() ? byte + *last >= size : byte >= *first && (!last || byte <= *last);
            bytes[static_cast<std::size_t>(byte)] = bytes[static_cast<std::size_t>(byte)] || isWanted;
        }
    }
    return hasOne ? std::optional(bytes) : std::nullopt;
}

/// Whether two numbers of one range are too large for the reference.
bool hasTwoFarNumbers(std::string_view header) {
    std::size_t longest = 0;
    std::size_t run = 0;
    for (const char c : header) {
        run = c >= '0' && c <= '9' ? run + 1 : 0;
        longest = (std::max)(longest, run);
    }
    return longest > 3;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::size_t fileSize = data[0] % 64;
    const std::string header(reinterpret_cast<const char*>(data + 1), size - 1);
    RangeChoice choice = chooseRanges(header, fileSize);
    // As they were asked for, which the reference does not follow.
    std::ranges::sort(choice.parts, {}, &ByteRange::offset);

    std::vector<bool> given(fileSize);
    std::uint64_t end = 0;
    for (const ByteRange& part : choice.parts) {
        check(part.size != 0, "a part is empty");
        check(end == 0 || part.offset > end, "parts touch");
        check(part.offset < fileSize && part.size <= fileSize - part.offset, "a part is outside the file");
        end = part.offset + part.size;
        std::fill(given.begin() + static_cast<std::ptrdiff_t>(part.offset),
                  given.begin() + static_cast<std::ptrdiff_t>(end), true);
    }
    check((choice.kind == RangeChoice::Kind::Parts) == !choice.parts.empty(), "parts without any, or some without");
    if (hasTwoFarNumbers(header)) {
        return 0;
    }
    const auto expected = wanted(header, fileSize);
    check(expected.has_value() == (choice.kind != RangeChoice::Kind::Whole), "a header means something to one alone");
    check(!expected || given == *expected, "other bytes than those asked for");
    return 0;
}
