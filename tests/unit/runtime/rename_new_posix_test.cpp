#include "platform/runtime/path.h"
#include "tests/support/temp_directory.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

bool exclusive_rename_is_refused = false;

} // namespace

// Stands before the system's function, so that tests meet a file system that cannot do this.
extern "C" int renameat2(int old_directory, const char* old_path, int new_directory,
                         const char* new_path, unsigned flags) noexcept
{
    if (exclusive_rename_is_refused) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(
        ::syscall(SYS_renameat2, old_directory, old_path, new_directory, new_path, flags));
}

namespace
{

/// Both ways: what the file system does by itself, and the way without its help.
class Rename_New : public testing::TestWithParam<bool>
{
protected:
    void SetUp() override { exclusive_rename_is_refused = GetParam(); }
    void TearDown() override { exclusive_rename_is_refused = false; }

    bool rename(const char* src, const char* dst)
    {
        return rename_new((directory_ / src).c_str(), (directory_ / dst).c_str());
    }
    bool exists(const char* name) const { return std::filesystem::exists(directory_ / name); }

    Temp_Directory directory_;
};

TEST_P(Rename_New, GivesAFileItsNewNameOnly)
{
    write_local(directory_ / "a", "data");
    EXPECT_TRUE(rename("a", "b"));
    EXPECT_FALSE(exists("a"));
    EXPECT_EQ(read_local(directory_ / "b"), "data");
    EXPECT_EQ(std::filesystem::hard_link_count(directory_ / "b"), 1U);
}

TEST_P(Rename_New, GivesADirectoryWithItsEntriesItsNewName)
{
    std::filesystem::create_directory(directory_ / "a");
    write_local(directory_ / "a/x", "data");
    EXPECT_TRUE(rename("a", "b"));
    EXPECT_FALSE(exists("a"));
    EXPECT_EQ(read_local(directory_ / "b/x"), "data");
}

TEST_P(Rename_New, FailsWithEEXISTAndChangesNothingWhenTheNameIsTaken)
{
    write_local(directory_ / "file", "file");
    write_local(directory_ / "taken", "taken");
    std::filesystem::create_directory(directory_ / "dir");
    std::filesystem::create_directory(directory_ / "empty");
    std::filesystem::create_symlink("nowhere", directory_ / "dangling");
    for (const char* src : {"file", "dir"}) {
        for (const char* dst : {"taken", "empty", "dangling"}) {
            EXPECT_FALSE(rename(src, dst)) << src << " to " << dst;
            EXPECT_EQ(errno, EEXIST) << src << " to " << dst;
            EXPECT_TRUE(exists(src));
        }
    }
    EXPECT_EQ(read_local(directory_ / "taken"), "taken");
    EXPECT_TRUE(exists("empty"));
}

TEST_P(Rename_New, FailsWithTheSystemsReasonOtherwise)
{
    EXPECT_FALSE(rename("missing", "b"));
    EXPECT_EQ(errno, ENOENT);
    write_local(directory_ / "a", "data");
    EXPECT_FALSE(rename("a", "missing/b"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(read_local(directory_ / "a"), "data");
}

INSTANTIATE_TEST_SUITE_P(Way, Rename_New, testing::Bool(), [](const auto& way) {
    return way.param ? "WithoutHelp" : "OfTheFileSystem";
});

TEST(Same_File, IsOneFileUnderTwoNamesAndNothingElse)
{
    const Temp_Directory directory;
    write_local(directory / "a", "same");
    write_local(directory / "b", "same");
    std::filesystem::create_hard_link(directory / "a", directory / "hard");
    std::filesystem::create_symlink("a", directory / "soft");
    const std::string a = directory / "a";
    EXPECT_TRUE(is_same_file(a.c_str(), a.c_str()));
    EXPECT_TRUE(is_same_file(a.c_str(), (directory / "hard").c_str()));
    EXPECT_TRUE(is_same_file((directory / "soft").c_str(), a.c_str()));
    EXPECT_FALSE(is_same_file(a.c_str(), (directory / "b").c_str()));
    EXPECT_FALSE(is_same_file(a.c_str(), (directory / "missing").c_str()));
    EXPECT_FALSE(is_same_file((directory / "missing").c_str(), (directory / "missing").c_str()));
}

} // namespace
