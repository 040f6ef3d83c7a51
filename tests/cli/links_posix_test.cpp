#include "tests/cli/json_test.h"

namespace fs = std::filesystem;

class Links : public Cli_Test
{};

TEST_F(Links, WhatIsNoFileIsSkippedWithAWarningAndLinksToFilesAreFollowed)
{
    write("tree/file", "f");
    fs::create_symlink("file", at("tree/link"));
    fs::create_directory_symlink(".", at("tree/loop"));
    fs::create_symlink("nowhere", at("tree/dangling"));
    const Cio_Result result = cio({"put", "tree", uri()});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(paths_below(at("target/tree")), (std::vector<std::string>{"file", "link"}));
    EXPECT_FALSE(fs::is_symlink(at("target/tree/link")));
    EXPECT_NE(result.err.find("tree/loop: skipped: a symbolic link to a directory"),
              std::string::npos);
    EXPECT_NE(result.err.find("tree/dangling: skipped: a symbolic link that leads nowhere"),
              std::string::npos);
    EXPECT_NE(result.out.find("2 skipped"), std::string::npos);
}

TEST_F(Links, RestoredTreeDoesNotFollowLinksThatLeadOutOfIt)
{
    write("target/tree/sub/file", "from the target");
    write("target/tree/plain", "from the target");
    write("outside/victim", "untouched");
    fs::create_directories(at("back/tree"));
    fs::create_directory_symlink(at("outside"), at("back/tree/sub"));
    fs::create_symlink(at("outside/victim"), at("back/tree/plain"));
    const Cio_Result result = cio({"get", "--overwrite", uri(), "tree", "back/"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("symbolic link, which is not followed"), std::string::npos);
    EXPECT_EQ(paths_below(at("outside")), std::vector<std::string>{"victim"});
    EXPECT_EQ(read("outside/victim"), "untouched");
}

TEST_F(Links, NamedLocalLinkIsTheUsersAndIsFollowed)
{
    write("target/a", "A");
    write("real", "old");
    fs::create_symlink("real", at("link"));
    EXPECT_EQ(cio({"get", "--overwrite", uri(), "a", "link"}).code, 0);
    EXPECT_EQ(read("real"), "A");
    EXPECT_TRUE(fs::is_symlink(at("link")));
}

TEST_F(Links, NamedFilesFollowNoLinkBelowLocalEither)
{
    write("target/a", "from the target");
    write("victim", "untouched");
    fs::create_directory(at("back"));
    fs::create_symlink(at("victim"), at("back/a"));
    EXPECT_EQ(cio({"get", "--overwrite", uri(), "a", "back/"}).code, 1);
    EXPECT_EQ(read("victim"), "untouched");
}

TEST_F(Links, RmOfALinkLeavesWhatItPointsAt)
{
    write("outside/victim", "stays");
    fs::create_directories(at("target/dir"));
    fs::create_directory_symlink(at("outside"), at("target/dir/link"));
    fs::create_directory_symlink(at("outside"), at("target/link"));
    EXPECT_EQ(cio({"rm", "-r", uri(), "dir", "link"}).code, 0);
    EXPECT_FALSE(exists("target/dir"));
    EXPECT_FALSE(exists("target/link"));
    EXPECT_EQ(read("outside/victim"), "stays");
}

using Links_In_Json = Json;

TEST_F(Links_In_Json, SkippedThingsAreWarnings)
{
    write("tree/a", "");
    fs::create_symlink("nowhere", at("tree/link"));
    const Cio_Result result = cio({"put", "--json", "tree", uri()});
    EXPECT_EQ(result.err, "");
    const auto warnings = of_type(result.out, "warning");
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_EQ(warnings[0]["path"], "tree/link");
    EXPECT_EQ(lines(result.out).back()["skipped"], 1);
}
