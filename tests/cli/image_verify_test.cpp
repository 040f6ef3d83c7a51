#include "tests/cli/image_test.h"

#include "cli/image_extra.h"

class Image_Verify : public Image_Test
{
protected:
    void SetUp() override
    {
        Image_Test::SetUp();
        write_sparse("disk", 3'000'001, {{65536, pattern(100'000)}, {2'900'000, pattern(100'001)}});
        save("disk", "image");
    }
    void expect_difference(const std::string& source, const std::string& text) const
    {
        const Cio_Result result = image("verify", {uri(), "image", source});
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.out.find("image: " + text + "\n"), std::string::npos) << result.out;
        EXPECT_NE(result.out.find(", 1 differences"), std::string::npos) << result.out;
        EXPECT_EQ(result.err, "");
    }
};

TEST_F(Image_Verify, TheSameSourceHasNoDifference)
{
    const Cio_Result result = done("verify", {uri(), "image", "disk"});
    EXPECT_NE(result.out.find("image verify: 1 files, "), std::string::npos) << result.out;
    EXPECT_NE(result.out.find(", 0 differences\n"), std::string::npos) << result.out;
    done("verify", {uri(), "image"});
}

TEST_F(Image_Verify, TheFirstByteThatDiffersIsTold)
{
    write_into("disk", 123'456, std::string(1, static_cast<char>(pattern(100'000)[57'920] ^ 1)));
    expect_difference("disk", "content differs at byte 123456");
    const Cio_Result result = image("verify", {"--json", uri(), "image", "disk"});
    EXPECT_NE(result.out.find("\"offset\":123456"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\"differences\":1"), std::string::npos) << result.out;
}

TEST_F(Image_Verify, ADifferenceInTheLastBlockIsTold)
{
    write_into("disk", 3'000'000, std::string(1, static_cast<char>(pattern(100'001)[100'000] ^ 1)));
    expect_difference("disk", "content differs at byte 3000000");
}

TEST_F(Image_Verify, WhatWasZeroHasToBeZero)
{
    // Before, between and behind the extents.
    for (const std::uint64_t offset : {std::uint64_t{0}, std::uint64_t{65'535},
                                       std::uint64_t{1'000'000}, std::uint64_t{2'883'583}})
    {
        write("other", read("disk"));
        write_into("other", offset, "x");
        expect_difference("other", "content differs at byte " + std::to_string(offset));
    }
    write_sparse("tail", 3'000'001, {{65536, "x"}});
    save("tail", "image", {"--overwrite"});
    write_into("tail", 2'000'000, "x");
    expect_difference("tail", "content differs at byte 2000000");
}

TEST_F(Image_Verify, WhatWasNotChosenMayBeAnything)
{
    write("chosen", "65536 100000\n");
    save("disk", "image", {"--overwrite", "--extents", "chosen"});
    write_into("disk", 0, "x");
    write_into("disk", 1'000'000, "x");
    done("verify", {uri(), "image", "disk"});
}

TEST_F(Image_Verify, AnotherSizeIsADifference)
{
    write("longer", read("disk") + "x");
    expect_difference("longer", "size differs: 3000002 here, 3000001 in the image");
    write("empty", "");
    expect_difference("empty", "size differs: 0 here, 3000001 in the image");
}

TEST_F(Image_Verify, WhatIsMissingIsCodeThree)
{
    EXPECT_EQ(image("verify", {uri(), "nope", "disk"}).code, 3);
    EXPECT_EQ(image("verify", {uri(), "image", "nope"}).code, 3);
    EXPECT_EQ(image("verify", {uri("nowhere"), "image"}).code, 3);
}

TEST_F(Image_Verify, WhatFillsTheLastBlockUpIsNotCompared)
{
    qovr::Image_Options options;
    options.source_size = (2U << 20U) + 100'001;
    options.data_block_size = 2U << 20U;
    options.descriptor_block_size = 512;
    write("target/large", Image_Builder(options).finish(0, 2, 'a'));
    write("large", std::string(options.source_size, 'a'));
    done("verify", {uri(), "large", "large"});
}

TEST_F(Image_Verify, AnImageWhoseExtentsDoNotAscendIsToldAsABadOneAndNotAsADifference)
{
    // What lies between its extents, and has to be zero, can be told at its end only.
    qovr::Image_Options options;
    options.source_size = 8 * 512;
    options.data_block_size = options.descriptor_block_size = 512;
    options.extra = cio::encode({"another program", "disk", cio::Image_Extra::Rest::zero},
                                qovr::largest_image_extra(options.descriptor_block_size));
    Image_Builder builder(options);
    builder.add(5, 2, 'a');
    write("target/odd", builder.finish(0, 3, 'b'));
    done("restore", {uri(), "odd", "back"});
    const Cio_Result result = image("verify", {uri(), "odd", "back"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "cio: image verify: odd: Bad image: extents that do not ascend\n");
    EXPECT_NE(result.out.find(", 0 differences"), std::string::npos) << result.out;
}
