#pragma once

#include <cstdint>
#include <string>

namespace cio
{

/// Reads a number of bytes: decimal digits and perhaps one of the suffixes K, M, G, T (powers of
/// 1024). Throws Usage_Error for anything else and for sizes of 2^63 and more.
[[nodiscard]] std::uint64_t parse_size(const std::string& text);

} // namespace cio
