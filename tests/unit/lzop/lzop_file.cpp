#include "tests/unit/lzop/lzop_file.h"

const std::string lzop_file_end(4, '\0');

std::uint32_t slow_adler32(const std::string& data)
{
    std::uint32_t a = 1;
    std::uint32_t b = 0;
    for (const char c : data) {
        a = (a + static_cast<unsigned char>(c)) % 65521;
        b = (b + a) % 65521;
    }
    return b << 16 | a;
}

std::uint32_t slow_crc32(const std::string& data)
{
    std::uint32_t value = 0xffffffff;
    for (const char c : data) {
        value ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            value = (value & 1) != 0 ? value >> 1 ^ 0xedb88320 : value >> 1;
    }
    return ~value;
}

std::string big_endian(std::uint32_t value, int bytes)
{
    std::string text;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
        text += static_cast<char>(value >> shift);
    return text;
}

std::string Lzop_File_Header::bytes() const
{
    const auto checksum = (flags & 0x1000) != 0 ? slow_crc32 : slow_adler32;
    std::string header = big_endian(version, 2) + big_endian(library, 2);
    if (needed)
        header += big_endian(*needed, 2);
    header += big_endian(method, 1);
    if (level)
        header += big_endian(*level, 1);
    header += big_endian(flags, 4);
    if (filter)
        header += big_endian(*filter, 4);
    header += big_endian(mode, 4) + big_endian(time, 4);
    if (time_upper)
        header += big_endian(*time_upper, 4);
    header += big_endian(static_cast<std::uint32_t>(name.size()), 1) + name;
    header += big_endian(checksum(header), 4);
    if (extra) {
        const std::string field = big_endian(static_cast<std::uint32_t>(extra->size()), 4) + *extra;
        header += field + big_endian(checksum(field), 4);
    }
    return std::string("\x89LZO\0\r\n\x1a\n", 9) + header;
}

std::string lzop_file_block(const Lzop_File_Header& header, const std::string& plain,
                            const std::optional<std::string>& compressed)
{
    const std::string& data = compressed ? *compressed : plain;
    std::string block = big_endian(static_cast<std::uint32_t>(plain.size()), 4) +
                        big_endian(static_cast<std::uint32_t>(data.size()), 4);
    if ((header.flags & 0x1) != 0)
        block += big_endian(slow_adler32(plain), 4);
    if ((header.flags & 0x100) != 0)
        block += big_endian(slow_crc32(plain), 4);
    if (compressed && (header.flags & 0x2) != 0)
        block += big_endian(slow_adler32(data), 4);
    if (compressed && (header.flags & 0x200) != 0)
        block += big_endian(slow_crc32(data), 4);
    return block + data;
}

std::string lzop_file_member(const Lzop_File_Header& header, const std::string& plain)
{
    return header.bytes() + lzop_file_block(header, plain) + lzop_file_end;
}
