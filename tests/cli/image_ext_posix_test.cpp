#include "tests/cli/image_test.h"

#include <cstdlib>
#include <iterator>
#include <random>

/// File systems that the distribution's own tools make and check.
class Image_Of_Ext : public Image_Test, public testing::WithParamInterface<const char*>
{
protected:
    void SetUp() override
    {
        Image_Test::SetUp();
        const char* given = std::getenv("CLIENT_IO_SEED");
        const unsigned seed = given != nullptr
                                  ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                                  : std::random_device()();
        std::cout << "CLIENT_IO_SEED=" << seed << "\n";
        generator_.seed(seed);
    }

    bool shell(const std::string& command) const
    {
        return std::system(("cd '" + path("") + "' && PATH=$PATH:/sbin:/usr/sbin && " + command +
                            " >log 2>&1")
                               .c_str()) == 0;
    }
    void make_files()
    {
        for (unsigned i = 0; i < 60; ++i) {
            const std::size_t size = generator_() % (i % 10 == 0 ? 400'000 : 20'000);
            write("files/d" + std::to_string(i % 7) + "/f" + std::to_string(i),
                  pattern(size, static_cast<unsigned>(generator_())));
        }
    }
    /// A file system of 16 MiB with the files.
    void make_file_system(const std::string& options)
    {
        make_files();
        ASSERT_TRUE(shell("mke2fs -q -F " + options + " -d files disk 16M")) << read("log");
    }
    /// Fills what the file system does not use with a text.
    void mark_free_blocks() const;
    void expect_good(const std::string& name) const
    {
        EXPECT_TRUE(shell("e2fsck -fn " + name)) << read("log");
        std::filesystem::create_directories(at("out"));
        ASSERT_TRUE(shell("debugfs -R 'rdump / out' " + name)) << read("log");
        std::filesystem::remove_all(at("out/lost+found"));
        EXPECT_TRUE(same("files", "out"));
    }

    static constexpr const char* mark = "free block of nobody";
    std::mt19937 generator_;
};

void Image_Of_Ext::mark_free_blocks() const
{
    ASSERT_TRUE(
        shell("dumpe2fs disk 2>/dev/null | "
              "awk '/^Block size:/ { size = $3 } /^  Free blocks: / { "
              "sub(/^  Free blocks: /, \"\"); n = split($0, r, \", \"); "
              "for (i = 1; i <= n; ++i) { split(r[i], e, \"-\"); "
              "print e[1] * size, (e[2] == \"\" ? e[1] : e[2]) * size } }' >free && test -s free"))
        << read("log");
    std::istringstream ranges(read("free"));
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::fstream disk(at("disk"), std::ios::in | std::ios::out | std::ios::binary);
    while (ranges >> first >> last)
        for (std::uint64_t offset = first; offset <= last; offset += 1024) {
            disk.seekp(static_cast<std::streamoff>(offset));
            disk << mark;
        }
    disk.close();
    ASSERT_TRUE(disk);
}

// Those that differ most come first: a sanitized build takes them alone.
constexpr const char* file_systems[] = {"-t ext2 -b 1024",
                                        "-t ext4 -b 4096",
                                        "-t ext4 -O bigalloc -C 16384",
                                        "-t ext4 -O ^64bit,^metadata_csum,uninit_bg",
                                        "-t ext2 -b 4096",
                                        "-t ext3 -b 1024",
                                        "-t ext4 -b 1024",
                                        "-t ext4 -O ^has_journal",
                                        "-t ext4 -O 64bit,metadata_csum",
                                        "-t ext4 -b 1024 -O meta_bg,^resize_inode",
                                        "-t ext4 -E lazy_itable_init=1 -g 1024 -b 1024"};
static_assert(EXT_FILE_SYSTEMS <= std::size(file_systems));

INSTANTIATE_TEST_SUITE_P(Of, Image_Of_Ext,
                         testing::ValuesIn(file_systems, file_systems + EXT_FILE_SYSTEMS),
                         [](const auto& about) {
                             std::string name;
                             for (const char c : std::string(about.param))
                                 name += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
                             return name;
                         });

TEST_P(Image_Of_Ext, OnlyWhatIsInUseIsStoredAndItComesBackWhole)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system(GetParam()));
    ASSERT_NO_FATAL_FAILURE(mark_free_blocks());
    done("save", {"--block-size", "1K", "disk", uri(), "image"});
    EXPECT_NE(done("info", {uri(), "image"}).out.find("# rest:                 unused\n"),
              std::string::npos);
    EXPECT_EQ(read("target/image").find(mark), std::string::npos) << "a free block was stored";
    EXPECT_LT(stored_size("image"), 13U << 20U);
    done("verify", {uri(), "image", "disk"});

    done("restore", {uri(), "image", "back"});
    ASSERT_NO_FATAL_FAILURE(expect_good("back"));
    EXPECT_EQ(read("back").find(mark), std::string::npos);

    // Onto a disk that was in use for something else.
    write("old", pattern(16 << 20, static_cast<unsigned>(generator_())));
    done("restore", {"--overwrite", uri(), "image", "old"});
    std::filesystem::remove_all(at("out"));
    ASSERT_NO_FATAL_FAILURE(expect_good("old"));
    done("verify", {uri(), "image", "old"});
}

TEST_P(Image_Of_Ext, RawStoresWhatIsNotInUseToo)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system(GetParam()));
    ASSERT_NO_FATAL_FAILURE(mark_free_blocks());
    save("disk", "image", {"--raw"});
    EXPECT_NE(read("target/image").find(mark), std::string::npos);
    done("restore", {uri(), "image", "back"});
    EXPECT_TRUE(same("disk", "back"));
}

/// File systems that are no plain ones.
class Image_Of_Odd_Ext : public Image_Of_Ext
{
protected:
    /// Expects that every block but zeros is stored, and a note that says why.
    void expect_all_stored(const std::string& why)
    {
        const Cio_Result result = done("save", {"--overwrite", "disk", uri(), "image"});
        EXPECT_NE(result.err.find("disk: all blocks but zeros are stored"), std::string::npos)
            << result.err;
        EXPECT_NE(result.err.find(why), std::string::npos) << result.err;
        done("restore", {"--overwrite", "--zero", uri(), "image", "back"});
        EXPECT_TRUE(same("disk", "back"));
    }
};

TEST_F(Image_Of_Odd_Ext, AJournalThatIsToBeRecoveredMeansAllBlocks)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system("-t ext4"));
    ASSERT_TRUE(shell("debugfs -w -R 'feature needs_recovery' disk")) << read("log");
    expect_all_stored("journal has to be recovered");
}

TEST_F(Image_Of_Odd_Ext, OneWithErrorsOrNotUnmountedMeansAllBlocks)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system("-t ext4"));
    ASSERT_TRUE(shell("debugfs -w -R 'ssv state 3' disk")) << read("log");
    expect_all_stored("marked as damaged");
    ASSERT_TRUE(shell("debugfs -w -R 'ssv state 0' disk")) << read("log");
    expect_all_stored("was not unmounted");
}

TEST_F(Image_Of_Odd_Ext, OneThatCannotBeReadMeansAllBlocks)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system("-t ext4"));
    std::filesystem::resize_file(at("disk"), 8U << 20U);
    expect_all_stored("larger than the source");
    write_into("disk", 1024 + 24, "\xFF\xFF\xFF\xFF"); // the size of blocks
    expect_all_stored("cannot be read");
    // No file system at all, but what looks like its mark.
    write("disk", std::string(1080, 'x') + "\x53\xEF" + std::string(5000, 'y'));
    expect_all_stored("cannot be read");
    std::filesystem::resize_file(at("disk"), 1081);
    save("disk", "short");
}

TEST_F(Image_Of_Odd_Ext, DamagedBitmapsMeanAllBlocks)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system("-t ext4 -b 4096 -O metadata_csum"));
    ASSERT_TRUE(shell("dumpe2fs disk 2>/dev/null | grep -o 'Block bitmap at [0-9]*' | "
                      "grep -o '[0-9]*' | sed q >bitmap && test -s bitmap"))
        << read("log");
    const std::uint64_t bitmap = std::stoull(read("bitmap"));
    write_into("disk", bitmap * 4096 + 50, pattern(20, 9));
    expect_all_stored("cannot be read");
}

TEST_F(Image_Of_Odd_Ext, BitmapsThatDoNotAgreeWithTheirCountsMeanAllBlocks)
{
    // ext2 has no checksums, so that only the counts tell.
    ASSERT_NO_FATAL_FAILURE(make_file_system("-t ext2 -b 1024"));
    ASSERT_TRUE(shell("dumpe2fs disk 2>/dev/null | grep -o 'Block bitmap at [0-9]*' | "
                      "grep -o '[0-9]*' | sed -n 2p >bitmap && test -s bitmap"))
        << read("log");
    write_into("disk", std::stoull(read("bitmap")) * 1024, std::string(1024, '\0'));
    expect_all_stored("do not agree");
}

TEST_F(Image_Of_Odd_Ext, DamagedGroupDescriptorsMeanAllBlocks)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system("-t ext4 -b 4096 -O uninit_bg,^metadata_csum"));
    write_into("disk", 4096, "\x77"); // of the place of the first group's bitmap
    expect_all_stored("");
}

TEST_F(Image_Of_Odd_Ext, BehindAPartitionTableItMayBeALeftOver)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system("-t ext4"));
    write_into("disk", 446 + 4, "\x83");
    write_into("disk", 510, "\x55\xAA");
    expect_all_stored("partition table");
}

TEST_F(Image_Of_Odd_Ext, WhatStandsBehindTheFileSystemIsNotStored)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system("-t ext4"));
    write_sparse("larger", (16 << 20) + 100'000, {{16 << 20, mark}});
    write_into("larger", 0, read("disk"));
    const Cio_Result result = done("save", {"larger", uri(), "image"});
    EXPECT_NE(result.err.find("larger: the 100000 bytes behind its ext file system are not stored"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(read("target/image").find(mark), std::string::npos);
    done("restore", {uri(), "image", "back"});
    EXPECT_EQ(std::filesystem::file_size(at("back")), (16U << 20U) + 100'000U);
    expect_good("back");
}

TEST_F(Image_Of_Odd_Ext, ABootSectorBeforeTheFirstBlockIsStored)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system("-t ext2 -b 1024"));
    write_into("disk", 0, pattern(512, 3));
    save("disk", "image", {"--block-size", "512"});
    done("restore", {uri(), "image", "back"});
    EXPECT_EQ(read("back").substr(0, 512), pattern(512, 3));
}

TEST_F(Image_Of_Odd_Ext, CompressedAndEncryptedTheFileSystemComesBackWhole)
{
    ASSERT_NO_FATAL_FAILURE(make_file_system("-t ext4"));
    const std::vector<std::string> with = flags("zstd", "aes-256-cbc");
    const auto run = [&](const std::string& command, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), with.begin(), with.end());
        done(command, arguments);
    };
    run("save", {"disk", uri(), "image"});
    run("restore", {uri(), "image", "back"});
    run("verify", {uri(), "image", "back"});
    expect_good("back");
}
