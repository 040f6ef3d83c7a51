#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// The lzop format's magic and header. Numbers are big-endian. What is known of the format was
/// checked against the files that the lzop tool (1.04) makes, and against what it accepts.

inline constexpr unsigned char lzop_magic[] = {0x89, 'L', 'Z', 'O', 0, '\r', '\n', 0x1a, '\n'};

/// Methods: the compressors of liblzo2. One decompressor reads them all.
enum class Lzop_Method : unsigned char
{
    LZO1X_1 = 1,
    LZO1X_1_15 = 2,
    LZO1X_999 = 3
};

/// Header flags that matter to a reader; those that describe the writer are passed over.
enum Lzop_Flags : std::uint32_t
{
    LZOP_ADLER32_PLAIN = 0x1,      ///< blocks carry the Adler-32 of their plain data
    LZOP_ADLER32_COMPRESSED = 0x2, ///< and that of their compressed data, unless stored
    LZOP_FROM_STDIN = 0x4,
    LZOP_TO_STDOUT = 0x8,
    LZOP_EXTRA_FIELD = 0x40, ///< a field of any size follows the header
    LZOP_CRC32_PLAIN = 0x100,
    LZOP_CRC32_COMPRESSED = 0x200,
    LZOP_FILTER = 0x800,          ///< blocks were filtered before compression
    LZOP_HEADER_CRC32 = 0x1000,   ///< header and extra field have a CRC-32, not an Adler-32
    LZOP_SYSTEM_UNIX = 0x3000000, ///< the system it was written on
    LZOP_KNOWN_FLAGS = 0xfff03fff ///< all that the format defines
};

/// What of a header the reading of the blocks depends on.
struct Lzop_Header
{
    std::uint32_t flags = 0;
    std::uint32_t filter = 0; ///< distance of the difference filter, 0 = none
};

/// The longest header behind the magic.
inline constexpr std::size_t lzop_max_header_size = 2 + 2 + 2 + 1 + 1 + 4 + 4 + 12 + 1 + 255 + 4;

/// Size of the header that begins with @p bytes (behind the magic), as far as they tell: with fewer
/// bytes than the result, ask again when there are as many.
[[nodiscard]] std::size_t lzop_header_size(std::span<const unsigned char> bytes) noexcept;

/// Reads a whole header, of lzop_header_size() bytes.
/// @return LZOP_OK, LZOP_E_HEADER or LZOP_E_UNSUPPORTED
[[nodiscard]] int parse_lzop_header(std::span<const unsigned char> bytes,
                                    Lzop_Header& header) noexcept;

/// Magic and header as they are written: Adler-32 checksums, no name, no mode, no time.
inline constexpr std::size_t lzop_written_header_size =
    sizeof lzop_magic + 2 + 2 + 2 + 1 + 1 + 4 + 12 + 1 + 4;

/// Writes lzop_written_header_size bytes to @p out.
/// @param level  what the header's level field says
void put_lzop_header(Lzop_Method method, unsigned char level, unsigned char* out) noexcept;
