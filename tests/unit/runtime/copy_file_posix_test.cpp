#include "tests/support/small_disk.h"
#include "tests/unit/runtime/copy_file_fixture.h"

#include <cerrno>
#include <fstream>
#include <sys/stat.h>

// Links, permissions, pipes, holes and mounted disks.

namespace fs = std::filesystem;

namespace
{

TEST_F(Copy_File_Test, PermissionBitsAreKept)
{
    write_local(source, "x");
    const mode_t old = umask(077);
    for (const mode_t mode : {0600U, 0644U, 0755U, 0777U, 0400U}) {
        ASSERT_EQ(chmod(source.c_str(), mode), 0);
        ASSERT_TRUE(copy(source, target)) << error;
        struct stat info;
        ASSERT_EQ(stat(target.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777U, mode);
    }
    umask(old);
}

TEST_F(Copy_File_Test, ALinkIsFollowedAtTheSource)
{
    write_local(source, "data");
    fs::create_symlink(source, directory / "link");
    ASSERT_TRUE(copy(directory / "link", target)) << error;
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(target)));
    EXPECT_EQ(read_local(target), "data");
}

TEST_F(Copy_File_Test, ALinkAtTheTargetIsReplacedAndNotWrittenThrough)
{
    write_local(source, "new");
    write_local(directory / "elsewhere", "kept");
    fs::create_symlink(directory / "elsewhere", target);
    ASSERT_TRUE(copy(source, target)) << error;
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(target)));
    EXPECT_EQ(read_local(target), "new");
    EXPECT_EQ(read_local(directory / "elsewhere"), "kept");
}

TEST_F(Copy_File_Test, APipeIsRefusedWithoutWaiting)
{
    ASSERT_EQ(mkfifo(source.c_str(), 0600), 0);
    EXPECT_FALSE(copy(source, target));
    EXPECT_EQ(reason, EINVAL);
    EXPECT_EQ(names_in(directory.str()), Names{"source"});
}

TEST_F(Copy_File_Test, FilesThatTheSystemMakesUpAreCopied)
{
    ASSERT_TRUE(copy("/proc/version", target)) << error;
    EXPECT_EQ(read_local(target), read_local("/proc/version"));
    EXPECT_FALSE(read_local(target).empty());
}

TEST_F(Copy_File_Test, HolesStayHoles)
{
    constexpr std::uint64_t size = 5ULL << 30U;
    write_local(source, "start");
    fs::resize_file(source, size - 3);
    std::ofstream(source, std::ios::app) << "end";
    ASSERT_TRUE(copy(source, target)) << error;
    ASSERT_EQ(fs::file_size(target), size);
    struct stat info;
    ASSERT_EQ(stat(target.c_str(), &info), 0);
    EXPECT_LT(info.st_blocks, 2048) << "in blocks of 512 bytes";
    std::ifstream in(target, std::ios::binary);
    std::string text(5, '\0');
    in.read(text.data(), 5);
    EXPECT_EQ(text, "start");
    in.seekg(-6, std::ios::end);
    text.resize(6);
    in.read(text.data(), 6);
    EXPECT_EQ(text, std::string("\0\0\0end", 6));
}

TEST_F(Copy_File_Test, AnotherFileSystemIsReachedByReadingAndWriting)
{
    const auto disk = Small_Disk::mount(8U << 20U);
    if (disk == nullptr)
        return;
    const std::string data = sample_bytes(3000001);
    write_local(source, data);
    ASSERT_TRUE(copy(source, *disk / "target")) << error;
    EXPECT_TRUE(read_local(*disk / "target") == data);
    ASSERT_TRUE(copy(*disk / "target", target)) << error;
    EXPECT_TRUE(read_local(target) == data);
}

TEST_F(Copy_File_Test, AFullDiskLeavesTheOldTargetAndNothingElse)
{
    const auto disk = Small_Disk::mount(1U << 20U);
    if (disk == nullptr)
        return;
    write_local(source, sample_bytes(2U << 20U));
    write_local(*disk / "target", "kept");
    EXPECT_FALSE(copy(source, *disk / "target"));
    EXPECT_EQ(reason, ENOSPC);
    EXPECT_EQ(error, "No space left on device");
    EXPECT_EQ(read_local(*disk / "target"), "kept");
    EXPECT_EQ(names_in(disk->path()), Names{"target"});
}

TEST_F(Copy_File_Test, AReadOnlyDiskRefuses)
{
    const auto disk = Small_Disk::mount(1U << 20U);
    if (disk == nullptr)
        return;
    write_local(source, "new");
    write_local(*disk / "target", "kept");
    ASSERT_TRUE(disk->make_read_only());
    EXPECT_FALSE(copy(source, *disk / "target"));
    EXPECT_EQ(reason, EROFS);
    EXPECT_EQ(read_local(*disk / "target"), "kept");
}

} // namespace
