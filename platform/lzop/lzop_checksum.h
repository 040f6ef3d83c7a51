#pragma once

#include <cstddef>
#include <cstdint>

/// The checksums of the lzop format. Both are computed piece by piece: the value of one piece is
/// what the next one begins with.

inline constexpr std::uint32_t lzop_adler32_start = 1;
inline constexpr std::uint32_t lzop_crc32_start = 0;

/// Adler-32, as in RFC 1950.
[[nodiscard]] std::uint32_t lzop_adler32(std::uint32_t value, const unsigned char* data,
                                         std::size_t size) noexcept;

/// CRC-32, as in RFC 1952.
[[nodiscard]] std::uint32_t lzop_crc32(std::uint32_t value, const unsigned char* data,
                                       std::size_t size) noexcept;
