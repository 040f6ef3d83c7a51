#pragma once

#include <cstdint>

/// A period of the day with a bandwidth limit of its own.
struct Rate_Control_Entry
{
    Rate_Control_Entry(std::int32_t start, std::int32_t end, std::uint64_t limit)
        : start_time(start), end_time(end), max_bytes_per_second(limit)
    {}

    std::int32_t start_time;            ///< seconds after local midnight, 0 to 86400
    std::int32_t end_time;              ///< likewise, exclusive; before start_time: wraps midnight
    std::uint64_t max_bytes_per_second; ///< 0 = unlimited in this period

    bool operator==(const Rate_Control_Entry&) const = default;
};
