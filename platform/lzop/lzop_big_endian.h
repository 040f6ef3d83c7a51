#pragma once

#include <cstdint>

/// Numbers of the lzop format: big-endian, not aligned.

[[nodiscard]] inline std::uint16_t lzop_get_16(const unsigned char* from) noexcept
{
    return static_cast<std::uint16_t>(from[0] << 8 | from[1]);
}

[[nodiscard]] inline std::uint32_t lzop_get_32(const unsigned char* from) noexcept
{
    return std::uint32_t{lzop_get_16(from)} << 16 | lzop_get_16(from + 2);
}

/// @return behind what was written
inline unsigned char* lzop_put_16(unsigned char* to, std::uint32_t value) noexcept
{
    *to++ = static_cast<unsigned char>(value >> 8);
    *to++ = static_cast<unsigned char>(value);
    return to;
}

/// @return behind what was written
inline unsigned char* lzop_put_32(unsigned char* to, std::uint32_t value) noexcept
{
    return lzop_put_16(lzop_put_16(to, value >> 16), value);
}
