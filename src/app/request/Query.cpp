#include "app/request/Query.h"

#include "frame/HttpSyntax.h"
#include "frame/Utf8.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace vireo::impl {

namespace {

std::string decode(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::optional<char> escaped = text[i] == '%' ? ql::impl::escapeAt(text, i) : std::nullopt;
        if (escaped) {
            decoded += *escaped;
            i += 2;
        } else {
            decoded += text[i] == '+' ? ' ' : text[i];
        }
    }
    return withReplacedUtf8(std::move(decoded));
}

/// How long the piece is that one U+FFFD stands for.
/// @param text begins with what is no whole sequence.
std::size_t brokenLength(std::string_view text) {
    ql::impl::Utf8Validator validator;
    std::size_t length = 0;
    while (length < text.size()) {
        const auto byte = static_cast<unsigned char>(text[length]);
        if (!validator.feed({&byte, 1})) {
            break;
        }
        ++length;
    }
    return (std::max)(length, std::size_t{1});
}

} // namespace

std::string withReplacedUtf8(std::string text) {
    constexpr std::string_view Replacement = "\xEF\xBF\xBD";
    std::size_t bad = ql::impl::findInvalidUtf8(text);
    if (bad == std::string_view::npos) {
        return text;
    }
    std::string replaced;
    std::string_view rest = text;
    while (bad != std::string_view::npos) {
        replaced += rest.substr(0, bad);
        replaced += Replacement;
        rest.remove_prefix(bad);
        rest.remove_prefix(brokenLength(rest));
        bad = ql::impl::findInvalidUtf8(rest);
    }
    return replaced += rest;
}

std::vector<QueryArgument> parseQuery(std::string_view query) {
    std::vector<QueryArgument> arguments;
    while (!query.empty()) {
        const std::string_view pair = query.substr(0, query.find('&'));
        query.remove_prefix((std::min)(pair.size() + 1, query.size()));
        if (pair.empty()) {
            continue;
        }
        const std::size_t equals = (std::min)(pair.find('='), pair.size());
        arguments.push_back({decode(pair.substr(0, equals)), decode(pair.substr((std::min)(equals + 1, pair.size())))});
    }
    return arguments;
}

} // namespace vireo::impl
