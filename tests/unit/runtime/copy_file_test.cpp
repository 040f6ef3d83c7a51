#include "platform/runtime/copy_file.h"

#include "tests/support/small_disk.h"
#include "tests/support/temp_directory.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

using Names = std::set<std::string>;

Names names_in(const std::string& path)
{
    Names names;
    for (const auto& entry : fs::directory_iterator(path))
        names.insert(entry.path().filename().string());
    return names;
}

class Copy_File_Test : public testing::Test
{
protected:
    bool copy(const std::string& from, const std::string& to)
    {
        error = "old";
        const bool copied = copy_file(from.c_str(), to.c_str(), 7, &error);
        reason = errno;
        return copied;
    }

    Temp_Directory directory;
    std::string source = directory / "source";
    std::string target = directory / "target";
    std::string error;
    int reason = 0;
};

TEST_F(Copy_File_Test, ContentsOfEverySizeAreCopied)
{
    for (const std::size_t size : {0U, 1U, 4096U, 262144U, 3000001U}) {
        const std::string data = sample_bytes(size);
        write_local(source, data);
        ASSERT_TRUE(copy(source, target)) << error;
        EXPECT_TRUE(read_local(target) == data) << size;
        EXPECT_TRUE(read_local(source) == data) << size;
        EXPECT_EQ(names_in(directory.str()), (Names{"source", "target"}));
    }
    EXPECT_EQ(error, "old") << "a success has no text";
}

TEST_F(Copy_File_Test, AnExistingTargetIsReplaced)
{
    write_local(source, "new");
    write_local(target, "a longer old text");
    ASSERT_TRUE(copy(source, target)) << error;
    EXPECT_EQ(read_local(target), "new");
}

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

TEST_F(Copy_File_Test, CopyingAFileOntoItselfKeepsIt)
{
    write_local(source, "kept");
    EXPECT_TRUE(copy(source, source)) << error;
    EXPECT_EQ(read_local(source), "kept");
    EXPECT_EQ(names_in(directory.str()), Names{"source"});
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

TEST_F(Copy_File_Test, RelativeNamesAreCopiedInTheWorkingDirectory)
{
    write_local(source, "data");
    const fs::path old = fs::current_path();
    fs::current_path(directory.path());
    const bool copied = copy("source", "target");
    fs::current_path(old);
    ASSERT_TRUE(copied) << error;
    EXPECT_EQ(read_local(target), "data");
}

TEST_F(Copy_File_Test, AMissingSourceLeavesTheTarget)
{
    write_local(target, "kept");
    EXPECT_FALSE(copy(source, target));
    EXPECT_EQ(reason, ENOENT);
    EXPECT_EQ(error, "No such file or directory");
    EXPECT_EQ(read_local(target), "kept");
    EXPECT_EQ(names_in(directory.str()), Names{"target"});
}

TEST_F(Copy_File_Test, ADirectoryIsNoSource)
{
    fs::create_directory(source);
    EXPECT_FALSE(copy(source, target));
    EXPECT_EQ(reason, EISDIR);
    EXPECT_EQ(names_in(directory.str()), Names{"source"});
}

TEST_F(Copy_File_Test, ADirectoryIsNoTarget)
{
    write_local(source, "data");
    fs::create_directory(target);
    EXPECT_FALSE(copy(source, target));
    EXPECT_EQ(reason, EISDIR);
    EXPECT_EQ(names_in(directory.str()), (Names{"source", "target"}));
    EXPECT_TRUE(fs::is_empty(target));
}

TEST_F(Copy_File_Test, AMissingDirectoryOfTheTargetIsAFailure)
{
    write_local(source, "data");
    EXPECT_FALSE(copy(source, directory / "missing/target"));
    EXPECT_EQ(reason, ENOENT);
    EXPECT_FALSE(copy(source, directory / "source/target"));
    EXPECT_EQ(reason, ENOTDIR);
    EXPECT_EQ(names_in(directory.str()), Names{"source"});
}

TEST_F(Copy_File_Test, APipeIsRefusedWithoutWaiting)
{
    ASSERT_EQ(mkfifo(source.c_str(), 0600), 0);
    EXPECT_FALSE(copy(source, target));
    EXPECT_EQ(reason, EINVAL);
    EXPECT_EQ(names_in(directory.str()), Names{"source"});
}

TEST_F(Copy_File_Test, EmptyAndNullPathsAreRefused)
{
    EXPECT_FALSE(copy("", target));
    EXPECT_EQ(reason, EINVAL);
    EXPECT_FALSE(copy(source, ""));
    EXPECT_FALSE(copy_file(nullptr, target.c_str(), 7, nullptr));
    EXPECT_FALSE(copy_file(source.c_str(), nullptr, 7, nullptr));
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

TEST_F(Copy_File_Test, AHoleAtTheEndIsKept)
{
    write_local(source, sample_bytes(100000));
    fs::resize_file(source, 10000000);
    ASSERT_TRUE(copy(source, target)) << error;
    EXPECT_TRUE(read_local(target) == read_local(source));
    write_local(source, "");
    fs::resize_file(source, 10000000);
    ASSERT_TRUE(copy(source, target)) << error;
    EXPECT_TRUE(read_local(target) == std::string(10000000, '\0'));
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

TEST_F(Copy_File_Test, NoHandleIsLeaked)
{
    write_local(source, "data");
    fs::create_directory(directory / "directory");
    const std::size_t before = names_in("/proc/self/fd").size();
    EXPECT_TRUE(copy(source, target));
    EXPECT_FALSE(copy(source, directory / "directory"));
    EXPECT_FALSE(copy(directory / "directory", target));
    EXPECT_FALSE(copy(source, directory / "missing/target"));
    EXPECT_EQ(names_in("/proc/self/fd").size(), before);
}

} // namespace
