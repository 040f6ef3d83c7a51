#include "cli/limit.h"

#include "cli/failure.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

namespace cio
{
namespace
{

constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
// Six decimals of a unit of 2^40 fit into 64 bits; further ones are less than two bytes.
constexpr std::size_t most_decimals = 6;
constexpr std::int32_t minutes_of_day = 24 * 60;

[[noreturn]] void refuse(std::string_view text, const std::string& why)
{
    throw Usage_Error("--limit: '" + std::string(text) + "' " + why);
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

std::string_view take_digits(std::string_view& text)
{
    const auto end = static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), is_digit) -
                                              text.begin());
    const std::string_view digits = text.substr(0, end);
    text.remove_prefix(end);
    return digits;
}

std::string_view trimmed(std::string_view text)
{
    const std::size_t start = text.find_first_not_of(' ');
    if (start == std::string_view::npos)
        return {};
    return text.substr(start, text.find_last_not_of(' ') + 1 - start);
}

/// @param digits  of a number that fits
std::uint64_t to_number(std::string_view digits)
{
    std::uint64_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
}

std::uint64_t parse_rate(const std::string_view text)
{
    constexpr std::string_view suffixes = "KMGT";
    constexpr const char* form =
        "is no rate (bytes per second: digits, then perhaps K, M, G or T, as in 20M or 1.5M)";
    std::string_view rest = text;
    const std::string_view whole = take_digits(rest);
    std::string_view decimals;
    bool has_decimals = false;
    if (rest.starts_with('.')) {
        rest.remove_prefix(1);
        decimals = take_digits(rest);
        has_decimals = true;
    }
    unsigned shift = 0;
    if (!rest.empty() && suffixes.find(rest[0]) != std::string_view::npos) {
        shift = 10 * (static_cast<unsigned>(suffixes.find(rest[0])) + 1);
        rest.remove_prefix(1);
    }
    if (rest == "/s")
        rest = {};
    if (whole.empty() || !rest.empty() || (has_decimals && (decimals.empty() || shift == 0)))
        refuse(text, form);

    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(whole.data(), whole.data() + whole.size(), value);
    if (error != std::errc() || value > largest >> shift)
        refuse(text, "is a rate beyond what can be kept");
    std::string fraction(decimals.substr(0, most_decimals));
    fraction.resize(most_decimals, '0');
    const std::uint64_t bytes = (value << shift) + (to_number(fraction) << shift) / 1'000'000;
    if (bytes > largest)
        refuse(text, "is a rate beyond what can be kept");
    if (bytes == 0 && decimals.find_first_not_of('0') != std::string_view::npos)
        refuse(text, "is less than one byte per second");
    return bytes;
}

/// @return seconds after midnight
std::int32_t parse_time(std::string_view text, std::string_view entry)
{
    std::string_view rest = text;
    const std::string_view hours = take_digits(rest);
    const bool colon = rest.starts_with(':');
    rest.remove_prefix(colon ? 1 : 0);
    const std::string_view minutes = take_digits(rest);
    if (!colon || !rest.empty() || hours.empty() || hours.size() > 2 || minutes.size() != 2)
        refuse(entry, "is no period (HH:MM-HH:MM=RATE)");
    const auto minute = static_cast<std::int32_t>(to_number(minutes));
    const auto time = static_cast<std::int32_t>(to_number(hours)) * 60 + minute;
    if (minute > 59 || time > minutes_of_day)
        refuse(entry, "holds a time that does not exist (00:00 to 24:00)");
    return time * 60;
}

Rate_Control_Entry parse_period(std::string_view times, std::uint64_t rate, std::string_view entry)
{
    const std::size_t dash = times.find('-');
    if (dash == std::string_view::npos)
        refuse(entry, "is no period (HH:MM-HH:MM=RATE)");
    const std::int32_t start = parse_time(trimmed(times.substr(0, dash)), entry);
    const std::int32_t end = parse_time(trimmed(times.substr(dash + 1)), entry);
    if (start == minutes_of_day * 60)
        refuse(entry, "begins at 24:00, which only ends a period");
    if (start == end)
        refuse(entry, "is a period of no time (the whole day is 00:00-24:00)");
    return {start, end, rate};
}

Limit parse_timetable(std::string_view text)
{
    Limit limit;
    bool has_default = false;
    for (bool more = true; more;) {
        const std::size_t comma = text.find(',');
        more = comma != std::string_view::npos;
        const std::string_view entry = trimmed(text.substr(0, comma));
        text.remove_prefix(more ? comma + 1 : text.size());
        const std::size_t equals = entry.find('=');
        if (entry.empty())
            throw Usage_Error("--limit: an entry of the timetable is empty");
        if (equals == std::string_view::npos)
            refuse(entry, "is no entry of a timetable (HH:MM-HH:MM=RATE or else=RATE)");
        const std::string_view name = trimmed(entry.substr(0, equals));
        const std::uint64_t rate = parse_rate(trimmed(entry.substr(equals + 1)));
        if (name != "else") {
            limit.periods.push_back(parse_period(name, rate, entry));
            continue;
        }
        if (has_default)
            refuse(entry, "is a second 'else'");
        has_default = true;
        limit.bytes_per_second = rate;
    }
    return limit;
}

std::uint64_t share(std::uint64_t limit, unsigned connections)
{
    return limit == 0 ? 0 : std::max<std::uint64_t>(limit / connections, 1);
}

} // namespace

Limit parse_limit(const std::string& text)
{
    if (text.find_first_of(":=,") != std::string::npos)
        return parse_timetable(text);
    return {parse_rate(trimmed(text)), {}};
}

bool has_limit(const Client_IO_Base::Options& options)
{
    return options.max_bytes_per_second != 0 || !options.rate_control.empty();
}

void divide_limit(Client_IO_Base::Options& options, unsigned connections)
{
    options.max_bytes_per_second = share(options.max_bytes_per_second, connections);
    for (Rate_Control_Entry& period : options.rate_control)
        period.max_bytes_per_second = share(period.max_bytes_per_second, connections);
}

} // namespace cio
