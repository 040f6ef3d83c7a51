#include "cli/resume.h"

#include "tests/cli/cli_test.h"
#include "tests/cli/mount.h"

#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

class Bad_Input : public Cli_Test
{};

TEST_F(Bad_Input, MissingSourceIsCodeThreeAndOthersGoOn)
{
    EXPECT_EQ(cio({"put", "nope", uri()}).code, 3);
    write("a", "A");
    const Cio_Result result = cio({"put", "nope", "a", uri()});
    EXPECT_EQ(result.code, 6);
    EXPECT_NE(result.err.find("cio: put: nope: "), std::string::npos);
    EXPECT_EQ(paths_below(at("target")), std::vector<std::string>{"a"});
}

TEST_F(Bad_Input, MissingTargetFileIsCodeThreeAndMakesNothing)
{
    fs::create_directories(at("target"));
    EXPECT_EQ(cio({"get", uri(), "nope", "local"}).code, 3);
    EXPECT_EQ(cio({"get", uri(), "nope", "neither", "local"}).code, 3);
    EXPECT_FALSE(exists("local"));
}

TEST_F(Bad_Input, UnreadableSourceCostsNothingThatIsThere)
{
    write("a", "unreadable");
    write("target/a", "stays");
    fs::permissions(at("a"), fs::perms::none);
    Cio_Settings settings;
    settings.powerless = true;
    const Cio_Result result = cio({"put", "--overwrite", "a", uri()}, settings);
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("Permission denied"), std::string::npos);
    EXPECT_EQ(read("target/a"), "stays");
}

TEST_F(Bad_Input, UnreadableDirectoryIsToldAndTheRestIsStored)
{
    write("tree/a", "A");
    write("tree/closed/b", "B");
    fs::permissions(at("tree/closed"), fs::perms::none);
    Cio_Settings settings;
    settings.powerless = true;
    const Cio_Result result = cio({"put", "tree", uri()}, settings);
    fs::permissions(at("tree/closed"), fs::perms::owner_all);
    EXPECT_EQ(result.code, 6);
    EXPECT_NE(result.err.find("tree/closed: "), std::string::npos);
    EXPECT_EQ(paths_below(at("target/tree")), std::vector<std::string>{"a"});
}

TEST_F(Bad_Input, DirectoryWhereAFileIsExpected)
{
    write("a", "A");
    fs::create_directories(at("target/d/a"));
    EXPECT_EQ(cio({"put", "a", uri(), "d/"}).code, 4);
    EXPECT_EQ(cio({"put", "--overwrite", "a", uri(), "d/"}).code, 1);
    EXPECT_TRUE(fs::is_directory(at("target/d/a")));

    write("target/f", "F");
    fs::create_directories(at("local/f"));
    EXPECT_EQ(cio({"get", "--overwrite", uri(), "f", "local"}).code, 1);
    EXPECT_TRUE(fs::is_directory(at("local/f")));
}

TEST_F(Bad_Input, FileWhereADirectoryIsExpected)
{
    write("tree/sub/a", "A");
    write("target/tree/sub", "a file");
    const Cio_Result result = cio({"put", "--overwrite", "tree", uri()});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(read("target/tree/sub"), "a file");

    write("there/tree/sub/a", "A");
    write("local/tree/sub", "a file");
    EXPECT_EQ(cio({"get", "--overwrite", uri("there"), "tree", "local/"}).code, 1);
    EXPECT_EQ(read("local/tree/sub"), "a file");
    EXPECT_EQ(cio({"get", uri("there"), "tree", "local/tree/sub/"}).code, 1);
    EXPECT_EQ(read("local/tree/sub"), "a file");
}

TEST_F(Bad_Input, TargetThatIsAFileIsAFailure)
{
    write("file", "F");
    write("a", "A");
    EXPECT_EQ(cio({"put", "a", uri("file")}).code, 1);
    EXPECT_EQ(cio({"ls", uri("file")}).code, 1);
    EXPECT_EQ(read("file"), "F");
}

TEST_F(Bad_Input, SpecialFilesAreNeverOpened)
{
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
    const Cio_Result named = cio({"put", "pipe", uri()});
    EXPECT_EQ(named.code, 1);
    EXPECT_NE(named.err.find("Neither a file nor a directory"), std::string::npos);
    write("tree/a", "A");
    ASSERT_EQ(::mkfifo(at("tree/pipe").c_str(), 0600), 0);
    const Cio_Result inside = cio({"put", "tree", uri()});
    EXPECT_EQ(inside.code, 0);
    EXPECT_NE(inside.err.find("tree/pipe: skipped: not a regular file"), std::string::npos);
    EXPECT_EQ(paths_below(at("target/tree")), std::vector<std::string>{"a"});
}

TEST_F(Bad_Input, DeviceAsDestinationSurvivesAFailedRestore)
{
    write("target/a", "too much for a device that is full");
    const Cio_Result result = cio({"get", "--overwrite", uri(), "a", "/dev/full"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("No space left on device"), std::string::npos);
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST_F(Bad_Input, NamesThatAreTooLongAreToldAndTheRestIsStored)
{
    write("a", "A");
    const Cio_Result result = cio({"put", "a", uri(), std::string(300, 'x')});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("File name too long"), std::string::npos);
}

TEST_F(Bad_Input, FullDiskFailsKeepsWholeFilesAndCanBeContinued)
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

TEST_F(Bad_Input, LittleFileThatFindsTheDiskFullLeavesNothing)
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

TEST_F(Bad_Input, ReadOnlyTargetFailsAndStaysAsItIs)
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
