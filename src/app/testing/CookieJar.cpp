// SPDX-License-Identifier: MIT
#include "app/testing/CookieJar.h"

#include "frame/HttpSyntax.h"

namespace vireo::impl {

namespace {

using ql::impl::isSameWord;
using ql::impl::withoutBlanks;

/// Takes what stands before the next `separator` from the front of `text`.
std::string_view takeUpTo(std::string_view& text, char separator) {
    const std::string_view taken = text.substr(0, text.find(separator));
    text.remove_prefix(taken.size() == text.size() ? taken.size() : taken.size() + 1);
    return withoutBlanks(taken);
}

} // namespace

CookieSetting CookieSetting::Of(std::string_view text) {
    CookieSetting setting;
    std::string_view pair = takeUpTo(text, ';');
    setting.name = takeUpTo(pair, '=');
    setting.value = withoutBlanks(pair);
    while (!text.empty()) {
        std::string_view attribute = takeUpTo(text, ';');
        const std::string_view name = takeUpTo(attribute, '=');
        const std::string_view value = withoutBlanks(attribute);
        if (isSameWord(name, "Max-Age")) {
            setting.isRemoval = value.starts_with('-') || value == "0";
        } else if (isSameWord(name, "Expires")) {
            setting.isRemoval = setting.isRemoval || value.find("1970") != std::string_view::npos;
        }
    }
    return setting;
}

void CookieJar::take(const ResponseText& response) {
    for (const std::string& text : response.values("Set-Cookie")) {
        const CookieSetting setting = CookieSetting::Of(text);
        if (setting.isRemoval) {
            values_.erase(setting.name);
        } else {
            values_[setting.name] = setting.value;
        }
    }
}

std::string CookieJar::header() const {
    std::string text;
    for (const auto& [name, value] : values_) {
        text += text.empty() ? "" : "; ";
        text += name;
        text += '=';
        text += value;
    }
    return text;
}

} // namespace vireo::impl
