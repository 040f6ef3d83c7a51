#include "platform/runtime/iso8601.h"

#include <chrono>
#include <optional>
#include <string_view>

namespace
{

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

/// Takes the parts of a time off the front of a text.
class Scanner
{
public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    bool at_end() const { return rest_.empty(); }
    bool at_digit() const { return !rest_.empty() && is_digit(rest_.front()); }

    /// Takes one character when it is among @p choices; '\0' when it is not.
    char take(std::string_view choices)
    {
        if (rest_.empty() || choices.find(rest_.front()) == std::string_view::npos)
            return '\0';
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }

    /// Takes a number of exactly @p digits digits.
    bool number(unsigned digits, int& value)
    {
        if (rest_.size() < digits)
            return false;
        int result = 0;
        for (const char c : rest_.substr(0, digits)) {
            if (!is_digit(c))
                return false;
            result = result * 10 + (c - '0');
        }
        value = result;
        rest_.remove_prefix(digits);
        return true;
    }

    /// Takes a fraction's digits; false when there are none.
    bool fraction()
    {
        if (!at_digit())
            return false;
        while (at_digit())
            rest_.remove_prefix(1);
        return true;
    }

private:
    std::string_view rest_;
};

std::optional<std::int64_t> date(Scanner& scanner, bool& extended)
{
    int year = 0;
    int month = 0;
    int day = 0;
    if (!scanner.number(4, year))
        return {};
    extended = scanner.take("-") != '\0';
    if (!scanner.number(2, month) || (extended && scanner.take("-") == '\0') ||
        !scanner.number(2, day))
        return {};
    const std::chrono::year_month_day parts{std::chrono::year{year},
                                            std::chrono::month{static_cast<unsigned>(month)},
                                            std::chrono::day{static_cast<unsigned>(day)}};
    if (!parts.ok())
        return {};
    return std::chrono::seconds{std::chrono::sys_days{parts}.time_since_epoch()}.count();
}

// hh:mm[:ss[.fraction]]; the seconds may be 60 (a leap second), the whole 24:00:00.
std::optional<std::int64_t> time_of_day(Scanner& scanner, bool extended)
{
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!scanner.number(2, hour) || (extended && scanner.take(":") == '\0') ||
        !scanner.number(2, minute))
        return {};
    if (extended ? scanner.take(":") != '\0' : scanner.at_digit()) {
        if (!scanner.number(2, second))
            return {};
        if (scanner.take(".,") != '\0' && !scanner.fraction())
            return {};
    }
    const bool end_of_day = hour == 24 && minute == 0 && second == 0;
    if ((hour > 23 && !end_of_day) || minute > 59 || second > 60)
        return {};
    return (hour * 60 + minute) * 60 + second;
}

// Z or +hh[[:]mm]; the colon is taken in both forms, as many programs write "+0800" behind the
// extended form. The result is what is to be subtracted.
std::optional<std::int64_t> zone(Scanner& scanner)
{
    if (scanner.at_end() || scanner.take("Zz") != '\0')
        return 0;
    const char sign = scanner.take("+-");
    int hour = 0;
    int minute = 0;
    if (sign == '\0' || !scanner.number(2, hour))
        return {};
    if (!scanner.at_end()) {
        scanner.take(":");
        if (!scanner.number(2, minute))
            return {};
    }
    if (hour > 23 || minute > 59)
        return {};
    const int seconds = (hour * 60 + minute) * 60;
    return sign == '-' ? -seconds : seconds;
}

std::optional<std::int64_t> parse(std::string_view text)
{
    Scanner scanner(text);
    bool extended = false;
    const auto day = date(scanner, extended);
    if (!day || scanner.at_end())
        return day;
    if (scanner.take("Tt") == '\0')
        return {};
    const auto time = time_of_day(scanner, extended);
    if (!time)
        return {};
    const auto offset = zone(scanner);
    if (!offset || !scanner.at_end())
        return {};
    return *day + *time - *offset;
}

} // namespace

std::int64_t iso8601_to_posix_time(const std::string& text)
{
    return parse(text).value_or(0);
}
