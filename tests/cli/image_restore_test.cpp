#include "tests/cli/image_test.h"

/// What becomes of the place that an image is restored to.
class Image_Restore : public Image_Test
{
protected:
    void SetUp() override
    {
        Image_Test::SetUp();
        write_sparse("disk", disk_size, {{65536, stored_}});
        save("disk", "image");
    }

    static constexpr std::size_t disk_size = 1'000'001;
    const std::string stored_ = pattern(65536);
};

TEST_F(Image_Restore, ATargetThatIsThereStaysUnlessItIsToBeOverwritten)
{
    write("back", "there");
    const Cio_Result result = image("restore", {uri(), "image", "back"});
    EXPECT_EQ(result.code, 4) << result.err;
    EXPECT_NE(result.err.find("back: File already exists"), std::string::npos) << result.err;
    EXPECT_EQ(read("back"), "there");
    std::filesystem::create_directories(at("directory"));
    EXPECT_EQ(image("restore", {"--overwrite", uri(), "image", "directory"}).code, 1);
    EXPECT_EQ(image("restore", {uri(), "image", "no/such/directory"}).code, 3);
}

TEST_F(Image_Restore, RangesThatWereNotStoredStayAsTheyAre)
{
    const std::string old = pattern(disk_size + 50'000, 7);
    write("back", old);
    const Cio_Result result = done("restore", {"--overwrite", uri(), "image", "back"});
    std::string expected = old;
    expected.replace(65536, stored_.size(), stored_);
    EXPECT_EQ(read("back"), expected) << "the end behind the source's stays as well";
    EXPECT_NE(result.err.find("back: keeps what it has where the source was zero"),
              std::string::npos)
        << result.err;
}

TEST_F(Image_Restore, AShorterFileBecomesAsLongAsTheSource)
{
    write("back", pattern(1000, 7));
    done("restore", {"--overwrite", uri(), "image", "back"});
    std::string expected(disk_size, '\0');
    expected.replace(0, 1000, pattern(1000, 7));
    expected.replace(65536, stored_.size(), stored_);
    EXPECT_EQ(read("back"), expected);
}

TEST_F(Image_Restore, WithZeroTheFileEqualsTheSource)
{
    for (const std::size_t size : {std::size_t{1000}, disk_size, disk_size + 50'000}) {
        write("back", pattern(size, 7));
        const Cio_Result result =
            done("restore", {"--overwrite", "--zero", uri(), "image", "back"});
        EXPECT_TRUE(same("disk", "back")) << size;
        EXPECT_EQ(result.err, "");
    }
    done("restore", {"--zero", uri(), "image", "new"});
    EXPECT_TRUE(same("disk", "new"));
}

TEST_F(Image_Restore, AnImageIsNotRestoredOntoItself)
{
    const std::string before = read("target/image");
    const Cio_Result result =
        image("restore", {"--overwrite", uri(), "image", path("target/image")});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("the same file"), std::string::npos) << result.err;
    EXPECT_EQ(read("target/image"), before);
}

TEST_F(Image_Restore, WhatIsNoImageIsRefusedBeforeTheTargetIsTouched)
{
    write("target/text", "some text");
    write("target/zeros", std::string(100'000, '\0'));
    write("target/empty", "");
    expect_refused("text", "Bad image: cut off");
    expect_refused("zeros", "Bad image: not a block image");
    expect_refused("empty", "Bad image: cut off");
    write("back", "there");
    EXPECT_EQ(image("restore", {"--overwrite", "--zero", uri(), "zeros", "back"}).code, 1);
    EXPECT_EQ(read("back"), "there");
    EXPECT_EQ(image("restore", {uri(), "nope", "new"}).code, 3);
    EXPECT_FALSE(exists("new"));
}

TEST_F(Image_Restore, AnImageOfASuperBlockAloneCostsNothing)
{
    write("small", pattern(200'000));
    save("small", "cut");
    std::filesystem::resize_file(at("target/cut"), 512);
    write("old", "what was there");
    EXPECT_EQ(image("restore", {"--overwrite", "--zero", uri(), "cut", "old"}).code, 1);
    EXPECT_EQ(read("old"), "what was there");
    EXPECT_EQ(image("restore", {uri(), "cut", "new"}).code, 1);
    EXPECT_FALSE(exists("new"));
}

TEST_F(Image_Restore, DamageThatIsFoundLateIsToldWithWhatWasWritten)
{
    write("dense", pattern(3 << 20));
    save("dense", "damaged");
    // In the third descriptor block: behind it two windows are whole.
    write_into("target/damaged", 512 + 2 * (4096 + (1U << 20U)) + 100, "x");
    expect_refused("damaged", "Bad image: wrong checksum of a descriptor block");
    write("back", pattern(3 << 20, 7));
    const Cio_Result result = image("restore", {"--overwrite", uri(), "damaged", "back"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("(2097152 bytes were written to back before that)"),
              std::string::npos)
        << result.err;
    const Cio_Result fresh = image("restore", {uri(), "damaged", "new"});
    EXPECT_NE(fresh.err.find("(the 2097152 bytes before that were removed)"), std::string::npos)
        << fresh.err;
    EXPECT_FALSE(exists("new"));
}

TEST_F(Image_Restore, AnImageThatWasCutIsRefusedWhereverThatWas)
{
    write("dense", pattern(3 << 20));
    constexpr std::uint64_t window = 4096 + (1U << 20U);
    for (const char* how : {"found", "listed"}) {
        write("all", "0 3145728\n");
        if (how == std::string("found"))
            save("dense", "whole", {"--overwrite"});
        else
            save("dense", "whole", {"--overwrite", "--descriptor-size", "4K", "--extents", "all"});
        const std::string whole = read("target/whole");
        for (const std::uint64_t size :
             {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{511}, std::uint64_t{512},
              std::uint64_t{513}, std::uint64_t{512 + 4096}, 512 + window - 1, 512 + window,
              512 + window + 1, 512 + 2 * window, 512 + 2 * window + 4096,
              std::uint64_t{whole.size() - 65536}, std::uint64_t{whole.size() - 1}})
        {
            SCOPED_TRACE(std::string(how) + " " + std::to_string(size));
            write("target/cut", whole.substr(0, size));
            expect_refused("cut", "Bad image: cut off");
        }
        write("target/longer", whole + "x");
        expect_refused("longer", "Bad image: ");
    }
}

TEST_F(Image_Restore, ACutIsNoticedBelowTransformsToo)
{
    write("dense", pattern(3 << 20));
    done("save", {"--encrypt", "aes-256-ctr", "--key-file", "K", "dense", uri(), "whole"});
    const std::string whole = read("target/whole");
    for (const std::uint64_t size : {std::uint64_t{600}, std::uint64_t{512 + 4096 + (1U << 20U)},
                                     std::uint64_t{whole.size() - 1}})
    {
        write("target/cut", whole.substr(0, size));
        for (const char* command : {"info", "verify"})
            EXPECT_EQ(
                image(command, {"--encrypt", "aes-256-ctr", "--key-file", "K", uri(), "cut"}).code,
                1)
                << command << size;
    }
}

TEST_F(Image_Restore, ExtentsOfAnyOrderAreRestoredTheLastOneOfABlockHolds)
{
    qovr::Image_Options options;
    options.source_size = 8 * 512;
    options.data_block_size = options.descriptor_block_size = 512;
    Image_Builder builder(options);
    builder.add(5, 2, 'a');
    builder.add(0, 3, 'b');
    builder.add(6, 1, 'c');
    write("target/odd", builder.finish(1, 1, 'd'));
    EXPECT_EQ(extents("odd"), "2560 1024\n0 1536\n3072 512\n512 512\n");
    done("restore", {uri(), "odd", "back"});
    const auto block = [](char c) { return std::string(512, c); };
    EXPECT_EQ(read("back"), block('b') + block('d') + block('b') + block('\0') + block('\0') +
                                block('a') + block('c') + block('\0'));
}

TEST_F(Image_Restore, ASizeThatNoFileCanHaveLeavesNoFile)
{
    qovr::Image_Options options;
    options.data_block_size = options.descriptor_block_size = 512;
    options.source_size = (std::uint64_t{1} << 63U) - 1;
    write("target/huge", Image_Builder(options).finish(0, 1, 'a'));
    EXPECT_EQ(image("restore", {uri(), "huge", "back"}).code, 1);
    EXPECT_FALSE(exists("back"));
    options.source_size = 0;
    write("target/far", Image_Builder(options).finish((std::uint64_t{1} << 54U) - 1, 1, 'a'));
    EXPECT_EQ(image("restore", {uri(), "far", "back"}).code, 1);
    EXPECT_FALSE(exists("back"));
    EXPECT_EQ(extents("far"), "9223372036854775296 512\n");
}

TEST_F(Image_Restore, ASourceOfUnknownSizeEndsBehindTheLastExtent)
{
    qovr::Image_Options options;
    options.data_block_size = options.descriptor_block_size = 512;
    Image_Builder builder(options);
    builder.add(3, 1, 'a');
    write("target/unknown", builder.finish(1, 1, 'b'));
    done("restore", {uri(), "unknown", "back"});
    const auto block = [](char c) { return std::string(512, c); };
    EXPECT_EQ(read("back"), block('\0') + block('b') + block('\0') + block('a'));
    done("verify", {uri(), "unknown", "back"});
    write("short", read("back").substr(0, 2000));
    EXPECT_EQ(image("verify", {uri(), "unknown", "short"}).code, 1);
}

TEST_F(Image_Restore, WhatFillsTheLastBlockUpIsNotWrittenHoweverLargeTheBlocksAre)
{
    // A block is written in several pieces, and some lie behind the source's end as a whole.
    constexpr std::size_t block = 2U << 20U;
    qovr::Image_Options options;
    options.source_size = block + 100'001;
    options.data_block_size = block;
    options.descriptor_block_size = 512;
    write("target/large", Image_Builder(options).finish(0, 2, 'a'));
    const std::string source(options.source_size, 'a');
    done("restore", {uri(), "large", "new"});
    EXPECT_TRUE(read("new") == source);
    const std::string old = pattern(3 * block, 7);
    for (const char* const how : {"", "--zero"}) {
        write("back", old);
        std::vector<std::string> arguments{"--overwrite", uri(), "large", "back"};
        if (*how != '\0')
            arguments.insert(arguments.begin(), how);
        done("restore", arguments);
        EXPECT_TRUE(read("back") == (*how == '\0' ? source + old.substr(source.size()) : source));
    }
}

TEST_F(Image_Restore, AFailureThatHasMadeAFileLongerSaysSo)
{
    write("small", pattern(200'000));
    save("small", "cut");
    std::filesystem::resize_file(at("target/cut"), 512 + 4096);
    write("back", "what was there");
    const Cio_Result result = image("restore", {"--overwrite", uri(), "cut", "back"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("cut: Bad image: cut off (back was made longer before that)"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(std::filesystem::file_size(at("back")), 200'000U);
    const Cio_Result again = image("restore", {"--overwrite", uri(), "cut", "back"});
    EXPECT_EQ(again.err.find("before that"), std::string::npos)
        << "it was long enough: " << again.err;
    const Cio_Result zero = image("restore", {"--overwrite", "--zero", uri(), "cut", "back"});
    EXPECT_NE(zero.err.find("cut: Bad image: cut off (back was emptied before that)"),
              std::string::npos)
        << zero.err;
}
