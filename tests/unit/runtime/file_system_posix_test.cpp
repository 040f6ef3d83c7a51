#include "platform/runtime/file_system.h"
#include "tests/support/temp_directory.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

// Links, permissions, pipes, and the ways of this system to rename without replacing.

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
        return file_system::rename_new((directory_ / src).c_str(), (directory_ / dst).c_str());
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

class File_System_Posix_Test : public testing::Test
{
protected:
    file_system::Status status(const std::string& name, bool follow = true)
    {
        file_system::Status status;
        EXPECT_TRUE(file_system::status((directory / name).c_str(), follow, status)) << name;
        return status;
    }

    Temp_Directory directory;
};

TEST_F(File_System_Posix_Test, StatusHasTheModeOfTheSystem)
{
    write_local(directory / "file", "");
    for (const mode_t mode : {0600U, 0644U, 0777U, 04711U}) {
        ASSERT_EQ(::chmod((directory / "file").c_str(), mode), 0);
        EXPECT_EQ(status("file").mode, S_IFREG | mode);
    }
}

TEST_F(File_System_Posix_Test, ALinkShowsItselfOrWhatItPointsAt)
{
    write_local(directory / "file", "12345");
    std::filesystem::create_symlink("file", directory / "link");
    std::filesystem::create_symlink("nowhere", directory / "dangling");
    EXPECT_TRUE(status("link", false).is_link());
    EXPECT_FALSE(status("link", false).is_file());
    EXPECT_TRUE(status("link").is_file());
    EXPECT_EQ(status("link").size, 5U);
    EXPECT_TRUE(status("link").is_same_file(status("file")));
    EXPECT_FALSE(status("link", false).is_same_file(status("file")));
    EXPECT_TRUE(status("dangling", false).is_link());
    file_system::Status nothing;
    EXPECT_FALSE(file_system::status((directory / "dangling").c_str(), true, nothing));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(file_system::exists((directory / "link").c_str()));
    EXPECT_FALSE(file_system::exists((directory / "dangling").c_str()));
    EXPECT_TRUE(
        file_system::is_same_file((directory / "link").c_str(), (directory / "file").c_str()));
}

TEST_F(File_System_Posix_Test, StatusTellsPipes)
{
    ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
    EXPECT_TRUE(status("pipe").is_pipe());
    EXPECT_FALSE(status("pipe").is_file());
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    file_system::Status pipe;
    EXPECT_TRUE(file_system::status(ends[0], pipe));
    EXPECT_TRUE(pipe.is_pipe());
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(File_System_Posix_Test, TimesAreKeptToTheNanosecond)
{
    write_local(directory / "file", "");
    const timespec times[] = {{1, 2}, {1234567890, 123456789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (directory / "file").c_str(), times, 0), 0);
    EXPECT_EQ(status("file").mtime, 1234567890'123456789);
}

TEST_F(File_System_Posix_Test, NewFilesAndDirectoriesHaveTheModeThatTheUmaskLeaves)
{
    const mode_t old = ::umask(027);
    const ACE_HANDLE handle =
        file_system::open((directory / "file").c_str(), O_WRONLY | O_CREAT, 7);
    EXPECT_TRUE(file_system::make_directory((directory / "dir").c_str(), 0775));
    ::umask(old);
    ::close(handle);
    EXPECT_EQ(status("file").mode & 07777U, 0640U);
    EXPECT_EQ(status("dir").mode & 07777U, 0750U);
}

TEST_F(File_System_Posix_Test, DirectoryPermissionsAreGivenExactlyAndTheGroupThatIsHandedDownStays)
{
    const std::string path = directory / "dir";
    ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
    const mode_t old = ::umask(077);
    file_system::set_directory_permissions(path.c_str(), 0755);
    ::umask(old);
    EXPECT_EQ(status("dir").mode & 07777U, 0755U);
    ASSERT_EQ(::chmod(path.c_str(), 02755), 0);
    file_system::set_directory_permissions(path.c_str(), 0700);
    EXPECT_EQ(status("dir").mode & 07777U, 02700U);
}

TEST_F(File_System_Posix_Test, RemovingALinkLeavesWhatItPointsAt)
{
    std::filesystem::create_directory(directory / "dir");
    write_local(directory / "dir/file", "kept");
    std::filesystem::create_symlink("dir", directory / "link");
    EXPECT_TRUE(file_system::remove((directory / "link").c_str()));
    EXPECT_EQ(read_local(directory / "dir/file"), "kept");
}

TEST_F(File_System_Posix_Test, TheRealPathLeadsThroughLinks)
{
    std::filesystem::create_directory(directory / "dir");
    write_local(directory / "dir/file", "");
    std::filesystem::create_symlink("dir", directory / "link");
    std::string direct;
    std::string through_link;
    ASSERT_TRUE(file_system::real_path((directory / "dir/file").c_str(), direct));
    ASSERT_TRUE(file_system::real_path((directory / "link/file").c_str(), through_link));
    EXPECT_EQ(through_link, direct);
}

TEST_F(File_System_Posix_Test, RenameChangesTheCaseOfAName)
{
    write_local(directory / "name", "data");
    EXPECT_TRUE(file_system::rename((directory / "name").c_str(), (directory / "Name").c_str()));
    EXPECT_EQ(std::filesystem::directory_iterator(directory.path())->path().filename(), "Name");
    EXPECT_EQ(read_local(directory / "Name"), "data");
}

} // namespace
