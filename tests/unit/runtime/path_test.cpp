#include "platform/runtime/path.h"

#include "tests/support/temp_directory.h"

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_sys_stat.h>
#include <gtest/gtest.h>
#include <vector>

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

TEST(Mkdir_P, EveryMissingParentIsMadeOutermostFirst)
{
    Temp_Directory root;
    EXPECT_EQ(made_by(root / "a/b/c"), (Paths{root / "a", root / "a/b", root / "a/b/c"}));
    EXPECT_TRUE(fs::is_directory(root / "a/b/c"));
}

TEST(Mkdir_P, ADirectoryThatIsThereIsSuccessWithoutCallback)
{
    Temp_Directory root;
    EXPECT_EQ(made_by(root.str()), Paths{});
    EXPECT_EQ(made_by("/"), Paths{});
    EXPECT_EQ(made_by("."), Paths{});
}

TEST(Mkdir_P, OnlyWhatWasMissingIsReported)
{
    Temp_Directory root;
    fs::create_directory(root / "a");
    EXPECT_EQ(made_by(root / "a/b"), Paths{root / "a/b"});
}

TEST(Mkdir_P, AnEmptyCallbackIsAllowed)
{
    Temp_Directory root;
    EXPECT_EQ(mkdir_p((root / "a/b").c_str(), 0700, {}), 0);
    EXPECT_TRUE(fs::is_directory(root / "a/b"));
}

TEST(Mkdir_P, SeparatorsAtTheEndAndDoubledOnesDoNotMatter)
{
    Temp_Directory root;
    EXPECT_EQ(made_by(root / "a//b///"), (Paths{root / "a", root / "a//b"}));
    EXPECT_TRUE(fs::is_directory(root / "a/b"));
}

TEST(Mkdir_P, DotsOnTheWayAreAllowed)
{
    Temp_Directory root;
    made_by(root / "a/./b/../c");
    EXPECT_TRUE(fs::is_directory(root / "a/b"));
    EXPECT_TRUE(fs::is_directory(root / "a/c"));
}

TEST(Mkdir_P, ModeLessTheUmaskIsTheMode)
{
    Temp_Directory root;
    const mode_t old = ACE_OS::umask(027);
    EXPECT_EQ(mkdir_p((root / "a/b").c_str(), 0775, {}), 0);
    ACE_OS::umask(old);
    for (const char* name : {"a", "a/b"}) {
        ACE_stat info;
        ASSERT_EQ(ACE_OS::stat((root / name).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0750U) << name;
    }
}

TEST(Mkdir_P, AFileOfTheNameIsAFailureAndStays)
{
    Temp_Directory root;
    write_local(root / "f", "kept");
    EXPECT_EQ(made_by(root / "f", -1), Paths{});
    EXPECT_EQ(ACE_OS::last_error(), EEXIST);
    EXPECT_EQ(made_by(root / "f/a/b", -1), Paths{});
    EXPECT_EQ(ACE_OS::last_error(), ENOTDIR);
    EXPECT_EQ(read_local(root / "f"), "kept");
}

TEST(Mkdir_P, ADanglingLinkIsAFailureAndNothingIsMadeBehindIt)
{
    Temp_Directory root;
    fs::create_symlink(root / "nowhere", root / "link");
    EXPECT_EQ(made_by(root / "link/a", -1), Paths{});
    EXPECT_EQ(ACE_OS::last_error(), EEXIST);
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

TEST(Mkdir_P, EmptyAndNullPathsAreFailures)
{
    EXPECT_EQ(mkdir_p("", 0755, {}), -1);
    EXPECT_EQ(ACE_OS::last_error(), ENOENT);
    EXPECT_EQ(mkdir_p(nullptr, 0755, {}), -1);
    EXPECT_EQ(ACE_OS::last_error(), EINVAL);
}

TEST(Mkdir_P, ANameThatIsTooLongIsAFailure)
{
    Temp_Directory root;
    EXPECT_EQ(made_by(root / std::string(300, 'x'), -1), Paths{});
    EXPECT_EQ(ACE_OS::last_error(), ENAMETOOLONG);
}

TEST(Mkdir_P, ADirectoryThatVanishesAsSoonAsItIsMadeIsAFailure)
{
    Temp_Directory root;
    EXPECT_EQ(mkdir_p((root / "a/b").c_str(), 0755, [](const char* made) { fs::remove(made); }),
              -1);
    EXPECT_EQ(ACE_OS::last_error(), ENOENT);
}

TEST(Dirname_String, TakesWhatStandsBeforeTheLastSeparator)
{
    std::string result;
    EXPECT_TRUE(dirname_string("a/b", result, '/'));
    EXPECT_EQ(result, "a");
    EXPECT_TRUE(dirname_string("/a/b/c.txt", result, '/'));
    EXPECT_EQ(result, "/a/b");
    EXPECT_TRUE(dirname_string("a/", result, '/'));
    EXPECT_EQ(result, "a");
    EXPECT_TRUE(dirname_string("C:\\x\\y", result, '\\'));
    EXPECT_EQ(result, "C:\\x");
}

TEST(Dirname_String, TheRootIsItsOwnDirectory)
{
    std::string result;
    EXPECT_TRUE(dirname_string("/b", result, '/'));
    EXPECT_EQ(result, "/");
    EXPECT_TRUE(dirname_string("/", result, '/'));
    EXPECT_EQ(result, "/");
}

TEST(Dirname_String, APathWithoutSeparatorHasNone)
{
    std::string result = "old";
    EXPECT_FALSE(dirname_string("name", result, '/'));
    EXPECT_EQ(result, "");
    result = "old";
    EXPECT_FALSE(dirname_string("a\\b", result, '/'));
    EXPECT_EQ(result, "");
    EXPECT_FALSE(dirname_string("", result, '/'));
}

TEST(Dirname_String, ResultMayBeThePath)
{
    std::string path = "/a/b/c";
    EXPECT_TRUE(dirname_string(path, path, '/'));
    EXPECT_EQ(path, "/a/b");
}

} // namespace
