#include "tests/cli/cli_test.h"

#include <regex>

namespace fs = std::filesystem;

class Commands : public Cli_Test
{
protected:
    void SetUp() override
    {
        write("target/b.txt", "bb");
        write("target/a.txt", "a");
        write("target/dir/inner/deep", "deep!");
        write("target/dir/file", "1234");
        fs::create_directories(at("target/void"));
    }
};

TEST_F(Commands, LsSortsByName)
{
    write("target/B", "");
    EXPECT_EQ(cio({"ls", uri()}).out, "B\na.txt\nb.txt\ndir\nvoid\n");
    EXPECT_EQ(cio({"ls", uri(), "dir"}).out, "file\ninner\n");
}

TEST_F(Commands, LsSortsNamesThatShareTheirBeginnings)
{
    std::string expected;
    for (int i = 100; i < 300; ++i) {
        write("target/names/a-long-shared-beginning-" + std::to_string(i), "");
        expected += "a-long-shared-beginning-" + std::to_string(i) + "\n";
    }
    write("target/names/a-long-shared-beginning-1", "");
    write("target/names/a-long-shared-beginning-", "");
    EXPECT_EQ(cio({"ls", uri(), "names"}).out,
              "a-long-shared-beginning-\na-long-shared-beginning-1\n" + expected);
}

TEST_F(Commands, LongFormShowsTypeSizeTimeAndName)
{
    fs::last_write_time(at("target/b.txt"),
                        fs::file_time_type(std::chrono::file_clock::from_sys(
                            std::chrono::sys_seconds(std::chrono::seconds(1709210096)))));
    EXPECT_EQ(cio({"ls", "-l", uri(), "b.txt"}).out,
              "f               2 2024-02-29T12:34:56Z b.txt\n");
    const std::regex directory("d +[0-9]+ 20[0-9-]{8}T[0-9:]{8}Z dir\n");
    EXPECT_TRUE(std::regex_search(cio({"ls", "-l", uri()}).out, directory));
}

TEST_F(Commands, RecursiveListingShowsTheWayToEachEntry)
{
    EXPECT_EQ(cio({"ls", "-R", uri()}).out,
              "a.txt\nb.txt\ndir\nvoid\ndir/file\ndir/inner\ndir/inner/deep\n");
}

TEST_F(Commands, LsOfWhatIsNotThereIsCodeThreeAndMakesNothing)
{
    EXPECT_EQ(cio({"ls", uri(), "nope"}).code, 3);
    const Cio_Result result = cio({"ls", uri("no-target")});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_FALSE(exists("no-target"));
}

TEST_F(Commands, TreeIsIndentedAndCounted)
{
    EXPECT_EQ(cio({"tree", uri()}).out, "/\n"
                                        "  a.txt\n"
                                        "  b.txt\n"
                                        "  dir/\n"
                                        "    file\n"
                                        "    inner/\n"
                                        "      deep\n"
                                        "  void/\n"
                                        "\n3 directories, 4 files\n");
    EXPECT_EQ(cio({"tree", uri(), "a.txt"}).code, 1);
    EXPECT_EQ(cio({"tree", uri(), "nope"}).code, 3);
}

TEST_F(Commands, StatShowsPathTypeSizeAndTime)
{
    const Cio_Result file = cio({"stat", uri(), "dir/file"});
    EXPECT_EQ(file.code, 0);
    EXPECT_TRUE(std::regex_match(
        file.out, std::regex("path:  /dir/file\ntype:  file\nsize:  4\nmtime: [0-9T:-]+Z\n")));
    EXPECT_TRUE(std::regex_match(cio({"stat", uri(), "dir"}).out,
                                 std::regex("path:  /dir\ntype:  directory\nmtime: [0-9T:-]+Z\n")));
    EXPECT_EQ(cio({"stat", uri(), "/"}).out, "path:  /\ntype:  directory\n");
    EXPECT_EQ(cio({"stat", uri(), "nope"}).code, 3);
}

TEST_F(Commands, DuAddsUpBytesAndFiles)
{
    EXPECT_EQ(cio({"du", uri(), "dir"}).out, "5\t1\t/dir/inner\n9\t2\t/dir\n");
    EXPECT_EQ(cio({"du", "-s", uri()}).out, "12\t4\t/\n");
    EXPECT_EQ(cio({"du", uri(), "b.txt"}).out, "2\t1\t/b.txt\n");
    EXPECT_EQ(cio({"du", uri(), "nope"}).code, 3);
}

TEST_F(Commands, CatWritesTheFile)
{
    const std::string data = pattern(1'000'003);
    write("target/big", data);
    const Cio_Result result = cio({"cat", uri(), "big"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, data);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(cio({"cat", uri(), "nope"}).code, 3);
    EXPECT_EQ(cio({"cat", uri(), "dir"}).code, 1);
}

TEST_F(Commands, ReaderThatGoesAwayEndsCatQuietly)
{
    write("target/big", pattern(4'000'000));
    Cio_Process process({"cat", uri(), "big"}, in_here());
    process.close_output();
    const Cio_Result result = process.wait();
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "");
}

TEST_F(Commands, StandardOutputThatTakesNothingIsTold)
{
    Cio_Settings settings;
    settings.read_only_output = path("target/b.txt");
    for (const char* command : {"cat", "stat"}) {
        const Cio_Result result = cio({command, uri(), "a.txt"}, settings);
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.err.find(std::string("cio: ") + command + ": standard output: "),
                  std::string::npos)
            << result.err;
    }
    EXPECT_EQ(read("target/b.txt"), "bb");
}

TEST_F(Commands, CpCopiesAFileAndKeepsAnExistingOne)
{
    EXPECT_EQ(cio({"cp", uri(), "a.txt", "copy"}).code, 0);
    EXPECT_EQ(read("target/copy"), "a");
    EXPECT_EQ(cio({"cp", uri(), "b.txt", "copy"}).code, 4);
    EXPECT_EQ(read("target/copy"), "a");
    EXPECT_EQ(cio({"cp", "--overwrite", uri(), "b.txt", "copy"}).code, 0);
    EXPECT_EQ(read("target/copy"), "bb");
    EXPECT_EQ(cio({"cp", uri(), "nope", "x"}).code, 3);
}

TEST_F(Commands, CpCopiesADirectoryButNotIntoItself)
{
    EXPECT_EQ(cio({"cp", uri(), "dir", "copy"}).code, 0);
    EXPECT_EQ(paths_below(at("target/copy")),
              (std::vector<std::string>{"file", "inner/", "inner/deep"}));
    EXPECT_EQ(read("target/copy/inner/deep"), "deep!");
    EXPECT_EQ(cio({"cp", uri(), "dir", "copy"}).code, 4);
    EXPECT_EQ(cio({"cp", uri(), "dir", "dir/inner/x"}).code, 2);
    EXPECT_FALSE(exists("target/dir/inner/x"));
}

TEST_F(Commands, MvRenamesAndKeepsAnExistingOne)
{
    EXPECT_EQ(cio({"mv", uri(), "a.txt", "b.txt"}).code, 4);
    EXPECT_EQ(read("target/a.txt"), "a");
    EXPECT_EQ(read("target/b.txt"), "bb");
    EXPECT_EQ(cio({"mv", "--overwrite", uri(), "a.txt", "b.txt"}).code, 0);
    EXPECT_EQ(read("target/b.txt"), "a");
    EXPECT_EQ(cio({"mv", uri(), "dir", "renamed"}).code, 0);
    EXPECT_EQ(read("target/renamed/file"), "1234");
    EXPECT_FALSE(exists("target/dir"));
    EXPECT_EQ(cio({"mv", uri(), "nope", "x"}).code, 3);
}

TEST_F(Commands, RmRemovesFilesEmptyDirectoriesAndWhatIsNotThere)
{
    EXPECT_EQ(cio({"rm", uri(), "a.txt", "void", "nope"}).code, 0);
    EXPECT_FALSE(exists("target/a.txt"));
    EXPECT_FALSE(exists("target/void"));
}

TEST_F(Commands, RmOfADirectoryWithEntriesNeedsTheFlag)
{
    EXPECT_EQ(cio({"rm", uri(), "dir"}).code, 1);
    EXPECT_EQ(read("target/dir/inner/deep"), "deep!");
    EXPECT_EQ(cio({"rm", "-r", uri(), "dir"}).code, 0);
    EXPECT_FALSE(exists("target/dir"));
    EXPECT_EQ(read("target/b.txt"), "bb");
}

TEST_F(Commands, RmNeverRemovesTheRoot)
{
    const auto before = paths_below(at("target"));
    for (const char* root : {"", "/", ".", "./"})
        EXPECT_EQ(cio({"rm", "-r", uri(), "a.txt", root}).code, 2);
    EXPECT_EQ(paths_below(at("target")), before);
}

TEST_F(Commands, MkdirMakesParents)
{
    EXPECT_EQ(cio({"mkdir", uri(), "x/y/z"}).code, 0);
    EXPECT_TRUE(fs::is_directory(at("target/x/y/z")));
    EXPECT_EQ(cio({"mkdir", uri(), "x/y/z"}).code, 0);
    EXPECT_NE(cio({"mkdir", uri(), "a.txt"}).code, 0);
    EXPECT_EQ(read("target/a.txt"), "a");
}

TEST_F(Commands, TruncateCutsAndExtends)
{
    EXPECT_EQ(cio({"truncate", uri(), "dir/file", "2"}).code, 0);
    EXPECT_EQ(read("target/dir/file"), "12");
    EXPECT_EQ(cio({"truncate", uri(), "dir/file", "2K"}).code, 0);
    EXPECT_EQ(fs::file_size(at("target/dir/file")), 2048U);
    EXPECT_EQ(cio({"truncate", uri(), "dir/file", "2X"}).code, 2);
    EXPECT_EQ(cio({"truncate", uri(), "dir/file", "-1"}).code, 2);
    EXPECT_EQ(cio({"truncate", uri(), "nope", "1"}).code, 3);
    EXPECT_EQ(fs::file_size(at("target/dir/file")), 2048U);
}
