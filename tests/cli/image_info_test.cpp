#include "tests/cli/image_test.h"
#include "tests/cli/json_test.h"
#include "tests/support/this_system.h"

class Image_Info : public Image_Test
{
protected:
    static std::vector<json_spirit::Value> objects(const std::string& text)
    {
        std::vector<json_spirit::Value> found;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            found.emplace_back();
            EXPECT_TRUE(loads_json(line, found.back())) << line;
        }
        return found;
    }
};

TEST_F(Image_Info, TextTellsWhatTheImageTellsOfItself)
{
    write_sparse("disk", 1'000'001, {{65536, "x"}, {999'999, "y"}});
    save("disk", "image");
    const Cio_Result result = done("info", {uri(), "image"});
    for (const char* line :
         {"# image:                image\n", "# format version:       1\n",
          "# id:     ", "# created:              20", "# source size:          1000001\n",
          "# data block size:      65536\n", "# descriptor block size: 4096\n",
          "# data blocks:          not announced\n", "# program:              cio 0.",
          "# source:               disk\n", "# rest:                 zero\n",
          "\n65536 65536\n983040 16961\n# 2 extents, 82497 bytes\n"})
        EXPECT_NE(result.out.find(line), std::string::npos) << line << result.out;
    EXPECT_EQ(result.err, "");
}

TEST_F(Image_Info, JsonHasAnObjectForTheImageForEachExtentAndForTheTotal)
{
    write_sparse("disk", 1'000'000, {{65536, "x"}, {999'999, "y"}});
    write("chosen", "65536 1\n0x20000 0x10000\n");
    save("disk", "image", {"--extents", "chosen", "--block-size", "4K"});
    const std::vector<json_spirit::Value> lines =
        objects(done("info", {"--json", uri(), "image"}).out);
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0]["type"], "image");
    EXPECT_EQ(lines[0]["path"], "image");
    EXPECT_EQ(lines[0]["format_version"], 1);
    EXPECT_EQ(lines[0]["id"].get<std::string>().size(), 32U);
    EXPECT_EQ(lines[0]["source_size"], 1'000'000);
    EXPECT_EQ(lines[0]["data_block_size"], 4096);
    EXPECT_EQ(lines[0]["descriptor_block_size"], 65536);
    EXPECT_EQ(lines[0]["data_blocks"], 17);
    EXPECT_EQ(lines[0]["source"], "disk");
    EXPECT_EQ(lines[0]["rest"], "other");
    EXPECT_EQ(lines[1],
              (json_spirit::Value{{"type", "extent"}, {"offset", 65536}, {"length", 4096}}));
    EXPECT_EQ(lines[2],
              (json_spirit::Value{{"type", "extent"}, {"offset", 131072}, {"length", 65536}}));
    EXPECT_EQ(lines[3], (json_spirit::Value{{"type", "total"}, {"extents", 2}, {"bytes", 69632}}));
    EXPECT_EQ(lines[4]["type"], "summary");
}

TEST_F(Image_Info, DataAreNotRead)
{
    // 1 TiB of data that is a hole in the image: to read it would take many minutes.
    constexpr std::uint64_t block = 1U << 20U;
    constexpr std::uint64_t blocks = 1U << 20U;
    struct Head : public qovr::Image_Writer
    {
        bool overflow(const void* data, std::uint64_t size) override
        {
            bytes.append(static_cast<const char*>(data), size);
            return true;
        }
        std::string bytes;
    } head;
    qovr::Image_Options options;
    options.data_block_size = block;
    options.descriptor_block_size = 4096;
    ASSERT_TRUE(head.set_options(options));
    ASSERT_TRUE(head.write_descriptor_header(0, "SDD1"));
    ASSERT_EQ(head.write_descriptor_record(7, blocks), static_cast<std::int64_t>(blocks));
    ASSERT_EQ(head.write_descriptor_record(0, 0), 0);
    ASSERT_EQ(head.write_data("x", 1), 1);
    write("target/image", head.bytes);
    this_system::resize_with_hole(path("target/image"), 512 + 4096 + blocks * block);
    EXPECT_EQ(extents("image"), "7340032 1099511627776\n");

    this_system::resize_with_hole(path("target/image"), 512 + 4096 + blocks * block - 1);
    const Cio_Result cut = image("info", {uri(), "image"});
    EXPECT_EQ(cut.code, 1);
    EXPECT_NE(cut.err.find("Bad image: cut off"), std::string::npos) << cut.err;
}

TEST_F(Image_Info, ExtraAreasOfOthersDoNoHarm)
{
    const std::string hostile =
        R"({"program":"a\n0 512\n","source":"b\u001b[2J\u0000c","rest":"zero\n0 1"})";
    for (const std::string& extra :
         {hostile, std::string("\xFF\0not json", 10), std::string("[1]"),
          std::string(R"({"program":5,"source":[],"rest":{}})"), std::string(3000, '{'),
          "{\"source\":\"" + std::string(3500, 'n') + "\"}"})
    {
        qovr::Image_Options options;
        options.data_block_size = 512;
        options.descriptor_block_size = 4096;
        options.source_size = 5 * 512;
        options.extra = extra;
        Image_Builder builder(options);
        write("target/image", builder.finish(4, 1, 'a'));
        EXPECT_EQ(extents("image"), "2048 512\n") << extra;
        const Cio_Result result = done("info", {uri(), "image"});
        EXPECT_NE(result.out.find("# rest:                 other\n"), std::string::npos);
        EXPECT_EQ(result.out.find('\x1b'), std::string::npos);
        EXPECT_LT(result.out.size(), 2000U);
        done("info", {"--json", uri(), "image"});
        done("verify", {uri(), "image"});
    }
}
