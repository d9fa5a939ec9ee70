#include "app/files/HttpDate.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>

namespace vireo::impl {

namespace {

constexpr std::array<std::string_view, 7> Days = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                  "Thursday", "Friday", "Saturday"};
constexpr std::array<std::string_view, 12> Months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::size_t ShortName = 3;
constexpr int SecondsPerHour = 3600;
constexpr std::int64_t SecondsPerDay = 86400;

struct Date {
    int year = 0;
    unsigned month = 0;
    unsigned day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

std::string padded(int value, std::size_t width) {
    std::string digits = std::to_string(value);
    return digits.insert(0, width - (std::min)(width, digits.size()), '0');
}

std::chrono::year yearOf(std::int64_t unixSeconds) {
    const std::chrono::sys_days day{std::chrono::days(unixSeconds / SecondsPerDay)};
    return std::chrono::year_month_day(day).year();
}

/// Takes a date apart. What does not fit leaves it failed.
class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    bool skip(std::string_view expected) {
        if (!text_.starts_with(expected)) {
            return false;
        }
        text_.remove_prefix(expected.size());
        return true;
    }

    bool isAtEnd() const { return text_.empty(); }

    void expect(std::string_view expected) { isGood_ = skip(expected) && isGood_; }

    int number(std::size_t digits) {
        int value = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            if (i >= text_.size() || text_[i] < '0' || text_[i] > '9') {
                isGood_ = false;
                return 0;
            }
            value = value * 10 + (text_[i] - '0');
        }
        text_.remove_prefix(digits);
        return value;
    }

    /// From 1 on.
    unsigned month() {
        for (std::size_t i = 0; i < Months.size(); ++i) {
            if (skip(Months[i])) {
                return static_cast<unsigned>(i) + 1;
            }
        }
        isGood_ = false;
        return 0;
    }

    void time(Date& date) {
        date.hour = number(2);
        expect(":");
        date.minute = number(2);
        expect(":");
        date.second = number(2);
    }

    bool isGood() const { return isGood_; }

private:
    std::string_view text_;
    bool isGood_ = true;
};

/// Whether the name of a day stands there, whole or short.
bool skipDay(Reader& reader, bool isWhole) {
    return std::ranges::any_of(
        Days, [&](std::string_view day) { return reader.skip(isWhole ? day : day.substr(0, ShortName)); });
}

std::optional<Date> readFixedDate(std::string_view text) {
    Reader reader(text);
    if (!skipDay(reader, false)) {
        return std::nullopt;
    }
    Date date;
    reader.expect(", ");
    date.day = static_cast<unsigned>(reader.number(2));
    reader.expect(" ");
    date.month = reader.month();
    reader.expect(" ");
    date.year = reader.number(4);
    reader.expect(" ");
    reader.time(date);
    reader.expect(" GMT");
    return reader.isGood() && reader.isAtEnd() ? std::optional(date) : std::nullopt;
}

std::optional<Date> readOldDate(std::string_view text, std::int64_t nowSeconds) {
    Reader reader(text);
    if (!skipDay(reader, true)) {
        return std::nullopt;
    }
    Date date;
    reader.expect(", ");
    date.day = static_cast<unsigned>(reader.number(2));
    reader.expect("-");
    date.month = reader.month();
    reader.expect("-");
    const int yearOfCentury = reader.number(2);
    reader.expect(" ");
    reader.time(date);
    reader.expect(" GMT");
    // What would be more than fifty years ahead is of the past.
    const int now = static_cast<int>(yearOf(nowSeconds));
    date.year = now - now % 100 + yearOfCentury;
    if (date.year > now + 50) {
        date.year -= 100;
    }
    return reader.isGood() && reader.isAtEnd() ? std::optional(date) : std::nullopt;
}

std::optional<Date> readAsctimeDate(std::string_view text) {
    Reader reader(text);
    if (!skipDay(reader, false)) {
        return std::nullopt;
    }
    Date date;
    reader.expect(" ");
    date.month = reader.month();
    reader.expect(" ");
    date.day = static_cast<unsigned>(reader.skip(" ") ? reader.number(1) : reader.number(2));
    reader.expect(" ");
    reader.time(date);
    reader.expect(" ");
    date.year = reader.number(4);
    return reader.isGood() && reader.isAtEnd() ? std::optional(date) : std::nullopt;
}

std::optional<std::int64_t> secondsOf(const Date& date) {
    const std::chrono::year_month_day day{std::chrono::year(date.year), std::chrono::month(date.month),
                                          std::chrono::day(date.day)};
    // A leap second is the first one of the next minute.
    if (!day.ok() || date.hour > 23 || date.minute > 59 || date.second > 60) {
        return std::nullopt;
    }
    return std::chrono::sys_days(day).time_since_epoch().count() * SecondsPerDay +
           std::int64_t{date.hour} * SecondsPerHour + std::int64_t{date.minute} * 60 + date.second;
}

} // namespace

std::string httpDate(std::int64_t unixSeconds) {
    const std::chrono::sys_days days{std::chrono::days(unixSeconds / SecondsPerDay)};
    const std::chrono::year_month_day date(days);
    const int second = static_cast<int>(unixSeconds % SecondsPerDay);
    std::string text(Days[std::chrono::weekday(days).c_encoding()].substr(0, ShortName));
    text.append(", ").append(padded(static_cast<int>(static_cast<unsigned>(date.day())), 2));
    text.append(" ").append(Months[static_cast<unsigned>(date.month()) - 1]);
    text.append(" ").append(padded(static_cast<int>(date.year()), 4));
    text.append(" ").append(padded(second / SecondsPerHour, 2));
    text.append(":").append(padded(second / 60 % 60, 2));
    text.append(":").append(padded(second % 60, 2));
    return text.append(" GMT");
}

std::optional<std::int64_t> parseHttpDate(std::string_view text, std::int64_t nowSeconds) {
    std::optional<Date> date = readFixedDate(text);
    if (!date) {
        date = readOldDate(text, nowSeconds);
    }
    if (!date) {
        date = readAsctimeDate(text);
    }
    return date ? secondsOf(*date) : std::nullopt;
}

} // namespace vireo::impl
