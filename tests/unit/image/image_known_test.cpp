#include "tests/support/temp_directory.h"
#include "tests/unit/image/image_bytes.h"
#include "tests/unit/image/image_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The image of docs/image_format.md, which stays what it is for ever.

namespace
{

using testing::ElementsAre;

TEST(Known_Image, IsReadInEveryForm)
{
    Image_File file(read_local(KNOWN_IMAGE));
    for (const Reading reading : every_reading) {
        SCOPED_TRACE(testing::PrintToString(reading));
        std::vector<Piece> pieces;
        file.open();
        EXPECT_TRUE(read_image(reading, file.io, joined_into(pieces)));
        file.close();
        EXPECT_THAT(pieces,
                    ElementsAre(Piece{0, std::string(512, '\x11')},
                                Piece{2560, std::string(512, '\x22') + std::string(512, '\x33')}));
    }
}

TEST(Known_Image, TellsOfItself)
{
    Parse_Log log;
    EXPECT_TRUE(parse_image(read_local(KNOWN_IMAGE), log).whole);
    EXPECT_THAT(log.events, ElementsAre("superblock", "extra {\"from\":\"disk0\"}", "header 3",
                                        "record 0 1", "record 5 2", "data"));
    EXPECT_EQ(log.superblock.id.front(), 0xA0);
    EXPECT_EQ(log.superblock.id.back(), 0xAF);
    EXPECT_EQ(log.superblock.source_size, 4096U);
    EXPECT_EQ(log.superblock.data_blocks, 3U);
    EXPECT_EQ(log.superblock.data_blk_size, 512U);
    EXPECT_EQ(log.superblock.desc_blk_size, 512U);
    EXPECT_EQ(log.superblock.creation_time, 1767225600);
}

TEST(Known_Image, IsWrittenByteForByte)
{
    qovr::Image_Options options;
    options.source_size = 4096;
    options.data_block_size = options.descriptor_block_size = 512;
    options.creation_time = 1767225600;
    for (std::size_t i = 0; i < options.id.size(); ++i)
        options.id[i] = static_cast<unsigned char>(0xA0 + i);
    options.extra = R"({"from":"disk0"})";
    const std::string source = std::string(512, '\x11') + std::string(2048, '\0') +
                               std::string(512, '\x22') + std::string(512, '\x33');
    Image_File file;
    file.open_new();
    Image_Block_Writer writer(&file.io);
    ASSERT_TRUE(writer.set_options(options));
    writer.add_block(0, 512);
    writer.add_block(2560, 1024);
    EXPECT_TRUE(writer.write_blocks(
        go_on, [&](const void*& data, std::uint64_t max_bytes, std::int64_t offset) {
            data = source.data() + offset;
            return static_cast<std::int64_t>(max_bytes);
        }));
    file.close();
    EXPECT_EQ(file.bytes(), read_local(KNOWN_IMAGE));
}

} // namespace
