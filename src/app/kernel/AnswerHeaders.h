// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HttpResponseInterface.h"

#include <string>
#include <string_view>

namespace vireo::impl {

/// The header lines of an answer, in the order in which they were set. What they may be is the caller's to check.
class AnswerHeaders {
public:
    using Lines = ql::HttpResponseInterface::Headers;

    /// In place of all of that name.
    void set(std::string_view name, std::string_view value);
    /// One more.
    void add(std::string_view name, std::string_view value);
    /// All of that name.
    void remove(std::string_view name);
    /// Sets a cookie, in place of one of the same name.
    /// @param value of "Set-Cookie".
    void setCookie(std::string_view name, std::string_view value);

    /// The first one's value, which lives until the next change; null without one.
    const std::string* find(std::string_view name) const;

    /// As the core takes them: the keys keep the order.
    const Lines& asMap() const { return lines_; }

private:
    Lines lines_;
    /// Of the next line; it has four digits.
    unsigned int nextKey_ = 1000;
};

} // namespace vireo::impl
