#include <gtest/gtest.h>

#include "platform/lzop/lzop.h"
#include "tests/unit/lzop/lzop_file.h"
#include "tests/unit/lzop/lzop_pieces.h"

namespace
{

constexpr std::uint32_t extra_field_flag = 0x40;
constexpr std::uint32_t filter_flag = 0x800;
constexpr std::uint32_t header_crc32_flag = 0x1000;

/// Result of a file with one stored block; its data is checked when it is read.
int read(const Lzop_File_Header& header)
{
    const std::string file = lzop_file_member(header, "data");
    const Lzop_Outcome whole = lzop_decompress_whole(file);
    const Lzop_Outcome cut = lzop_decompress_whole(file, lzop_pieces_of(1), lzop_pieces_of(1));
    EXPECT_EQ(whole.result, cut.result);
    EXPECT_EQ(whole.data, whole.result == LZOP_END ? "data" : "");
    EXPECT_EQ(cut.data, whole.data);
    return whole.result;
}

int read_blocks(const std::string& blocks, const Lzop_File_Header& header = {})
{
    const std::string file = header.bytes() + blocks;
    const Lzop_Outcome whole = lzop_decompress_whole(file);
    const Lzop_Outcome cut = lzop_decompress_whole(file, lzop_pieces_of(1), lzop_pieces_of(1));
    EXPECT_EQ(whole.result, cut.result);
    EXPECT_EQ(whole.data, "");
    EXPECT_EQ(cut.data, "");
    return whole.result;
}

/// The header without the fields that came with version 0x940.
Lzop_File_Header old_header(unsigned version)
{
    Lzop_File_Header header;
    header.version = version;
    header.needed.reset();
    header.level.reset();
    header.time_upper.reset();
    return header;
}

TEST(Lzop_Header, OldVersionsHaveFewerFields)
{
    EXPECT_EQ(read(old_header(0x900)), LZOP_END);
    EXPECT_EQ(read(old_header(0x93f)), LZOP_END);
    EXPECT_EQ(read(old_header(0x8ff)), LZOP_E_HEADER);
    EXPECT_EQ(read(old_header(0)), LZOP_E_HEADER);
}

TEST(Lzop_Header, TheVersionNeededDecidesNotTheVersionOfTheWriter)
{
    for (const unsigned version : {0x940U, 0x1000U, 0x1041U, 0xffffU}) {
        Lzop_File_Header header;
        header.version = version;
        EXPECT_EQ(read(header), LZOP_END) << version;
    }
    Lzop_File_Header header;
    for (const unsigned needed : {0x900U, 0x940U, 0x950U, 0x1001U, 0x1040U}) {
        header.needed = needed;
        EXPECT_EQ(read(header), LZOP_END) << needed;
    }
    for (const unsigned needed : {0x1041U, 0x2000U, 0xffffU}) {
        header.needed = needed;
        EXPECT_EQ(read(header), LZOP_E_UNSUPPORTED) << needed;
    }
    for (const unsigned needed : {0U, 0x8ffU}) {
        header.needed = needed;
        EXPECT_EQ(read(header), LZOP_E_HEADER) << needed;
    }
}

TEST(Lzop_Header, MethodsAndLevelsOfTheFormatAreRead)
{
    for (unsigned method = 0; method < 256; ++method) {
        Lzop_File_Header header;
        header.method = method;
        EXPECT_EQ(read(header), method >= 1 && method <= 3 ? LZOP_END : LZOP_E_UNSUPPORTED)
            << method;
    }
    for (unsigned level = 0; level < 256; ++level) {
        Lzop_File_Header header;
        header.level = level;
        EXPECT_EQ(read(header), level <= 9 ? LZOP_END : LZOP_E_UNSUPPORTED) << level;
    }
}

TEST(Lzop_Header, EveryFlagIsReadOrRefused)
{
    for (int bit = 0; bit < 32; ++bit) {
        Lzop_File_Header header;
        header.flags |= std::uint32_t{1} << bit;
        if (bit == 6)
            header.extra = "";
        if (bit == 11)
            header.filter = 0;
        EXPECT_EQ(read(header), bit >= 14 && bit < 20 ? LZOP_E_UNSUPPORTED : LZOP_END) << bit;
    }
}

TEST(Lzop_Header, FiltersUpToSixteenAreRead)
{
    for (const std::uint32_t filter : {17U, 256U, 0x10000U, 0xffffffffU}) {
        Lzop_File_Header header;
        header.flags |= filter_flag;
        header.filter = filter;
        EXPECT_EQ(read(header), LZOP_E_UNSUPPORTED) << filter;
    }
    // Every byte is stored as its difference to the one before; the checksum is the plain data's.
    Lzop_File_Header header;
    header.flags |= filter_flag;
    header.filter = 1;
    std::string block = lzop_file_block(header, "abba");
    block.replace(block.size() - 4, 4, std::string("a\1\0\xff", 4));
    const auto outcome = lzop_decompress_whole(header.bytes() + block + lzop_file_end);
    EXPECT_EQ(outcome.result, LZOP_END);
    EXPECT_EQ(outcome.data, "abba");
    EXPECT_EQ(read(header), LZOP_E_BLOCK_CHECKSUM);
}

TEST(Lzop_Header, NamesOfEveryLengthArePassedOver)
{
    for (std::size_t size = 0; size <= 255; ++size) {
        Lzop_File_Header header;
        header.name = std::string(size, '\xff');
        ASSERT_EQ(read(header), LZOP_END) << size;
    }
}

TEST(Lzop_Header, ExtraFieldsArePassedOverAndVerified)
{
    for (const std::uint32_t checksum : {0U, header_crc32_flag}) {
        for (const std::size_t size : {std::size_t{0}, std::size_t{5}, std::size_t{70000}}) {
            Lzop_File_Header header;
            header.flags |= extra_field_flag | checksum;
            header.extra = lzop_text(size);
            EXPECT_EQ(read(header), LZOP_END) << size;

            std::string file = lzop_file_member(header, "data");
            const std::size_t behind = header.bytes().size();
            for (const std::size_t at : {behind - 1, behind - 4, behind - 5}) {
                std::string damaged = file;
                damaged[at] ^= 1;
                EXPECT_NE(lzop_decompress_whole(damaged).result, LZOP_END) << size << ' ' << at;
            }
            file[behind - 1] ^= 1;
            EXPECT_EQ(lzop_decompress_whole(file).result, LZOP_E_HEADER) << size;
        }
    }
}

TEST(Lzop_Header, AHeaderChecksumThatDoesNotMatchIsFound)
{
    for (const std::uint32_t checksum : {0U, header_crc32_flag}) {
        Lzop_File_Header header;
        header.flags |= checksum;
        header.name = "name";
        EXPECT_EQ(read(header), LZOP_END);
        for (std::size_t at = 0; at < header.bytes().size(); ++at) {
            std::string file = lzop_file_member(header, "data");
            file[at] ^= 0x01;
            EXPECT_NE(lzop_decompress_whole(file).result, LZOP_END) << at;
        }
        std::string file = lzop_file_member(header, "data");
        file[9 + 12] ^= 0x01; // the mode
        EXPECT_EQ(lzop_decompress_whole(file).result, LZOP_E_HEADER);
    }
}

TEST(Lzop_Blocks, EveryChecksumIsVerified)
{
    Lzop_File_Header header;
    header.flags |= 0x303;
    const std::string plain = lzop_text(1000);
    const std::string whole = lzop_compress_whole(plain, 3).data;
    const std::string data = whole.substr(50, whole.size() - 54);
    const std::string good = header.bytes() + lzop_file_block(header, plain, data) + lzop_file_end;
    EXPECT_EQ(lzop_decompress_whole(good).data, plain);
    const std::size_t sizes = header.bytes().size();
    for (std::size_t at = sizes + 8; at < sizes + 24; ++at) {
        std::string damaged = good;
        damaged[at] ^= 1;
        const auto outcome = lzop_decompress_whole(damaged);
        EXPECT_EQ(outcome.result, LZOP_E_BLOCK_CHECKSUM) << at;
        EXPECT_EQ(outcome.data, "");
    }
    // A stored block has the checksums of its plain data only.
    EXPECT_EQ(read(header), LZOP_END);
}

TEST(Lzop_Blocks, ImpossibleSizesAreRefused)
{
    const auto sizes = [](std::uint32_t plain, std::uint32_t compressed) {
        return big_endian(plain, 4) + big_endian(compressed, 4) + std::string(100, 'x');
    };
    EXPECT_EQ(read_blocks(sizes(0xffffffff, 10)), LZOP_E_UNSUPPORTED) << "a split file";
    EXPECT_EQ(read_blocks(sizes(0xfffffffe, 10)), LZOP_E_BLOCK_SIZE);
    EXPECT_EQ(read_blocks(sizes(lzop_max_block_size + 1, 262144)), LZOP_E_BLOCK_SIZE);
    EXPECT_EQ(read_blocks(sizes(10, 11)), LZOP_E_BLOCK_SIZE);
    EXPECT_EQ(read_blocks(sizes(10, 0xffffffff)), LZOP_E_BLOCK_SIZE);
    EXPECT_EQ(read_blocks(sizes(10, 0)), LZOP_E_BLOCK_SIZE);
    EXPECT_EQ(read_blocks(sizes(lzop_max_block_size, 1000)), LZOP_E_BLOCK_SIZE)
        << "no 1000 bytes decompress to so many";
}

TEST(Lzop_Blocks, DataThatDoesNotDecompressToItsSizeIsDamaged)
{
    Lzop_File_Header header;
    const std::string plain = lzop_text(1000);
    const std::string whole = lzop_compress_whole(plain, 3).data;
    const std::string data = whole.substr(50, whole.size() - 54);
    EXPECT_EQ(read_blocks(lzop_file_block(header, plain + "x", data)), LZOP_E_BLOCK_DATA);
    EXPECT_EQ(read_blocks(lzop_file_block(header, plain.substr(1), data)), LZOP_E_BLOCK_DATA);
    EXPECT_EQ(read_blocks(lzop_file_block(header, plain, data + "x")), LZOP_E_BLOCK_DATA);
    EXPECT_EQ(read_blocks(lzop_file_block(header, plain, data.substr(0, data.size() - 1))),
              LZOP_E_BLOCK_DATA);
}

TEST(Lzop_Blocks, BlocksOfEverySizeUpToTheLimitAreRead)
{
    const Lzop_File_Header header;
    for (const std::size_t size : {std::size_t{1}, std::size_t{300000}, lzop_max_block_size}) {
        std::string plain(size, 'a');
        const std::string file = lzop_file_member(header, plain);
        for (const std::size_t piece : {std::size_t{100000}, lzop_all}) {
            const auto outcome = lzop_decompress_whole(file, lzop_pieces_of(piece));
            EXPECT_EQ(outcome.result, LZOP_END) << size;
            EXPECT_TRUE(outcome.data == plain) << size;
        }
    }
}

} // namespace
