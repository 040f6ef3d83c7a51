#include "cli/extent_list.h"
#include "tests/cli/image_test.h"

/// Extents that the user chooses.
class Image_Extents : public Image_Test
{
protected:
    static constexpr std::uint64_t size = 1'000'000;

    void SetUp() override
    {
        Image_Test::SetUp();
        write("disk", pattern(size));
    }
    void choose(const std::string& text, const std::string& expected)
    {
        write("chosen", text);
        save("disk", "image", {"--overwrite", "--block-size", "4K", "--extents", "chosen"});
        EXPECT_EQ(extents("image"), expected) << text;
        done("verify", {uri(), "image", "disk"});
    }
    void expect_usage(const std::string& text, const std::string& why)
    {
        write("chosen", text);
        const Cio_Result result = image("save", {"--extents", "chosen", "disk", uri(), "new"});
        EXPECT_EQ(result.code, 2) << result.err;
        EXPECT_NE(result.err.find("--extents: chosen: " + why), std::string::npos)
            << text << ": " << result.err;
        EXPECT_FALSE(exists("target/new"));
    }
};

TEST_F(Image_Extents, LinesAreRoundedOutwardsSortedAndMerged)
{
    choose("0 4096\n", "0 4096\n");
    choose("5000 1", "4096 4096\n");
    choose("# all of it\n\n 0x2000\t0x1000 # here\r\n8192 4096\n12288 1\n0 1\n",
           "0 4096\n8192 8192\n");
    choose("900000 100000\n100 5000\n", "0 8192\n897024 102976\n");
    choose("0 10000\n4096 100\n2 1\n", "0 12288\n");
}

TEST_F(Image_Extents, ZerosThatAreChosenAreStored)
{
    write("disk", std::string(size, '\0'));
    choose("0 1000000\n", "0 1000000\n");
    EXPECT_GT(stored_size("image"), size);
}

TEST_F(Image_Extents, JsonIsAnArrayOfObjectsOrPairs)
{
    choose(
        R"([{"offset": 8192, "length": 4096}, [0, 1], {"length":1,"note":"]}\"","offset":16384}])",
        "0 4096\n8192 4096\n16384 4096\n");
    choose(" [\n[0,1000000]\n]\n", "0 1000000\n");
}

TEST_F(Image_Extents, WhatInfoWritesCanBeGivenBack)
{
    write_sparse("disk", 9'000'001,
                 {{70'000, "x"}, {5'000'000, pattern(100'000)}, {9'000'000, "y"}});
    save("disk", "first");
    for (const bool json : {false, true}) {
        write("chosen", image("info", json ? std::vector<std::string>{"--json", uri(), "first"}
                                           : std::vector<std::string>{uri(), "first"})
                            .out);
        save("disk", "second", {"--overwrite", "--extents", "chosen"});
        EXPECT_EQ(extents("second"), extents("first"));
        done("restore", {"--overwrite", "--zero", uri(), "second", "back"});
        EXPECT_TRUE(same("disk", "back"));
    }
}

TEST_F(Image_Extents, WhatInfoWroteOfACutImageIsRefused)
{
    write_sparse("disk", 1'000'000, {{0, "x"}, {200'000, "y"}, {500'000, "z"}});
    save("disk", "first");
    std::filesystem::resize_file(at("target/first"), 100'000);
    const std::string lines = image("info", {uri(), "first"}).out;
    EXPECT_NE(lines.find("\n0 65536\n"), std::string::npos) << lines;
    expect_usage(lines, "it is the beginning of what");
    // Without the line that tells of the error, as when something else cut the list.
    const std::string json = image("info", {"--json", uri(), "first"}).out;
    const std::size_t error = json.rfind('\n', json.find("\"error\""));
    expect_usage(json.substr(0, error), "it is the beginning of what");
}

TEST_F(Image_Extents, StandardInputServesToo)
{
    EXPECT_EQ(
        image("save", {"--extents", "-", "disk", uri(), "image"}, {.input = "65536 1\n0 1\n"}).code,
        0);
    EXPECT_EQ(extents("image"), "0 131072\n");
    const Cio_Result result =
        image("save", {"--extents", "-", "disk", uri(), "new"}, {.input = "x\n"});
    EXPECT_EQ(result.code, 2);
    EXPECT_NE(result.err.find("--extents: standard input: line 1: "), std::string::npos);
}

TEST_F(Image_Extents, WhatIsWrongIsNamedWithItsPlace)
{
    expect_usage("", "it holds no extent");
    expect_usage("# nothing\n\n", "it holds no extent");
    expect_usage("[]", "it holds no extent");
    expect_usage(R"({"type":"image"})", "it holds no extent");
    for (const char* line : {"1", "a b", "1 2 3", "-1 5", "1 -5", "0x 1", "1.5 2", "1,2", "1 0x",
                             "18446744073709551616 1", "1 0xFFFFFFFFFFFFFFFFF"})
        expect_usage("0 1\n" + std::string(line) + "\n", "line 2: not an offset and a length");
    expect_usage("0 0\n", "line 1: an extent of no bytes");
    expect_usage("0 1\n0 1000001\n", "line 2: it ends behind the end of the source");
    expect_usage("1000000 1\n", "line 1: it ends behind");
    expect_usage("18446744073709551615 18446744073709551615\n", "line 1: it ends behind");
    expect_usage("0 9223372036854775808\n", "line 1: it ends behind");
    expect_usage("0 1 #" + std::string(100'000, 'x'), "line 1: it is longer than 64 KiB");
    expect_usage("[[0,1],[1]]", "element 2: not an offset and a length");
    expect_usage(R"([{"offset":0}])", "element 1: not an offset and a length");
    expect_usage(R"([{"offset":0,"length":"1"}])", "element 1: not an offset and a length");
    expect_usage("[[0,1.0]]", "element 1: not an offset and a length");
    expect_usage("[[0,-1]]", "element 1: not an offset and a length");
    expect_usage("[[0,1],[0,18446744073709551615]]", "element 2: it ends behind");
    expect_usage("[[0,1] [1,1]]", "element 1: neither ',' nor ']' follows it");
    expect_usage("[[0,1]", "element 1: neither ',' nor ']' follows it");
    expect_usage("[[0,1],", "element 2: ");
    expect_usage("[[0,1]] x", "something stands behind the array");
    expect_usage("[" + std::string(100'000, '['), "element 1: it is longer than 64 KiB");
    expect_usage("[" + std::string(60'000, '['), "element 1: ");
    expect_usage("{\"type\":\"extent\",\"offset\":0,\"length\":1}\n{\"type\":\"error\"}\n",
                 "line 2: an error of what wrote it");
    expect_usage("{\"offset\":0,\"length\":1}\n", "line 1: not an object with a type");
    expect_usage(std::string("0 1\0\n", 5), "line 1: not an offset and a length");
    const Cio_Result missing = image("save", {"--extents", "nope", "disk", uri(), "new"});
    EXPECT_EQ(missing.code, 2);
    EXPECT_NE(missing.err.find("--extents: nope: "), std::string::npos) << missing.err;
}

TEST_F(Image_Extents, OptionsThatDoNotServeAreRefused)
{
    for (const char* bad : {"0", "511", "1000", "2M", "-1", "x", ""})
        for (const char* option : {"--block-size", "--descriptor-size"}) {
            const Cio_Result result = image("save", {option, bad, "disk", uri(), "new"});
            EXPECT_EQ(result.code, 2) << option << bad << result.err;
        }
    write("chosen", "0 1\n");
    EXPECT_EQ(image("save", {"--raw", "--extents", "chosen", "disk", uri(), "new"}).code, 2);
    EXPECT_EQ(image("restore", {"--raw", uri(), "new", "back"}).code, 2);
    EXPECT_EQ(image("save", {"--zero", "disk", uri(), "new"}).code, 2);
    EXPECT_FALSE(exists("target"));
}

TEST_F(Image_Extents, EveryCommandOfTheGroupHasItsOwnHelp)
{
    for (const char* command : {"save", "restore", "info", "verify"}) {
        const Cio_Result result = image(command, {"--help"});
        EXPECT_EQ(result.code, 0);
        EXPECT_NE(result.out.find(std::string("Usage: cio image ") + command), std::string::npos);
        EXPECT_NE(result.out.find("Example:\n  cio image "), std::string::npos);
        EXPECT_EQ(cio({"help", "image", command}).out, result.out);
        EXPECT_NE(image(command, {}).err.find(std::string("usage: cio image ") + command),
                  std::string::npos);
    }
    EXPECT_NE(cio({"image"}).err.find("a command is missing (see cio image --help)"),
              std::string::npos);
    EXPECT_NE(cio({"image", "svae"}).err.find("did you mean 'image save'?"), std::string::npos);
    EXPECT_EQ(cio({"help", "image", "svae"}).code, 2);
    // A name of a command is no command where a value is due.
    write("save", pattern(1000));
    EXPECT_EQ(image("save", {"save", uri(), "info"}).code, 0);
    EXPECT_TRUE(exists("target/info"));
}

TEST(Extent_List, ManyExtentsInAnyOrderAreSortedAndMerged)
{
    cio::Extent_List list(512);
    // Every second block from the end to the start, then what lies between, in part.
    for (std::uint64_t block = 10'000; block > 0; --block)
        list.add(block * 1024, 512);
    for (std::uint64_t block = 1; block <= 5'000; ++block)
        list.add(block * 1024 + 512, 1);
    list.finish();
    ASSERT_EQ(list.extents().size(), 5'000U);
    EXPECT_EQ(list.extents()[0].offset, 1024U);
    EXPECT_EQ(list.extents()[0].length, 5'000U * 1024 + 512);
    EXPECT_EQ(list.extents()[1].offset, 5'002U * 1024);
    EXPECT_EQ(list.bytes(), 15'000U * 512);
    list.clear();
    EXPECT_TRUE(list.extents().empty());
}
