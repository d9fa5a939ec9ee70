#include "vireo/support/qlStringUtils.h"

#include "frame/Utf8.h"

#include <algorithm>

namespace ql::impl {
namespace {

/// Which continuation bytes a lead byte asks for. The first one has a range of its own where the full range would
/// allow over-long forms, surrogates or code points above U+10FFFF.
struct Utf8Lead {
    std::size_t continuations;
    unsigned char firstLow;
    unsigned char firstHigh;
};

/// `continuations` is 0 for a byte that leads nothing.
Utf8Lead classify(unsigned char lead) {
    if (lead >= 0xC2 && lead <= 0xDF) {
        return {1, 0x80, 0xBF};
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return {2, static_cast<unsigned char>(lead == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(lead == 0xED ? 0x9F : 0xBF)};
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        return {3, static_cast<unsigned char>(lead == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(lead == 0xF4 ? 0x8F : 0xBF)};
    }
    return {0, 0, 0};
}

bool isSequence(std::string_view bytes, const Utf8Lead& lead) {
    if (lead.continuations == 0 || bytes.size() - 1 < lead.continuations) {
        return false;
    }
    const auto first = static_cast<unsigned char>(bytes[1]);
    if (first < lead.firstLow || first > lead.firstHigh) {
        return false;
    }
    return std::all_of(bytes.begin() + 2, bytes.begin() + 1 + static_cast<std::ptrdiff_t>(lead.continuations),
                       [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; });
}

} // namespace

std::size_t findInvalidUtf8(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const auto lead = static_cast<unsigned char>(text[at]);
        if (lead < 0x80) {
            ++at;
            continue;
        }
        const Utf8Lead kind = classify(lead);
        if (!isSequence(text.substr(at), kind)) {
            return at;
        }
        at += 1 + kind.continuations;
    }
    return std::string_view::npos;
}

} // namespace ql::impl

void qlStringUtils::toLower(std::string& text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
}

bool qlStringUtils::ContainsAsciiNonPrintableChar(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte > 0x7E;
    });
}

bool qlStringUtils::IsUtf8(std::string_view text) {
    return ql::impl::findInvalidUtf8(text) == std::string_view::npos;
}

std::string qlStringUtils::fromUInt64(std::uint64_t value, int minDigits) {
    std::string text = std::to_string(value);
    const std::size_t wanted = minDigits > 0 ? static_cast<std::size_t>(minDigits) : 0;
    if (text.size() < wanted) {
        text.insert(0, wanted - text.size(), '0');
    }
    return text;
}
