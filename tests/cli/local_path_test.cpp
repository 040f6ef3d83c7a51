#include "cli/local_path.h"

#include "cli/path_rules.h"
#include "tests/cli/cli_test.h"

namespace fs = std::filesystem;

class Local_Path : public Cli_Test
{};

TEST_F(Local_Path, NameAndParentAreTaken)
{
    EXPECT_EQ(cio::local_name("a/b"), "b");
    EXPECT_EQ(cio::local_name("a/b//"), "b");
    EXPECT_EQ(cio::local_name("/"), "");
    EXPECT_EQ(cio::local_parent("a/b"), "a");
    EXPECT_EQ(cio::local_parent("a/b/"), "a/b");
    EXPECT_EQ(cio::local_parent("/b"), "/");
    EXPECT_EQ(cio::local_parent("b"), "");
    for (const char* directory : {"", ".", "..", "a/", "a/..", "/"})
        EXPECT_FALSE(cio::names_local_entry(directory)) << directory;
    EXPECT_TRUE(cio::names_local_entry("a/b"));
}

TEST_F(Local_Path, APathIsTheSameWhetherItsEndExistsOrNot)
{
    const std::string before = cio::absolute_path(path("dir/sub/file"));
    write("dir/sub/file", "");
    EXPECT_EQ(cio::absolute_path(path("dir/sub/file")), before);
    EXPECT_EQ(cio::absolute_path(path("dir//./sub/../sub/file")), before);
    EXPECT_TRUE(before.ends_with("file")) << before;
}

TEST_F(Local_Path, ADirectoryIsInsideItselfAndItsParentsOnly)
{
    fs::create_directories(at("dir/sub"));
    fs::create_directories(at("dir2"));
    EXPECT_TRUE(cio::is_inside(path("dir"), path("dir")));
    EXPECT_TRUE(cio::is_inside(path("dir/sub"), path("dir/")));
    EXPECT_TRUE(cio::is_inside(path("dir/not/there"), path("dir")));
    EXPECT_FALSE(cio::is_inside(path("dir2"), path("dir")));
    EXPECT_FALSE(cio::is_inside(path("dir"), path("dir/sub")));
}
