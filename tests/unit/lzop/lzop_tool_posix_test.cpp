#include <gtest/gtest.h>

#include "platform/lzop/lzop.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/lzop/lzop_file.h"
#include "tests/unit/lzop/lzop_pieces.h"
#include "tests/unit/lzop/lzop_tool.h"

namespace
{

// Places in a header without a name.
constexpr std::size_t mode_at = 9 + 12;
constexpr std::size_t checksum_at = mode_at + 12 + 1;

/// What the tool wrote, as if its input had had no mode and no time.
std::string without_attributes(std::string file)
{
    file.replace(mode_at, 12, 12, '\0');
    file.replace(checksum_at, 4, big_endian(slow_adler32(file.substr(9, checksum_at - 9)), 4));
    return file;
}

std::string mixed_data(std::size_t size)
{
    Lzop_Random random;
    return random.data(size / 2) + lzop_text(size - size / 2);
}

void expect_read(const std::string& file, const std::string& plain)
{
    for (const std::size_t piece : {std::size_t{333}, lzop_all}) {
        const auto outcome =
            lzop_decompress_whole(file, lzop_pieces_of(piece), lzop_pieces_of(piece));
        EXPECT_EQ(outcome.result, LZOP_END) << lzop_result_text(outcome.result);
        EXPECT_TRUE(outcome.data == plain);
    }
}

TEST(Lzop_Tool, EveryLevelGivesTheSameBytes)
{
    const std::string plain =
        mixed_data(900000) + sample_bytes(300000) + std::string(600000, '\0') + "end";
    for (int level = 1; level <= 9; ++level) {
        const auto tool = run_lzop_tool({"-" + std::to_string(level)}, plain);
        ASSERT_EQ(tool.code, 0) << tool.err;
        const Lzop_Outcome ours = lzop_compress_whole(plain, level);
        EXPECT_EQ(ours.result, LZOP_END);
        EXPECT_TRUE(ours.data == without_attributes(tool.out)) << "level " << level;
        expect_read(tool.out, plain);
    }
}

TEST(Lzop_Tool, SizesAroundBlockEdgesAreReadByTheTool)
{
    const std::string data = mixed_data(600000);
    for (const std::size_t size : {0, 1, 2, 262143, 262144, 262145, 524288, 524289}) {
        const std::string plain = data.substr(0, size);
        const std::string ours = lzop_compress_whole(plain, 3).data;
        const auto back = run_lzop_tool({"-d"}, ours);
        EXPECT_EQ(back.code, 0) << size << back.err;
        EXPECT_TRUE(back.out == plain) << size;
        EXPECT_EQ(run_lzop_tool({"-t"}, ours).code, 0) << size;
        EXPECT_EQ(ours, without_attributes(run_lzop_tool({}, plain).out)) << size;
    }
}

TEST(Lzop_Tool, MembersOneBehindTheOtherAreReadByTheTool)
{
    const std::string text = lzop_text(300000);
    const std::string ours = lzop_compress_whole("one", 1).data + lzop_compress_whole("", 3).data +
                             lzop_compress_whole(text, 9).data;
    const auto back = run_lzop_tool({"-d"}, ours);
    EXPECT_EQ(back.code, 2) << "the tool takes several members for an archive, and warns";
    EXPECT_TRUE(back.out == "one" + text);
    const auto quiet = run_lzop_tool({"-d", "--ignore-warn"}, ours);
    EXPECT_EQ(quiet.code, 0) << quiet.err;
    EXPECT_EQ(quiet.err, "");
    EXPECT_TRUE(quiet.out == "one" + text);
}

TEST(Lzop_Tool, FilesMadeWithEveryOptionAreRead)
{
    const std::string plain = mixed_data(600000) + sample_bytes(300000);
    const std::vector<std::vector<std::string>> options = {
        {"--crc32"},
        {"-F"},
        {"-F", "-9"},
        {"-F", "--crc32"},
        {"-C"},
        {"-C", "-C"},
        {"-C", "-C", "--crc32", "-7"},
        {"--filter=1"},
        {"--filter=2", "-9"},
        {"--filter=3", "-C", "-C"},
        {"--filter=16", "-1", "--crc32"},
        {"--no-mode", "--no-time"},
    };
    for (const auto& arguments : options) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const auto tool = run_lzop_tool(arguments, plain);
        ASSERT_EQ(tool.code, 0) << tool.err;
        expect_read(tool.out, plain);
    }
}

TEST(Lzop_Tool, FilesWithNamesAndPathsAreRead)
{
    const Temp_Directory directory;
    const std::string first = directory / "first name";
    const std::string second = directory / std::string(200, 'n');
    write_local(first, lzop_text(5000));
    write_local(second, "second");
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"-c", first},
                                                      {"-c", "-P", first},
                                                      {"-c", "-P", "--crc32", first}})
    {
        const auto tool = run_lzop_tool(arguments, "");
        ASSERT_EQ(tool.code, 0) << tool.err;
        expect_read(tool.out, lzop_text(5000));
    }
    const auto archive = run_lzop_tool({"-c", "-P", first, second, first}, "");
    ASSERT_EQ(archive.code, 0) << archive.err;
    EXPECT_NE(archive.out.find(std::string(200, 'n')), std::string::npos);
    expect_read(archive.out, lzop_text(5000) + "second" + lzop_text(5000));
}

TEST(Lzop_Tool, DamageThatTheToolFindsIsFound)
{
    const std::string plain = lzop_text(200);
    const std::string good = run_lzop_tool({"-C", "-C"}, plain).out;
    for (std::size_t at = 0; at < good.size(); at += 3) {
        std::string damaged = good;
        damaged[at] ^= 0x10;
        const bool tool_reads = run_lzop_tool({"-d"}, damaged).code == 0;
        EXPECT_EQ(lzop_decompress_whole(damaged).result == LZOP_END, tool_reads) << at;
    }
}

} // namespace
