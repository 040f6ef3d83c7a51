#include "tests/cli/cli_test.h"

namespace fs = std::filesystem;

class Put_Get : public Cli_Test
{
protected:
    void make_tree()
    {
        write("tree/one", "first\n");
        write("tree/empty", "");
        write("tree/sub/two", pattern(200'000));
        write("tree/sub/deep/three", "3");
        fs::create_directories(at("tree/hollow/inner"));
    }
    const std::vector<std::string> tree_paths_{"empty", "hollow/",   "hollow/inner/",  "one",
                                               "sub/",  "sub/deep/", "sub/deep/three", "sub/two"};
};

TEST_F(Put_Get, FileWithoutPathKeepsItsName)
{
    write("dir/a.txt", "hello");
    EXPECT_EQ(cio({"put", "dir/a.txt", uri()}).code, 0);
    EXPECT_EQ(read("target/a.txt"), "hello");
}

TEST_F(Put_Get, FileWithPathIsStoredThere)
{
    write("a.txt", "hello");
    EXPECT_EQ(cio({"put", "a.txt", uri(), "x/y/b.txt"}).code, 0);
    EXPECT_EQ(paths_below(at("target")), (std::vector<std::string>{"x/", "x/y/", "x/y/b.txt"}));
    EXPECT_EQ(read("target/x/y/b.txt"), "hello");
}

TEST_F(Put_Get, FileGoesIntoAnExistingDirectoryOrOneNamedWithASlash)
{
    write("a.txt", "hello");
    fs::create_directories(at("target/there"));
    EXPECT_EQ(cio({"put", "a.txt", uri(), "there"}).code, 0);
    EXPECT_EQ(cio({"put", "a.txt", uri(), "new/"}).code, 0);
    EXPECT_EQ(read("target/there/a.txt"), "hello");
    EXPECT_EQ(read("target/new/a.txt"), "hello");
}

TEST_F(Put_Get, TreeKeepsItsShapeAndItsEmptyDirectories)
{
    make_tree();
    EXPECT_EQ(cio({"put", "tree", uri()}).code, 0);
    EXPECT_EQ(paths_below(at("target/tree")), tree_paths_);
    EXPECT_EQ(read("target/tree/sub/two"), pattern(200'000));
    EXPECT_EQ(cio({"get", uri(), "tree", "back/"}).code, 0);
    EXPECT_EQ(paths_below(at("back/tree")), tree_paths_);
    EXPECT_EQ(read("back/tree/sub/two"), pattern(200'000));
    EXPECT_EQ(read("back/tree/sub/deep/three"), "3");
    EXPECT_EQ(read("back/tree/empty"), "");
}

TEST_F(Put_Get, TrailingSlashMeansTheContents)
{
    make_tree();
    EXPECT_EQ(cio({"put", "tree/", uri(), "p"}).code, 0);
    EXPECT_EQ(paths_below(at("target/p")), tree_paths_);
    EXPECT_EQ(cio({"get", uri(), "p/", "back"}).code, 0);
    EXPECT_EQ(paths_below(at("back")), tree_paths_);
}

TEST_F(Put_Get, TheRootIsRestoredAsContents)
{
    make_tree();
    EXPECT_EQ(cio({"put", "tree/", uri()}).code, 0);
    EXPECT_EQ(cio({"get", uri(), "", "back1"}).code, 0);
    EXPECT_EQ(cio({"get", uri(), "/", "back2"}).code, 0);
    EXPECT_EQ(paths_below(at("back1")), tree_paths_);
    EXPECT_EQ(paths_below(at("back2")), tree_paths_);
}

TEST_F(Put_Get, OneTreeBecomesWhatThePathNamesEachTimeAnew)
{
    make_tree();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(cio({"put", "--overwrite", "tree", uri(), "p/q"}).code, 0);
        EXPECT_EQ(paths_below(at("target/p/q")), tree_paths_);
        EXPECT_EQ(cio({"verify", "tree", uri(), "p/q"}).code, 0);
        EXPECT_EQ(cio({"get", "--overwrite", uri(), "p/q", "back"}).code, 0);
        EXPECT_EQ(paths_below(at("back")), tree_paths_);
    }
}

TEST_F(Put_Get, ADestinationThatIsNotANameKeepsTheTreesName)
{
    make_tree();
    EXPECT_EQ(cio({"put", "tree", uri(), "p/"}).code, 0);
    EXPECT_EQ(paths_below(at("target/p/tree")), tree_paths_);
    fs::create_directory(at("here"));
    EXPECT_EQ(cio({"get", uri(), "p/tree", "here/."}).code, 0);
    EXPECT_EQ(paths_below(at("here/tree")), tree_paths_);
}

TEST_F(Put_Get, SeveralSourcesGoBelowThePath)
{
    make_tree();
    write("a", "A");
    EXPECT_EQ(cio({"put", "a", "tree", uri(), "p"}).code, 0);
    EXPECT_EQ(read("target/p/a"), "A");
    EXPECT_EQ(paths_below(at("target/p/tree")), tree_paths_);
    EXPECT_EQ(cio({"get", uri(), "p/a", "p/tree", "back"}).code, 0);
    EXPECT_EQ(read("back/a"), "A");
    EXPECT_EQ(paths_below(at("back/tree")), tree_paths_);
}

TEST_F(Put_Get, ContentsOfTwoDirectoriesMayMeet)
{
    write("d1/x", "1");
    write("d2/y", "2");
    EXPECT_EQ(cio({"put", "d1/", "d2/", uri()}).code, 0);
    EXPECT_EQ(paths_below(at("target")), (std::vector<std::string>{"x", "y"}));
}

TEST_F(Put_Get, TwoSourcesOfOneNameAreAUsageErrorAndNothingIsStored)
{
    write("d1/x", "1");
    write("d2/x", "2");
    const Cio_Result result = cio({"put", "d1/x", "d2/x", uri()});
    EXPECT_EQ(result.code, 2);
    EXPECT_NE(result.err.find("two sources would be stored as 'x'"), std::string::npos);
    EXPECT_FALSE(exists("target/x"));
}

TEST_F(Put_Get, GetOfOneFileMakesMissingDirectories)
{
    write("target/a", "A");
    EXPECT_EQ(cio({"get", uri(), "a", "n/m/b"}).code, 0);
    EXPECT_EQ(cio({"get", uri(), "a", "dir/"}).code, 0);
    EXPECT_EQ(read("n/m/b"), "A");
    EXPECT_EQ(read("dir/a"), "A");
}

TEST_F(Put_Get, ExistingFilesStayUnlessOverwriteIsAskedFor)
{
    write("a", "new");
    write("target/a", "old content");
    const Cio_Result refused = cio({"put", "a", uri()});
    EXPECT_EQ(refused.code, 4);
    EXPECT_NE(refused.err.find("File already exists"), std::string::npos);
    EXPECT_EQ(read("target/a"), "old content");
    EXPECT_EQ(cio({"put", "--overwrite", "a", uri()}).code, 0);
    EXPECT_EQ(read("target/a"), "new");

    write("local", "mine");
    EXPECT_EQ(cio({"get", uri(), "a", "local"}).code, 4);
    EXPECT_EQ(read("local"), "mine");
    EXPECT_EQ(cio({"get", "-o", "overwrite=true", uri(), "a", "local"}).code, 0);
    EXPECT_EQ(read("local"), "new");
}

TEST_F(Put_Get, SomeFailuresInATreeAreCodeSixAndAllOfThemTheirOwn)
{
    make_tree();
    write("target/tree/one", "stays");
    EXPECT_EQ(cio({"put", "tree", uri()}).code, 6);
    EXPECT_EQ(read("target/tree/one"), "stays");
    EXPECT_EQ(read("target/tree/sub/deep/three"), "3");
    EXPECT_EQ(cio({"put", "tree", uri()}).code, 4);
}

TEST_F(Put_Get, StandardInputIsStored)
{
    const std::string data = pattern(300'001);
    EXPECT_EQ(cio({"put", "-", uri(), "in"}, {.input = data}).code, 0);
    EXPECT_EQ(read("target/in"), data);
    EXPECT_EQ(cio({"put", "-", uri(), "in"}, {.input = "x"}).code, 4);
    EXPECT_EQ(read("target/in"), data);
    EXPECT_EQ(cio({"put", "-", uri(), "nothing"}, {.input = ""}).code, 0);
    EXPECT_EQ(read("target/nothing"), "");
    EXPECT_EQ(cio({"put", "-", uri()}, {.input = "x"}).code, 2);
}

TEST_F(Put_Get, SourceAndTargetAreNotTheSameFile)
{
    write("target/a", "precious");
    fs::create_hard_link(at("target/a"), at("b"));
    const Cio_Result put = cio({"put", "--overwrite", "target/a", uri()});
    EXPECT_EQ(put.code, 1);
    EXPECT_NE(put.err.find("same file"), std::string::npos);
    EXPECT_EQ(cio({"get", "--overwrite", uri(), "a", "b"}).code, 1);
    EXPECT_EQ(read("target/a"), "precious");
}

TEST_F(Put_Get, DirectoryIsNotPutOrRestoredIntoItself)
{
    write("target/data/a", "A");
    EXPECT_EQ(cio({"put", "target/data", uri(), "data/copy"}).code, 1);
    EXPECT_EQ(cio({"get", uri(), "data", "target/data/restored"}).code, 1);
    EXPECT_EQ(cio({"get", uri(), "/", "target/data"}).code, 1);
    EXPECT_EQ(paths_below(at("target")), (std::vector<std::string>{"data/", "data/a"}));
}

TEST_F(Put_Get, ManyFilesOverSeveralConnectionsArriveWhole)
{
    for (unsigned i = 0; i < 500; ++i)
        write("many/d" + std::to_string(i % 7) + "/f" + std::to_string(i),
              pattern(i * 37 % 5000, i));
    EXPECT_EQ(cio({"put", "--jobs", "8", "many", uri()}).code, 0);
    EXPECT_EQ(cio({"get", "-j1", uri(), "many", "back/"}).code, 0);
    EXPECT_EQ(paths_below(at("back/many")), paths_below(at("many")));
    for (const std::string& path : paths_below(at("many")))
        if (path.back() != '/') {
            EXPECT_EQ(read("back/many/" + path), read("many/" + path)) << path;
        }
}

TEST_F(Put_Get, AFileAndContentsThatBearItsNameAreNeverWrittenAtOnce)
{
    // Large enough that two workers would be in the midst of it together.
    write("a/f", std::string(40 << 20, 'A'));
    write("b/f", std::string(40 << 20, 'B'));
    EXPECT_EQ(cio({"put", "--overwrite", "a/f", "b/", uri(), "p"}).code, 0);
    EXPECT_TRUE(read("target/p/f") == std::string(40 << 20, 'B'));
    write("target/f", std::string(40 << 20, 'A'));
    EXPECT_EQ(cio({"get", "--overwrite", uri(), "f", "p/", "back"}).code, 0);
    EXPECT_TRUE(read("back/f") == std::string(40 << 20, 'B'));
}
