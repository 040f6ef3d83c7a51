#include "platform/runtime/path.h"

#include "platform/runtime/os_error.h"
#include "tests/support/temp_directory.h"
#include "tests/support/this_system.h"

#include <ace/OS_NS_errno.h>
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

TEST(Mkdir_P, AFileOfTheNameIsAFailureAndStays)
{
    Temp_Directory root;
    write_local(root / "f", "kept");
    EXPECT_EQ(made_by(root / "f", -1), Paths{});
    EXPECT_EQ(ACE_OS::last_error(), os_error::already_exists);
    EXPECT_EQ(made_by(root / "f/a/b", -1), Paths{});
    EXPECT_EQ(ACE_OS::last_error(), this_system::errors.make_below_a_file);
    EXPECT_EQ(read_local(root / "f"), "kept");
}

TEST(Mkdir_P, EmptyAndNullPathsAreFailures)
{
    EXPECT_EQ(mkdir_p("", 0755, {}), -1);
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_file);
    EXPECT_EQ(mkdir_p(nullptr, 0755, {}), -1);
    EXPECT_EQ(ACE_OS::last_error(), os_error::invalid_argument);
}

TEST(Mkdir_P, ANameThatIsTooLongIsAFailure)
{
    Temp_Directory root;
    EXPECT_EQ(made_by(root / std::string(300, 'x'), -1), Paths{});
    EXPECT_EQ(ACE_OS::last_error(), this_system::errors.name_too_long);
}

TEST(Mkdir_P, ADirectoryThatVanishesAsSoonAsItIsMadeIsAFailure)
{
    Temp_Directory root;
    EXPECT_EQ(mkdir_p((root / "a/b").c_str(), 0755, [](const char* made) { fs::remove(made); }),
              -1);
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_directory);
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

TEST(Mkdir_P, DotsOnTheWayAreAllowed)
{
    Temp_Directory root;
    made_by(root / "a/./b/../c");
    EXPECT_TRUE(fs::is_directory(root / "a/c"));
}

} // namespace
