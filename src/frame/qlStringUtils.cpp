#include "vireo/support/qlStringUtils.h"

#include "frame/Utf8.h"

#include <algorithm>

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
