#include "HttpDate.h"

#include <cstdio>
#include <ctime>
#include <iomanip>
#include <locale>
#include <sstream>

using namespace std::chrono;

std::string httpDate(sys_seconds time) {
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    static constexpr const char* DayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* MonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char text[64];
    std::snprintf(text, sizeof(text), "%s, %02u %s %04d %02d:%02d:%02d GMT", DayNames[weekday(day).c_encoding()],
                  static_cast<unsigned int>(date.day()), MonthNames[static_cast<unsigned int>(date.month()) - 1],
                  static_cast<int>(date.year()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()));
    return text;
}

std::optional<sys_seconds> parseHttpDate(const std::string& text) {
    for (const char* const format :
         {"%a, %d %b %Y %H:%M:%S GMT", "%A, %d-%b-%y %H:%M:%S GMT", "%a %b %e %H:%M:%S %Y"}) {
        std::istringstream stream(text);
        stream.imbue(std::locale::classic());
        std::tm fields{};
        if (!(stream >> std::get_time(&fields, format)) || stream.peek() != std::istringstream::traits_type::eof()) {
            continue;
        }
        const year_month_day date(year(fields.tm_year + 1900), month(static_cast<unsigned int>(fields.tm_mon + 1)),
                                  day(static_cast<unsigned int>(fields.tm_mday)));
        if (date.ok()) {
            return sys_days(date) + hours(fields.tm_hour) + minutes(fields.tm_min) + seconds(fields.tm_sec);
        }
    }
    return {};
}
