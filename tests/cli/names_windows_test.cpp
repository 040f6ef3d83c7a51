#include "cli/failure.h"
#include "cli/local_path.h"
#include "cli/path_rules.h"
#include "tests/cli/cli_test.h"

#include <algorithm>

namespace fs = std::filesystem;

/// What is special about names and paths on Windows.
class Windows_Names : public Cli_Test
{
protected:
    static std::string with_backslashes(std::string path)
    {
        std::replace(path.begin(), path.end(), '/', '\\');
        return path;
    }
};

TEST_F(Windows_Names, WhatNoFileNameMayHoldIsRefused)
{
    for (const char c : std::string("<>:\"|?*\\/\x01\x1F\n")) {
        const std::string name = std::string("a") + c + "b";
        EXPECT_FALSE(cio::is_safe_entry_name(name)) << name;
        EXPECT_EQ(cio::is_entry_name(name), c != '/') << name;
    }
    for (const char* name : {"a.", "a ", "CON", "aux.txt", "~", "\xC3\xA4", "\x7F"})
        EXPECT_TRUE(cio::is_safe_entry_name(name)) << name;
}

TEST_F(Windows_Names, BackslashAndDriveSeparateLikeASlash)
{
    EXPECT_EQ(cio::local_name("C:\\data\\a"), "a");
    EXPECT_EQ(cio::local_name("C:a"), "a");
    EXPECT_EQ(cio::local_name("C:\\"), "");
    EXPECT_EQ(cio::local_name("C:"), "");
    EXPECT_EQ(cio::local_parent("C:\\data\\a"), "C:\\data");
    EXPECT_FALSE(cio::names_local_entry("C:"));
    EXPECT_FALSE(cio::names_local_entry("data\\"));
    EXPECT_EQ(cio::target_path("a\\b/c\\"), "a/b/c");
    EXPECT_THROW((void)cio::target_path("a\\..\\b"), cio::Usage_Error);
}

TEST_F(Windows_Names, PathsWithBackslashesWorkOnBothSides)
{
    write("tree/sub/a", "A");
    EXPECT_EQ(cio({"put", with_backslashes(path("tree")), uri(), "p\\q"}).code, 0);
    EXPECT_EQ(read("target/p/q/sub/a"), "A");
    EXPECT_EQ(cio({"put", "tree\\", uri(), "r"}).code, 0);
    EXPECT_EQ(read("target/r/sub/a"), "A");
    EXPECT_EQ(cio({"get", uri(), "p/q/sub/a", "back\\deep\\b"}).code, 0);
    EXPECT_EQ(read("back/deep/b"), "A");
    EXPECT_EQ(cio({"get", uri(), "p\\q", with_backslashes(path("back")) + "\\"}).code, 0);
    EXPECT_EQ(read("back/q/sub/a"), "A");
    EXPECT_EQ(cio({"rm", uri(), "..\\outside"}).code, 2);
}

TEST_F(Windows_Names, ThereAreNoHiddenStreams)
{
    write("a", "A");
    write("target/a", "stays");
    const Cio_Result result = cio({"put", "--overwrite", "a", uri(), "a:stream"});
    EXPECT_EQ(result.code, 1) << result.err;
    EXPECT_EQ(cio({"get", uri(), "a", "other:stream"}).code, 1);
    EXPECT_EQ(paths_below(at("target")), std::vector<std::string>{"a"});
    EXPECT_EQ(read("target/a"), "stays");
}

TEST_F(Windows_Names, NamesThatDifferOnlyInCaseAreOneFileAndNoneIsLostSilently)
{
    write("one/a", "from one");
    write("two/A", "from two");
    const Cio_Result sources = cio({"put", "--overwrite", "one/a", "two/A", uri()});
    EXPECT_EQ(sources.code, 2);
    EXPECT_NE(sources.err.find("two sources would be stored as 'A'"), std::string::npos);

    write("target/one/a", "from one");
    write("target/two/A", "from two");
    const Cio_Result paths = cio({"get", "--overwrite", uri(), "one/a", "two/A", "back/"});
    EXPECT_EQ(paths.code, 2);
    EXPECT_NE(paths.err.find("two sources would be restored as 'A'"), std::string::npos);

    ASSERT_EQ(cio({"get", uri(), "one/a", "back/"}).code, 0);
    EXPECT_EQ(cio({"get", uri(), "two/A", "back/"}).code, 4);
    EXPECT_EQ(read("back/a"), "from one");
}

TEST_F(Windows_Names, OneSpellingStandsForAllThatLeadToAFile)
{
    EXPECT_EQ(cio::local_spelling("a\xC3\xA4.TXT"), cio::local_spelling("A\xC3\x84.txt"));
    EXPECT_NE(cio::local_spelling("a"), cio::local_spelling("b"));
    // No capital letter in the tables of file systems.
    EXPECT_NE(cio::local_spelling("\xC3\x9F"), cio::local_spelling("SS"));
}
