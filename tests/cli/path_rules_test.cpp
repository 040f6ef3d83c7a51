#include "cli/path_rules.h"

#include "cli/failure.h"

#include <gtest/gtest.h>

TEST(Path_Rules, NamesThatCouldLeadOutOfADirectoryAreRefused)
{
    using namespace std::string_view_literals;
    for (const std::string_view name :
         {""sv, "."sv, ".."sv, "a/b"sv, "/"sv, "../x"sv, "/etc"sv, "a\0b"sv, "\0"sv, "a/"sv})
        EXPECT_FALSE(cio::is_safe_entry_name(name)) << name;
}

TEST(Path_Rules, OrdinaryNamesAreAccepted)
{
    for (const std::string_view name : {"a", "...", "..a", "a..", ".hidden", "~", "-", "\xff"})
        EXPECT_TRUE(cio::is_safe_entry_name(name)) << name;
}

TEST(Path_Rules, TargetPathsAreBroughtIntoOneForm)
{
    EXPECT_EQ(cio::target_path(""), "");
    EXPECT_EQ(cio::target_path("/"), "");
    EXPECT_EQ(cio::target_path("./."), "");
    EXPECT_EQ(cio::target_path("a"), "a");
    EXPECT_EQ(cio::target_path("//a//b/./c/"), "a/b/c");
    EXPECT_EQ(cio::target_path("...//..a"), ".../..a");
    for (const char* path : {"..", "a/..", "../a", "a/../b", "/.."})
        EXPECT_THROW((void)cio::target_path(path), cio::Usage_Error) << path;
}

TEST(Path_Rules, PathsAreJoinedAndTaken)
{
    EXPECT_EQ(cio::join_path("", "a"), "a");
    EXPECT_EQ(cio::join_path("d", "a"), "d/a");
    EXPECT_EQ(cio::join_path("d/", "a"), "d/a");
    EXPECT_EQ(cio::join_path("/", "a"), "/a");
    EXPECT_EQ(cio::last_name("a/b"), "b");
    EXPECT_EQ(cio::last_name("a/b//"), "b");
    EXPECT_EQ(cio::last_name("b"), "b");
    EXPECT_EQ(cio::last_name("//"), "");
    EXPECT_EQ(cio::last_name(""), "");
    EXPECT_EQ(cio::parent_path("a/b/c"), "a/b");
    EXPECT_EQ(cio::parent_path("a"), "");
}
