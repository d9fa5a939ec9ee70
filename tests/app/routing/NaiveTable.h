#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vireotest {

/// A second reading of routes: looks at each pattern by itself, one after the other, and then compares those that fit.
class NaiveTable {
public:
    struct Found {
        std::size_t route = 0;
        std::vector<std::string> values;
    };

    /// @param pattern a right one.
    void add(std::string method, const std::string& pattern) {
        std::vector<Part> parts;
        for (std::string& text : split(pattern.substr(1))) {
            const bool isParameter = !text.empty() && text[0] == '{';
            parts.push_back({isParameter, isParameter ? std::move(text) : decode(text)});
        }
        routes_.push_back({std::move(method), std::move(parts)});
    }

    static std::vector<std::string> split(std::string_view text) {
        std::vector<std::string> parts(1);
        for (const char c : text) {
            if (c == '/') {
                parts.emplace_back();
            } else {
                parts.back() += c;
            }
        }
        return parts;
    }

    std::optional<Found> match(const std::string& method, const std::vector<std::string>& path) const {
        std::optional<Found> best;
        std::string bestRank;
        for (std::size_t i = 0; i < routes_.size(); ++i) {
            if (routes_[i].first != method && !(method == "HEAD" && routes_[i].first == "GET")) {
                continue;
            }
            Found found{i, {}};
            std::string rank;
            if (!fits(routes_[i].second, path, found.values, rank)) {
                continue;
            }
            // Of the same pattern HEAD's own comes first.
            rank += routes_[i].first == method ? '0' : '1';
            if (!best || rank < bestRank) {
                best = found;
                bestRank = rank;
            }
        }
        return best;
    }

    /// All the methods of the routes that fit.
    std::vector<std::string> methods(const std::vector<std::string>& path) const {
        std::vector<std::string> methods;
        for (const auto& [method, pattern] : routes_) {
            std::vector<std::string> values;
            std::string rank;
            if (fits(pattern, path, values, rank)) {
                methods.push_back(method);
            }
        }
        return methods;
    }

private:
    struct Part {
        bool isParameter;
        /// With its braces; or the literal, decoded.
        std::string text;
    };

    static std::string decode(const std::string& text) {
        std::string decoded;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '%') {
                decoded += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
                i += 2;
            } else {
                decoded += text[i];
            }
        }
        return decoded;
    }

    static bool isOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

    static bool isInt(const std::string& text) {
        std::size_t at = !text.empty() && text[0] == '-' ? 1 : 0;
        const bool isNegative = at == 1;
        if (at == text.size()) {
            return false;
        }
        std::string digits;
        for (; at < text.size(); ++at) {
            if (!isOneOf(text[at], "0123456789")) {
                return false;
            }
            if (!digits.empty() || text[at] != '0') {
                digits += text[at];
            }
        }
        const std::string most = isNegative ? "9223372036854775808" : "9223372036854775807";
        return digits.size() < most.size() || (digits.size() == most.size() && digits <= most);
    }

    static bool isUuid(const std::string& text) {
        for (std::size_t i = 0; i < text.size(); ++i) {
            const bool isDash = i == 8 || i == 13 || i == 18 || i == 23;
            if (isDash ? text[i] != '-' : !isOneOf(text[i], "0123456789abcdefABCDEF")) {
                return false;
            }
        }
        return text.size() == 36;
    }

    /// @param rank gets a digit for each segment: the less, the more special.
    static bool fits(const std::vector<Part>& pattern, const std::vector<std::string>& path,
                     std::vector<std::string>& values, std::string& rank) {
        for (std::size_t i = 0; i < pattern.size(); ++i) {
            const std::string& part = pattern[i].text;
            if (i >= path.size()) {
                return false;
            }
            if (!pattern[i].isParameter) {
                if (part != path[i]) {
                    return false;
                }
                rank += '0';
                continue;
            }
            const std::string type = part.find(':') == std::string::npos ? "" : part.substr(part.find(':'));
            if (type == ":path}") {
                std::string rest = path[i];
                for (std::size_t j = i + 1; j < path.size(); ++j) {
                    rest += "/" + path[j];
                }
                values.push_back(rest);
                rank += '3';
                return !rest.empty();
            }
            if (path[i].empty() || (type == ":int}" && !isInt(path[i])) || (type == ":uuid}" && !isUuid(path[i]))) {
                return false;
            }
            values.push_back(path[i]);
            rank += type.empty() ? '2' : '1';
        }
        return pattern.size() == path.size();
    }

    /// Methods and segments.
    std::vector<std::pair<std::string, std::vector<Part>>> routes_;
};

} // namespace vireotest
