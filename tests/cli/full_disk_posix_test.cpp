#include "tests/cli/cli_test.h"
#include "tests/cli/file_size_limit.h"
#include "tests/cli/mount.h"

namespace fs = std::filesystem;

/// Targets that take no more, or nothing at all.
class Full_Disk : public Cli_Test
{};

TEST_F(Full_Disk, FullDiskFailsKeepsWholeFilesAndCanBeContinued)
{
    Mount disk;
    if (!disk.small_disk(at("disk"), 4 << 20)) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to mount a small disk";
        GTEST_SKIP() << "left out: the test of a full disk";
    }
    const std::string data = pattern(6'000'000);
    write("big", data);
    write("disk/earlier", "stays");
    const Cio_Result full = cio({"put", "big", uri("disk")});
    EXPECT_EQ(full.code, 1);
    EXPECT_NE(full.err.find("No space left on device"), std::string::npos);
    EXPECT_NE(full.err.find("bytes of it stay there"), std::string::npos);
    EXPECT_EQ(read("disk/earlier"), "stays");

    ASSERT_TRUE(disk.resize(16 << 20));
    const std::uint64_t there = fs::file_size(at("disk/big"));
    ASSERT_GT(there, 3'000'000U);
    const Cio_Result resumed = cio({"put", "--resume", "--json", "big", uri("disk")});
    EXPECT_EQ(resumed.code, 0);
    EXPECT_NE(resumed.out.find("\"bytes\":" + std::to_string(data.size() - there) + ","),
              std::string::npos);
    EXPECT_EQ(read("disk/big"), data);
}

TEST_F(Full_Disk, LittleFileThatFindsTheDiskFullLeavesNothing)
{
    Mount disk;
    if (!disk.small_disk(at("disk"), 64 << 10)) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to mount a small disk";
        GTEST_SKIP() << "left out: the test of a full disk";
    }
    write("little", pattern(200'000));
    write("tree/a", "A");
    write("tree/b", pattern(300'000));
    EXPECT_EQ(cio({"put", "little", uri("disk")}).code, 1);
    EXPECT_TRUE(paths_below(at("disk")).empty());
    EXPECT_EQ(cio({"put", "tree", uri("disk")}).code, 6);
    EXPECT_EQ(read("disk/tree/a"), "A");
    EXPECT_FALSE(exists("disk/tree/b"));

    write("target/little", pattern(200'000));
    EXPECT_EQ(cio({"get", uri(), "little", "disk/got"}).code, 1);
    EXPECT_FALSE(exists("disk/got"));
}

TEST_F(Full_Disk, ReadOnlyTargetFailsAndStaysAsItIs)
{
    write("a", "A");
    write("target/there", "stays");
    fs::create_directories(at("target/void"));
    Mount mount;
    if (!mount.read_only(at("target"))) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to mount a directory read-only";
        GTEST_SKIP() << "left out: the test of a read-only target";
    }
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"put", "a", uri()},
                                                      {"put", "--overwrite", "a", uri(), "there"},
                                                      {"put", "-", uri(), "in"},
                                                      {"mkdir", uri(), "dir"},
                                                      {"rm", uri(), "there"},
                                                      {"rm", "-r", uri(), "void"},
                                                      {"mv", uri(), "there", "moved"},
                                                      {"cp", uri(), "there", "copy"},
                                                      {"truncate", uri(), "there", "0"}})
    {
        const Cio_Result result = cio(arguments);
        EXPECT_EQ(result.code, 1) << arguments[0];
        EXPECT_NE(result.err.find("Read-only file system"), std::string::npos) << result.err;
    }
    EXPECT_EQ(paths_below(at("target")), (std::vector<std::string>{"there", "void/"}));
    EXPECT_EQ(read("target/there"), "stays");
    EXPECT_EQ(cio({"get", uri(), "there", "back"}).code, 0);
    EXPECT_EQ(read("back"), "stays");
}

TEST_F(Full_Disk, AFileThatMayNotBecomeSoLongFailsAndCanBeContinued)
{
    const std::string data = pattern(6'000'000);
    write("target/big", data);
    {
        const File_Size_Limit limit(2U << 20U);
        const Cio_Result result = cio({"get", uri(), "big", "back"});
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.err.find("back: Failed to write: File too large (2097152 bytes of it stay "
                                  "there)\n"),
                  std::string::npos)
            << result.err;
    }
    EXPECT_TRUE(read("back") == data.substr(0, 2U << 20U));
    const Cio_Result resumed = cio({"get", "--resume", "--json", uri(), "big", "back"});
    EXPECT_EQ(resumed.code, 0);
    EXPECT_NE(resumed.out.find("\"bytes\":" + std::to_string(data.size() - (2U << 20U)) + ","),
              std::string::npos)
        << resumed.out;
    EXPECT_TRUE(read("back") == data);
}
