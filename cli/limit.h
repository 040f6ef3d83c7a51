#pragma once

#include "client_io/client_io_base.h"

#include <cstdint>
#include <string>
#include <vector>

/// What `--limit` means, and how connections share it.
namespace cio
{

struct Limit
{
    std::uint64_t bytes_per_second = 0; ///< outside all periods, 0 = unlimited
    std::vector<Rate_Control_Entry> periods;

    bool operator==(const Limit&) const = default;
};

/// Reads a rate, or a timetable of rates.
///
/// A rate is a number of bytes per second, perhaps with decimals, one of the suffixes K, M, G, T
/// (powers of 1024) and "/s": "20M", "1.5M", "512K/s"; 0 is unlimited. A timetable is a list
/// "HH:MM-HH:MM=RATE,...,else=RATE" in local time: the first period that covers a time decides, one
/// that ends before it begins goes on past midnight, and "else" (absent: unlimited) is for the
/// rest. Throws Usage_Error for anything else.
[[nodiscard]] Limit parse_limit(const std::string& text);

/// Whether the options limit the bandwidth at any time.
[[nodiscard]] bool has_limit(const Client_IO_Base::Options& options);

/// Gives one of @p connections that work at once its share, so that all together keep to the limit.
/// No limit becomes 0, which would be none.
void divide_limit(Client_IO_Base::Options& options, unsigned connections);

} // namespace cio
