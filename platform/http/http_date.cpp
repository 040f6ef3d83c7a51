#include "platform/http/http_date.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <locale>
#include <sstream>

namespace
{

using namespace std::chrono;

constexpr const char* day_names[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* month_names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
// Beyond them years have not four digits.
constexpr sys_seconds first_time = sys_days(year(0) / 1 / 1);
constexpr sys_seconds last_time = sys_days(year(10000) / 1 / 1) - seconds(1);

} // namespace

std::string http_date(std::int64_t posix_seconds)
{
    const sys_seconds time{seconds(posix_seconds)};
    if (time < first_time || time > last_time)
        return http_date(0);
    const auto days = floor<std::chrono::days>(time);
    const year_month_day date(days);
    const hh_mm_ss clock(time - days);
    char text[64];
    const int size = std::snprintf(
        text, sizeof text, "%s, %02u %s %04d %02d:%02d:%02d GMT",
        day_names[weekday(days).c_encoding()], static_cast<unsigned>(date.day()),
        month_names[static_cast<unsigned>(date.month()) - 1], static_cast<int>(date.year()),
        static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
        static_cast<int>(clock.seconds().count()));
    return {text, static_cast<std::size_t>(size)};
}

std::optional<std::int64_t> parse_http_date(const std::string& text)
{
    std::string padded = text;
    constexpr std::size_t day_in_last_form = 8; // where a space stands in front of one digit
    if (text.size() > day_in_last_form && text[day_in_last_form] == ' ' &&
        text.find(',') == std::string::npos)
        padded[day_in_last_form] = '0';
    for (const char* form :
         {"%a, %d %b %Y %H:%M:%S GMT", "%A, %d-%b-%y %H:%M:%S GMT", "%a %b %d %H:%M:%S %Y"})
    {
        std::istringstream stream(padded);
        stream.imbue(std::locale::classic());
        std::tm parts = {};
        stream >> std::get_time(&parts, form);
        const year_month_day date(year(parts.tm_year + 1900),
                                  month(static_cast<unsigned>(parts.tm_mon) + 1),
                                  day(static_cast<unsigned>(parts.tm_mday)));
        if (stream.fail() || !date.ok())
            continue;
        // A text that ends too early was taken as well.
        std::ostringstream whole;
        whole.imbue(std::locale::classic());
        whole << std::put_time(&parts, form);
        if (whole.str() != padded)
            continue;
        const sys_seconds time =
            sys_days(date) + hours(parts.tm_hour) + minutes(parts.tm_min) + seconds(parts.tm_sec);
        return time.time_since_epoch().count();
    }
    return std::nullopt;
}
