#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vireofuzz {

/// Names and values.
using Pairs = std::vector<std::pair<std::string, std::string>>;

inline int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// What a text of "application/x-www-form-urlencoded" stands for (the URL standard).
inline std::string decodedOfForm(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0) {
            decoded += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}

/// The pairs of such a body, by one look at all of it.
inline Pairs pairsOfForm(std::string_view body) {
    Pairs pairs;
    while (!body.empty()) {
        const std::string_view pair = body.substr(0, body.find('&'));
        body.remove_prefix(pair.size() < body.size() ? pair.size() + 1 : pair.size());
        if (!pair.empty()) {
            const std::size_t end = pair.find('=');
            const std::string_view value = end == std::string_view::npos ? std::string_view() : pair.substr(end + 1);
            pairs.emplace_back(decodedOfForm(pair.substr(0, end)), decodedOfForm(value));
        }
    }
    return pairs;
}

/// Whether they can be decoded: each has a name, and none a NUL in it.
inline bool areNamed(const Pairs& pairs) {
    for (const auto& [name, value] : pairs) {
        if (name.empty() || name.find('\0') != std::string::npos) {
            return false;
        }
    }
    return true;
}

} // namespace vireofuzz
