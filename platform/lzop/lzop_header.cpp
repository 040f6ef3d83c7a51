#include "platform/lzop/lzop_header.h"

#include <algorithm>
#include <lzo/lzoconf.h>

#include "platform/lzop/lzop.h"
#include "platform/lzop/lzop_big_endian.h"
#include "platform/lzop/lzop_checksum.h"

namespace
{

// Versions are those of the tool, 0x1040 = 1.04.
constexpr unsigned written_version = 0x1040;
constexpr unsigned newest_version = 0x1040;
constexpr unsigned oldest_version = 0x900;
constexpr unsigned version_with_level =
    0x940; // and with "version needed" and the time's upper half

constexpr std::uint32_t highest_level = 9;
constexpr std::uint32_t highest_filter = 16;

// Places of the fields, from behind the magic.
struct Layout
{
    explicit Layout(unsigned version) : is_old{version < version_with_level} {}

    bool is_old;
    std::size_t needed = 4; // not in old headers
    std::size_t method = is_old ? 4 : 6;
    std::size_t level = 7; // not in old headers
    std::size_t flags = is_old ? 5 : 8;
    std::size_t filter = flags + 4; // only with its flag

    [[nodiscard]] std::size_t name(std::uint32_t flag_bits) const
    {
        const std::size_t mode_and_time = is_old ? 8 : 12;
        return filter + ((flag_bits & LZOP_FILTER) != 0 ? 4 : 0) + mode_and_time;
    }
};

} // namespace

std::size_t lzop_header_size(std::span<const unsigned char> bytes) noexcept
{
    if (bytes.size() < 2)
        return 2;
    const Layout layout{lzop_get_16(bytes.data())};
    if (bytes.size() < layout.filter)
        return layout.filter;
    const std::size_t name = layout.name(lzop_get_32(&bytes[layout.flags]));
    if (bytes.size() <= name)
        return name + 1;
    return name + 1 + bytes[name] + 4;
}

int parse_lzop_header(std::span<const unsigned char> bytes, Lzop_Header& header) noexcept
{
    const unsigned version = lzop_get_16(bytes.data());
    const Layout layout{version};
    const unsigned needed = layout.is_old ? version : lzop_get_16(&bytes[layout.needed]);
    if (needed < oldest_version)
        return LZOP_E_HEADER;
    const std::uint32_t flags = lzop_get_32(&bytes[layout.flags]);
    // These come before the checksum, whose place they may move.
    if (needed > newest_version || (flags & ~LZOP_KNOWN_FLAGS) != 0)
        return LZOP_E_UNSUPPORTED;

    const std::size_t size = bytes.size() - 4;
    const std::uint32_t checksum = (flags & LZOP_HEADER_CRC32) != 0
                                       ? lzop_crc32(lzop_crc32_start, bytes.data(), size)
                                       : lzop_adler32(lzop_adler32_start, bytes.data(), size);
    if (checksum != lzop_get_32(&bytes[size]))
        return LZOP_E_HEADER;

    const unsigned method = bytes[layout.method];
    if (method < static_cast<unsigned>(Lzop_Method::LZO1X_1) ||
        method > static_cast<unsigned>(Lzop_Method::LZO1X_999))
        return LZOP_E_UNSUPPORTED;
    if (!layout.is_old && bytes[layout.level] > highest_level)
        return LZOP_E_UNSUPPORTED;
    const std::uint32_t filter =
        (flags & LZOP_FILTER) != 0 ? lzop_get_32(&bytes[layout.filter]) : 0;
    if (filter > highest_filter)
        return LZOP_E_UNSUPPORTED;
    header = {flags, filter};
    return LZOP_OK;
}

void put_lzop_header(Lzop_Method method, unsigned char level, unsigned char* out) noexcept
{
    unsigned char* const header = std::copy(std::begin(lzop_magic), std::end(lzop_magic), out);
    unsigned char* at = lzop_put_16(header, written_version);
    at = lzop_put_16(at, lzo_version() & 0xffff);
    at = lzop_put_16(at, version_with_level);
    *at++ = static_cast<unsigned char>(method);
    *at++ = level;
    at = lzop_put_32(at, LZOP_ADLER32_PLAIN | LZOP_FROM_STDIN | LZOP_TO_STDOUT | LZOP_SYSTEM_UNIX);
    at = lzop_put_32(at, 0); // mode
    at = lzop_put_32(at, 0); // time, lower half
    at = lzop_put_32(at, 0); // time, upper half
    *at++ = 0;               // length of the name
    lzop_put_32(at,
                lzop_adler32(lzop_adler32_start, header, static_cast<std::size_t>(at - header)));
}
