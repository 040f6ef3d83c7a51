#include "platform/runtime/path.h"
#include "tests/support/temp_directory.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vector>

// Permissions and links.

namespace fs = std::filesystem;

namespace
{

using Paths = std::vector<std::string>;

// Makes a path and returns what the callback was told.
Paths made_by(const std::string& path, int expected = 0)
{
    Paths made;
    EXPECT_EQ(mkdir_p(path.c_str(), 0755, [&](const char* each) { made.emplace_back(each); }),
              expected)
        << path;
    return made;
}

TEST(Mkdir_P, ModeLessTheUmaskIsTheMode)
{
    Temp_Directory root;
    const mode_t old = umask(027);
    EXPECT_EQ(mkdir_p((root / "a/b").c_str(), 0775, {}), 0);
    umask(old);
    for (const char* name : {"a", "a/b"}) {
        struct stat info;
        ASSERT_EQ(stat((root / name).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0750U) << name;
    }
}

TEST(Mkdir_P, ADanglingLinkIsAFailureAndNothingIsMadeBehindIt)
{
    Temp_Directory root;
    fs::create_symlink(root / "nowhere", root / "link");
    EXPECT_EQ(made_by(root / "link/a", -1), Paths{});
    EXPECT_EQ(errno, EEXIST);
    EXPECT_FALSE(fs::exists(root / "nowhere"));
}

TEST(Mkdir_P, ALinkToADirectoryIsThatDirectory)
{
    Temp_Directory root;
    fs::create_directory(root / "real");
    fs::create_directory_symlink(root / "real", root / "link");
    EXPECT_EQ(made_by(root / "link"), Paths{});
    EXPECT_EQ(made_by(root / "link/a"), Paths{root / "link/a"});
    EXPECT_TRUE(fs::is_directory(root / "real/a"));
}

TEST(Mkdir_P, WhatDotsLeadBackFromIsMadeToo)
{
    Temp_Directory root;
    made_by(root / "a/./b/../c");
    EXPECT_TRUE(fs::is_directory(root / "a/b"));
    EXPECT_TRUE(fs::is_directory(root / "a/c"));
}

} // namespace
