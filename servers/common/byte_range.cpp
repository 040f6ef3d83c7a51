#include "servers/common/byte_range.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace
{

// Offsets of files are signed.
constexpr std::uint64_t largest_offset = std::numeric_limits<std::int64_t>::max();

/// Takes a number from the front of @p text.
bool take_number(std::string_view& text, std::uint64_t& number)
{
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || number > largest_offset)
        return false;
    text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
    return true;
}

bool take(std::string_view& text, std::string_view prefix)
{
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

} // namespace

Range_Choice choose_range(std::string_view field, std::uint64_t size, Byte_Range& range)
{
    std::uint64_t first = 0;
    std::uint64_t last = largest_offset;
    if (!take(field, "bytes="))
        return Range_Choice::whole;
    if (take(field, "-")) {
        std::uint64_t length = 0;
        if (!take_number(field, length) || !field.empty())
            return Range_Choice::whole;
        if (length == 0)
            return Range_Choice::unsatisfiable;
        first = size - std::min(length, size);
    } else {
        if (!take_number(field, first) || !take(field, "-"))
            return Range_Choice::whole;
        if (!field.empty() && (!take_number(field, last) || !field.empty() || last < first))
            return Range_Choice::whole;
    }
    if (first >= size)
        return Range_Choice::unsatisfiable;
    range.first = first;
    range.size = std::min(last, size - 1) - first + 1;
    return Range_Choice::part;
}

bool parse_content_range(std::string_view field, Content_Range& range)
{
    std::uint64_t last = 0;
    std::uint64_t total = 0;
    range.last.reset();
    if (!take(field, "bytes ") || !take_number(field, range.first) || !take(field, "-"))
        return false;
    if (!take(field, "-1")) {
        if (!take_number(field, last) || last < range.first || last == largest_offset)
            return false;
        range.last = last;
    }
    if (!take(field, "/"))
        return false;
    if (take(field, "*"))
        return field.empty();
    return take_number(field, total) && field.empty() && total > range.last.value_or(0) &&
           total >= range.first;
}
