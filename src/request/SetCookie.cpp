#include "vireo/SetCookie.h"

#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
#include <utility>

namespace ql::http {

namespace {

/// The end of the year 9999.
constexpr std::int64_t LastSecond = 253402300799;

constexpr std::array<std::string_view, 7> Weekdays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 12> Months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::string digits(std::int64_t number, std::size_t count) {
    std::string text = std::to_string(number);
    text.insert(0, count - (std::min)(count, text.size()), '0');
    return text;
}

/// RFC 9110 section 5.6.7. The C library's would depend on the locale.
std::string dateText(std::int64_t unixSeconds) {
    const std::chrono::sys_seconds time{std::chrono::seconds(unixSeconds)};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    std::string text(Weekdays[std::chrono::weekday(day).c_encoding()]);
    text.append(", ").append(digits(static_cast<unsigned int>(date.day()), 2));
    text.append(" ").append(Months[static_cast<unsigned int>(date.month()) - 1]);
    text.append(" ").append(digits(static_cast<int>(date.year()), 4));
    text.append(" ").append(digits(clock.hours().count(), 2));
    text.append(":").append(digits(clock.minutes().count(), 2));
    text.append(":").append(digits(clock.seconds().count(), 2));
    return text.append(" GMT");
}

bool isDomain(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.';
    });
}

bool hasPrefix(std::string_view name, std::string_view prefix) {
    return impl::isSameWord(name.substr(0, prefix.size()), prefix);
}

bool isOfHost(std::string_view name) {
    return hasPrefix(name, "__Host-");
}

void require(bool isRight, const char* complaint) {
    if (!isRight) {
        impl::throwInvalidArgument(complaint);
    }
}

} // namespace

SetCookie::SetCookie(std::string name, std::string value) : name_(std::move(name)), value_(std::move(value)) {
    require(impl::isToken(name_), "the name of the cookie is no token");
    require(impl::isCookieValue(value_), "the value of the cookie has forbidden characters");
}

SetCookie& SetCookie::setPath(std::string path) {
    // A browser takes blanks at the end for none of it.
    require(path.starts_with('/') && !path.ends_with(' ') && impl::isCookieAttributeValue(path),
            "bad path of a cookie");
    require(path == "/" || !isOfHost(name_), "a cookie with the prefix __Host- is for the path / alone");
    path_ = std::move(path);
    return *this;
}

SetCookie& SetCookie::setDomain(std::string domain) {
    require(isDomain(domain), "bad domain of a cookie");
    require(!isOfHost(name_), "a cookie with the prefix __Host- has no domain");
    domain_ = std::move(domain);
    return *this;
}

SetCookie& SetCookie::setMaxAge(std::int64_t seconds) {
    maxAgeSeconds_ = seconds;
    return *this;
}

SetCookie& SetCookie::setExpires(std::int64_t unixSeconds) {
    require(unixSeconds >= 0 && unixSeconds <= LastSecond, "end of a cookie out of range");
    expires_ = unixSeconds;
    return *this;
}

SetCookie& SetCookie::setSecure(bool on) {
    secure_ = on;
    return *this;
}

SetCookie& SetCookie::setHttpOnly(bool on) {
    httpOnly_ = on;
    return *this;
}

SetCookie& SetCookie::setSameSite(SameSite sameSite) {
    sameSite_ = sameSite;
    return *this;
}

std::string SetCookie::getValueAndAttributes() const {
    std::string text = value_;
    const auto add = [&text](std::string_view name, std::string_view value) {
        text.append("; ").append(name).append("=").append(value);
    };
    const bool isWholeHost = isOfHost(name_);
    if (isWholeHost || !path_.empty()) {
        add("Path", isWholeHost ? "/" : path_);
    }
    if (!domain_.empty()) {
        add("Domain", domain_);
    }
    if (maxAgeSeconds_) {
        add("Max-Age", std::to_string(*maxAgeSeconds_));
    }
    if (expires_) {
        add("Expires", dateText(*expires_));
    }
    if (secure_ || isWholeHost || hasPrefix(name_, "__Secure-") || sameSite_ == SameSite::None) {
        text += "; Secure";
    }
    if (httpOnly_) {
        text += "; HttpOnly";
    }
    if (sameSite_) {
        constexpr std::array<std::string_view, 3> Names = {"None", "Lax", "Strict"};
        add("SameSite", Names[static_cast<std::size_t>(*sameSite_)]);
    }
    return text;
}

std::string SetCookie::toString() const {
    return std::string(name_).append("=").append(getValueAndAttributes());
}

} // namespace ql::http
