#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

/// A stretch of a file.
struct Byte_Range
{
    std::uint64_t first = 0;
    std::uint64_t size = 0;
};

enum class Range_Choice
{
    whole, ///< no range is asked for, or one that may be passed over
    part,
    unsatisfiable, ///< the range begins behind the end
};

/// Reads a Range field (RFC 9110, 14.2) for a file of @p size bytes. Other units, several ranges
/// and what is malformed are passed over, as the RFC allows.
/// @param range  set for a part
[[nodiscard]] Range_Choice choose_range(std::string_view field, std::uint64_t size,
                                        Byte_Range& range);

/// Where the bytes of an upload belong.
struct Content_Range
{
    std::uint64_t first = 0;
    std::optional<std::uint64_t> last; ///< none: the end is not known beforehand
};

/// Reads a Content-Range field of a request: "bytes FIRST-LAST/TOTAL", with "*" for a total that is
/// not known, or "bytes FIRST--1/*" for an end that is not known either.
/// @return false when it is malformed, or LAST lies before FIRST or not before TOTAL
[[nodiscard]] bool parse_content_range(std::string_view field, Content_Range& range);
