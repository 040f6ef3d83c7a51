#include "platform/lzop/lzop_checksum.h"

#include <gtest/gtest.h>

#include "tests/unit/lzop/lzop_file.h"
#include "tests/unit/lzop/lzop_pieces.h"

namespace
{

std::uint32_t adler32(const std::string& data, std::uint32_t value = lzop_adler32_start)
{
    return lzop_adler32(value, reinterpret_cast<const unsigned char*>(data.data()), data.size());
}

std::uint32_t crc32(const std::string& data, std::uint32_t value = lzop_crc32_start)
{
    return lzop_crc32(value, reinterpret_cast<const unsigned char*>(data.data()), data.size());
}

TEST(Lzop_Checksum, PublishedValuesComeOut)
{
    EXPECT_EQ(adler32(""), 1U);
    EXPECT_EQ(adler32("Wikipedia"), 0x11e60398U);
    EXPECT_EQ(crc32(""), 0U);
    EXPECT_EQ(crc32("123456789"), 0xcbf43926U);
}

TEST(Lzop_Checksum, EverySizeAndPlaceGivesWhatTheDefinitionGives)
{
    Lzop_Random random;
    const std::string data = random.data(2100);
    for (std::size_t size = 0; size <= 2080; ++size) {
        const std::size_t place = random.below(16);
        const auto* const at = reinterpret_cast<const unsigned char*>(data.data()) + place;
        const std::string piece = data.substr(place, size);
        ASSERT_EQ(lzop_adler32(lzop_adler32_start, at, size), slow_adler32(piece)) << size;
        ASSERT_EQ(lzop_crc32(lzop_crc32_start, at, size), slow_crc32(piece)) << size;
    }
}

TEST(Lzop_Checksum, PiecesGiveWhatTheWholeGives)
{
    Lzop_Random random;
    const std::string data = random.data(100000);
    std::uint32_t adler = lzop_adler32_start;
    std::uint32_t crc = lzop_crc32_start;
    for (std::size_t at = 0; at < data.size();) {
        const std::string piece = data.substr(at, random.below(5000));
        adler = adler32(piece, adler);
        crc = crc32(piece, crc);
        at += piece.size();
    }
    EXPECT_EQ(adler, slow_adler32(data));
    EXPECT_EQ(crc, slow_crc32(data));
}

TEST(Lzop_Checksum, TheLargestSumsDoNotOverflow)
{
    const std::string data(1000003, '\xff');
    EXPECT_EQ(adler32(data), slow_adler32(data));
    EXPECT_EQ(adler32(data, 0xfff0fff0), adler32(data.substr(1), adler32("\xff", 0xfff0fff0)));
    EXPECT_EQ(crc32(data), slow_crc32(data));
}

} // namespace
