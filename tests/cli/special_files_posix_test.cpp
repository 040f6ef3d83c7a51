#include "tests/cli/cli_test.h"

#include <cstdlib>
#include <sys/stat.h>

namespace fs = std::filesystem;

class Special_Files : public Cli_Test
{};

TEST_F(Special_Files, SpecialFilesAreNeverOpened)
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

TEST_F(Special_Files, DeviceAsDestinationSurvivesAFailedRestore)
{
    write("target/a", "too much for a device that is full");
    const Cio_Result result = cio({"get", "--overwrite", uri(), "a", "/dev/full"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("No space left on device"), std::string::npos);
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST_F(Special_Files, StandardInputThatCannotBeReadOrIsTheTargetCostsNothing)
{
    write("target/a", "precious");
    const auto shell = [&](const std::string& line) {
        const std::string command = "cd '" + path(".") + "' && '" CIO_PROGRAM "' " + line;
        return std::system(("exec 2>/dev/null; " + command).c_str());
    };
    EXPECT_NE(shell("put --overwrite - " + uri() + " a < ."), 0);
    EXPECT_EQ(read("target/a"), "precious");
    EXPECT_NE(shell("put --overwrite - " + uri() + " a < target/a"), 0);
    EXPECT_EQ(read("target/a"), "precious");
    EXPECT_NE(shell("put - " + uri() + " b <&-"), 0);
    EXPECT_FALSE(exists("target/b"));
    EXPECT_NE(shell("ls " + uri() + " >&-"), 0);
    EXPECT_NE(shell("--version > /dev/full"), 0);
    write("err", "");
    EXPECT_NE(shell("cat " + uri() + " a > /dev/full 2> err"), 0);
    EXPECT_EQ(read("err"), "cio: cat: standard output: No space left on device\n");
}
