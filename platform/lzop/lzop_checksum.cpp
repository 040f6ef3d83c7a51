#include "platform/lzop/lzop_checksum.h"

#include <array>

namespace
{

constexpr std::uint32_t adler_base = 65521;

// Adler-32 adds a byte to its second sum once for itself and once for each byte behind it. With
// these weights, 16 bits wide, compilers turn the sums over a chunk into vector instructions.
constexpr std::size_t chunk_size = 1024;

constexpr std::array<std::int16_t, chunk_size> make_adler_weights()
{
    std::array<std::int16_t, chunk_size> weights{};
    for (std::size_t i = 0; i < chunk_size; ++i)
        weights[i] = static_cast<std::int16_t>(chunk_size - i);
    return weights;
}

constexpr auto adler_weights = make_adler_weights();

// CRC-32 tables for eight bytes a step: entry [k][b] is the checksum of byte b and k zeros behind.
constexpr std::array<std::array<std::uint32_t, 256>, 8> make_crc_tables()
{
    std::array<std::array<std::uint32_t, 256>, 8> tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit)
            value = (value >> 1) ^ ((value & 1) != 0 ? 0xedb88320U : 0U);
        tables[0][byte] = value;
    }
    for (std::size_t k = 1; k < 8; ++k)
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const std::uint32_t value = tables[k - 1][byte];
            tables[k][byte] = (value >> 8) ^ tables[0][value & 0xff];
        }
    return tables;
}

constexpr auto crc_tables = make_crc_tables();

std::uint32_t little_endian_32(const unsigned char* data)
{
    return data[0] | static_cast<std::uint32_t>(data[1]) << 8 |
           static_cast<std::uint32_t>(data[2]) << 16 | static_cast<std::uint32_t>(data[3]) << 24;
}

} // namespace

std::uint32_t lzop_adler32(std::uint32_t value, const unsigned char* data,
                           std::size_t size) noexcept
{
    std::uint64_t a = value & 0xffff;
    std::uint64_t b = value >> 16;
    for (; size >= chunk_size; size -= chunk_size, data += chunk_size) {
        std::int32_t sum = 0;
        std::int32_t weighted_sum = 0;
        for (std::size_t i = 0; i < chunk_size; ++i) {
            const std::int16_t byte = data[i];
            sum += byte;
            weighted_sum += byte * adler_weights[i];
        }
        b = (b + a * chunk_size + static_cast<std::uint32_t>(weighted_sum)) % adler_base;
        a = (a + static_cast<std::uint32_t>(sum)) % adler_base;
    }
    for (; size > 0; --size) {
        a += *data++;
        b += a;
    }
    return static_cast<std::uint32_t>(b % adler_base << 16 | a % adler_base);
}

std::uint32_t lzop_crc32(std::uint32_t value, const unsigned char* data, std::size_t size) noexcept
{
    value = ~value;
    for (; size >= 8; size -= 8, data += 8) {
        const std::uint32_t low = little_endian_32(data) ^ value;
        const std::uint32_t high = little_endian_32(data + 4);
        value = crc_tables[7][low & 0xff] ^ crc_tables[6][low >> 8 & 0xff] ^
                crc_tables[5][low >> 16 & 0xff] ^ crc_tables[4][low >> 24] ^
                crc_tables[3][high & 0xff] ^ crc_tables[2][high >> 8 & 0xff] ^
                crc_tables[1][high >> 16 & 0xff] ^ crc_tables[0][high >> 24];
    }
    for (; size > 0; --size)
        value = (value >> 8) ^ crc_tables[0][(value ^ *data++) & 0xff];
    return ~value;
}
