#include "platform/runtime/file_system.h"

#include "platform/runtime/os_error.h"
#include "tests/support/temp_directory.h"
#include "tests/support/this_system.h"

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_unistd.h>
#include <ace/os_include/os_fcntl.h>
#include <ace/os_include/os_stdio.h>

#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace
{

constexpr std::uint64_t five_gib = 5ULL << 30U;

class File_System_Test : public testing::Test
{
protected:
    std::string path(const std::string& name) const { return directory / name; }

    file_system::Status status(const std::string& name)
    {
        file_system::Status status;
        EXPECT_TRUE(file_system::status(path(name).c_str(), true, status)) << name;
        return status;
    }

    /// Opens a file, which the test has to close.
    ACE_HANDLE open(const std::string& name, int flags)
    {
        ACE_OS::last_error(0);
        return file_system::open(path(name).c_str(), flags, file_system::share_all);
    }

    /// Opens a file, writes and closes it. @return whether it was opened
    bool write(const std::string& name, int flags, const std::string& data)
    {
        const ACE_HANDLE handle = open(name, flags);
        if (handle == ACE_INVALID_HANDLE)
            return false;
        EXPECT_EQ(ACE_OS::write(handle, data.data(), data.size()),
                  static_cast<ssize_t>(data.size()));
        EXPECT_EQ(ACE_OS::close(handle), 0);
        return true;
    }

    Temp_Directory directory;
};

TEST_F(File_System_Test, StatusTellsFilesDirectoriesAndWhatIsMissing)
{
    write_local(path("file"), "12345");
    fs::create_directory(path("dir"));
    EXPECT_TRUE(status("file").is_file());
    EXPECT_FALSE(status("file").is_directory());
    EXPECT_FALSE(status("file").is_link());
    EXPECT_FALSE(status("file").is_pipe());
    EXPECT_EQ(status("file").size, 5U);
    EXPECT_TRUE(status("dir").is_directory());
    EXPECT_FALSE(status("dir").is_file());
    EXPECT_TRUE(status("").is_directory()) << "with a separator behind";

    file_system::Status nothing = status("file");
    EXPECT_FALSE(file_system::status(path("missing").c_str(), true, nothing));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_file);
    EXPECT_EQ(nothing.mode, 0U);
    EXPECT_FALSE(file_system::status(path("missing").c_str(), false, nothing));
    EXPECT_FALSE(file_system::status(path("missing/below").c_str(), true, nothing));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_directory);
    EXPECT_FALSE(file_system::status("", true, nothing));
    EXPECT_TRUE(os_error::is_missing(ACE_OS::last_error()));
}

TEST_F(File_System_Test, StatusOfAnOpenFileIsThatOfItsPath)
{
    write_local(path("file"), "12345");
    const ACE_HANDLE handle = open("file", O_RDONLY);
    ASSERT_NE(handle, ACE_INVALID_HANDLE);
    file_system::Status opened;
    EXPECT_TRUE(file_system::status(handle, opened));
    EXPECT_TRUE(opened.is_same_file(status("file")));
    EXPECT_EQ(opened.mode, status("file").mode);
    EXPECT_EQ(opened.size, 5U);
    EXPECT_EQ(opened.mtime, status("file").mtime);
    EXPECT_EQ(ACE_OS::close(handle), 0);
    EXPECT_FALSE(file_system::status(ACE_INVALID_HANDLE, opened));
    EXPECT_EQ(ACE_OS::last_error(), os_error::bad_handle);
    EXPECT_EQ(opened.mode, 0U);
}

TEST_F(File_System_Test, TimesCountFrom1970AndSecondsAreRoundedDown)
{
    write_local(path("file"), "");
    for (const std::int64_t seconds : {0LL, 1LL, -1LL, 1234567890LL, -1234567890LL, 4294967296LL}) {
        this_system::set_modification_time(path("file"), seconds);
        EXPECT_EQ(status("file").mtime, seconds * 1'000'000'000);
        EXPECT_EQ(status("file").mtime_seconds(), seconds);
    }
    file_system::Status time;
    for (const auto& [nanoseconds, seconds] :
         {std::pair<std::int64_t, std::int64_t>{999'999'999, 0},
          {1'000'000'001, 1},
          {-1, -1},
          {-1'000'000'000, -1},
          {-1'000'000'001, -2}})
    {
        time.mtime = nanoseconds;
        EXPECT_EQ(time.mtime_seconds(), seconds) << nanoseconds;
    }
}

TEST_F(File_System_Test, WhatWasJustWrittenIsOfNow)
{
    write_local(path("file"), "");
    EXPECT_NEAR(static_cast<double>(status("file").mtime_seconds()),
                static_cast<double>(std::time(nullptr)), 60);
}

TEST_F(File_System_Test, OneFileUnderTwoNamesIsOneAndNothingElseIs)
{
    write_local(path("a"), "same");
    write_local(path("b"), "same");
    fs::create_hard_link(path("a"), path("hard"));
    const auto same = [&](const char* one, const char* other) {
        return file_system::is_same_file(path(one).c_str(), path(other).c_str());
    };
    EXPECT_TRUE(same("a", "a"));
    EXPECT_TRUE(same("a", "./a"));
    EXPECT_TRUE(same("a", "hard"));
    EXPECT_TRUE(same("", "."));
    EXPECT_FALSE(same("a", "b"));
    EXPECT_FALSE(same("a", ""));
    EXPECT_FALSE(same("a", "missing"));
    EXPECT_FALSE(same("missing", "missing"));
    EXPECT_FALSE(file_system::Status().is_same_file({}));
}

TEST_F(File_System_Test, ExistsTellsWhatIsThere)
{
    write_local(path("file"), "");
    EXPECT_TRUE(file_system::exists(path("file").c_str()));
    EXPECT_TRUE(file_system::exists(directory.str().c_str()));
    EXPECT_FALSE(file_system::exists(path("missing").c_str()));
    EXPECT_FALSE(file_system::exists(path("file/below").c_str()));
    EXPECT_FALSE(file_system::exists(""));
}

TEST_F(File_System_Test, OpenMakesFilesOnlyWhenAsked)
{
    EXPECT_FALSE(write("a", O_WRONLY, "x"));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_file);
    EXPECT_FALSE(write("a", O_WRONLY | O_TRUNC, "x"));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_file);
    EXPECT_FALSE(write("missing/a", O_WRONLY | O_CREAT, "x"));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_directory);
    EXPECT_TRUE(fs::is_empty(directory.path()));
    EXPECT_TRUE(write("a", O_WRONLY | O_CREAT, "0123"));
    EXPECT_EQ(read_local(path("a")), "0123");
    EXPECT_TRUE(write("a", O_WRONLY | O_CREAT, "x"));
    EXPECT_EQ(read_local(path("a")), "x123");
    EXPECT_TRUE(write("a", O_WRONLY | O_TRUNC, "y"));
    EXPECT_EQ(read_local(path("a")), "y");
    EXPECT_TRUE(write("a", O_RDWR | O_CREAT | O_TRUNC, "z"));
    EXPECT_EQ(read_local(path("a")), "z");
    EXPECT_TRUE(write("b", O_WRONLY | O_CREAT | O_TRUNC, "new"));
    EXPECT_EQ(read_local(path("b")), "new");
}

TEST_F(File_System_Test, ExclusiveOpenRefusesWhatIsThereAndKeepsIt)
{
    EXPECT_TRUE(write("a", O_WRONLY | O_CREAT | O_EXCL, "kept"));
    EXPECT_FALSE(write("a", O_WRONLY | O_CREAT | O_EXCL, "x"));
    EXPECT_EQ(ACE_OS::last_error(), os_error::file_exists);
    EXPECT_FALSE(write("a", O_WRONLY | O_CREAT | O_EXCL | O_TRUNC, "x"));
    EXPECT_EQ(ACE_OS::last_error(), os_error::file_exists);
    EXPECT_EQ(read_local(path("a")), "kept");
}

TEST_F(File_System_Test, AppendedBytesGoToTheEndWhoeverElseWritesAndWhereverThePositionIs)
{
    EXPECT_TRUE(write("a", O_WRONLY | O_CREAT, "start"));
    const ACE_HANDLE one = open("a", O_WRONLY | O_APPEND);
    const ACE_HANDLE other = open("a", O_RDWR | O_APPEND);
    ASSERT_TRUE(one != ACE_INVALID_HANDLE && other != ACE_INVALID_HANDLE);
    EXPECT_EQ(ACE_OS::write(one, "1", 1), 1);
    EXPECT_EQ(ACE_OS::write(other, "2", 1), 1);
    EXPECT_EQ(file_system::seek(one, 0, SEEK_SET), 0);
    EXPECT_EQ(ACE_OS::write(one, "3", 1), 1);
    EXPECT_EQ(ACE_OS::close(one), 0);
    EXPECT_EQ(ACE_OS::close(other), 0);
    EXPECT_EQ(read_local(path("a")), "start123");
}

TEST_F(File_System_Test, BytesAreWrittenAndReadAsTheyAre)
{
    const std::string data("a\nb\r\nc\x1a"
                           "d\0e",
                           11);
    EXPECT_TRUE(write("a", O_WRONLY | O_CREAT, data));
    EXPECT_EQ(read_local(path("a")), data);
    const ACE_HANDLE handle = open("a", O_RDONLY);
    ASSERT_NE(handle, ACE_INVALID_HANDLE);
    char buffer[32];
    EXPECT_EQ(ACE_OS::read(handle, buffer, sizeof buffer), 11);
    EXPECT_EQ(std::string(buffer, 11), data);
    EXPECT_EQ(ACE_OS::close(handle), 0);
}

TEST_F(File_System_Test, AFileThatIsOpenToReadCannotBeWritten)
{
    EXPECT_TRUE(write("a", O_WRONLY | O_CREAT, "kept"));
    const ACE_HANDLE handle = open("a", O_RDONLY);
    ASSERT_NE(handle, ACE_INVALID_HANDLE);
    EXPECT_EQ(ACE_OS::write(handle, "x", 1), -1);
    EXPECT_EQ(ACE_OS::close(handle), 0);
    EXPECT_EQ(read_local(path("a")), "kept");
}

TEST_F(File_System_Test, HandlesAreNotInherited)
{
    EXPECT_TRUE(write("a", O_WRONLY | O_CREAT, ""));
    for (const int flags : {O_RDONLY, O_WRONLY, O_RDWR | O_APPEND}) {
        const ACE_HANDLE handle = open("a", flags);
        ASSERT_NE(handle, ACE_INVALID_HANDLE);
        EXPECT_FALSE(this_system::is_inherited(handle));
        EXPECT_EQ(ACE_OS::close(handle), 0);
    }
}

TEST_F(File_System_Test, AnOpenFileCanBeRenamedAndRemovedMeanwhile)
{
    EXPECT_TRUE(write("a", O_WRONLY | O_CREAT, "data"));
    const ACE_HANDLE handle = open("a", O_RDONLY);
    ASSERT_NE(handle, ACE_INVALID_HANDLE);
    EXPECT_TRUE(file_system::rename(path("a").c_str(), path("b").c_str()));
    EXPECT_TRUE(file_system::remove(path("b").c_str()));
    char buffer[8];
    EXPECT_EQ(ACE_OS::read(handle, buffer, sizeof buffer), 4);
    EXPECT_EQ(ACE_OS::close(handle), 0);
    EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST_F(File_System_Test, SeekGoesAnywhereBeyondFourGibToo)
{
    write_local(path("a"), "head");
    this_system::resize_with_hole(path("a"), five_gib);
    const ACE_HANDLE handle = open("a", O_RDWR);
    ASSERT_NE(handle, ACE_INVALID_HANDLE);
    const auto position = static_cast<std::int64_t>(five_gib);
    EXPECT_EQ(file_system::seek(handle, 0, SEEK_END), position);
    EXPECT_EQ(ACE_OS::write(handle, "tail", 4), 4);
    EXPECT_EQ(file_system::seek(handle, 0, SEEK_CUR), position + 4);
    EXPECT_EQ(file_system::seek(handle, -4, SEEK_CUR), position);
    char buffer[8] = "";
    EXPECT_EQ(ACE_OS::read(handle, buffer, sizeof buffer), 4);
    EXPECT_STREQ(buffer, "tail");
    EXPECT_EQ(file_system::seek(handle, -position - 3, SEEK_END), 1);
    EXPECT_EQ(ACE_OS::read(handle, buffer, 3), 3);
    EXPECT_EQ(std::string(buffer, 3), "ead");
    ACE_OS::last_error(0);
    EXPECT_EQ(file_system::seek(handle, -1, SEEK_SET), -1);
    EXPECT_EQ(ACE_OS::last_error(), this_system::errors.seek_before_start);
    EXPECT_EQ(file_system::seek(handle, 0, SEEK_CUR), 4);
    EXPECT_EQ(ACE_OS::close(handle), 0);
    ACE_OS::last_error(0);
    EXPECT_EQ(file_system::seek(ACE_INVALID_HANDLE, 0, SEEK_SET), -1);
    EXPECT_EQ(ACE_OS::last_error(), os_error::bad_handle);
}

TEST_F(File_System_Test, TruncateShortensAndLengthensWithZeros)
{
    write_local(path("a"), "0123456789");
    EXPECT_TRUE(file_system::truncate(path("a").c_str(), 4));
    EXPECT_TRUE(file_system::truncate(path("a").c_str(), 6));
    EXPECT_EQ(read_local(path("a")), std::string("0123\0\0", 6));
    EXPECT_TRUE(file_system::truncate(path("a").c_str(), five_gib));
    EXPECT_EQ(status("a").size, five_gib);
    EXPECT_TRUE(file_system::truncate(path("a").c_str(), 0));
    EXPECT_EQ(status("a").size, 0U);
    EXPECT_FALSE(file_system::truncate(path("missing").c_str(), 0));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_file);
    EXPECT_FALSE(fs::exists(path("missing")));
    EXPECT_FALSE(file_system::truncate(directory.str().c_str(), 0));
    EXPECT_EQ(ACE_OS::last_error(), this_system::errors.open_directory);
}

TEST_F(File_System_Test, MakeDirectoryMakesOne)
{
    EXPECT_TRUE(file_system::make_directory(path("a").c_str(), 0750));
    EXPECT_TRUE(fs::is_directory(path("a")));
    EXPECT_FALSE(file_system::make_directory(path("a").c_str(), 0750));
    EXPECT_TRUE(os_error::is_taken(ACE_OS::last_error()));
    EXPECT_FALSE(file_system::make_directory(path("b/c").c_str(), 0750));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_directory);
    EXPECT_FALSE(fs::exists(path("b")));
}

TEST_F(File_System_Test, RemoveTakesFilesAndEmptyDirectories)
{
    write_local(path("file"), "");
    fs::create_directories(path("dir/below"));
    EXPECT_TRUE(file_system::remove(path("file").c_str()));
    EXPECT_FALSE(file_system::remove(path("file").c_str()));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_file);
    EXPECT_FALSE(file_system::remove(path("dir").c_str()));
    EXPECT_EQ(ACE_OS::last_error(), this_system::errors.directory_not_empty);
    EXPECT_TRUE(file_system::remove(path("dir/below").c_str()));
    EXPECT_TRUE(file_system::remove(path("dir").c_str()));
    EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST_F(File_System_Test, RenameReplacesFilesAndMovesDirectories)
{
    write_local(path("a"), "new");
    write_local(path("b"), "the old one");
    EXPECT_TRUE(file_system::rename(path("a").c_str(), path("b").c_str()));
    EXPECT_EQ(read_local(path("b")), "new");
    EXPECT_FALSE(fs::exists(path("a")));
    fs::create_directory(path("dir"));
    EXPECT_TRUE(file_system::rename(path("b").c_str(), path("dir/b").c_str()));
    EXPECT_TRUE(file_system::rename(path("dir").c_str(), path("other").c_str()));
    EXPECT_EQ(read_local(path("other/b")), "new");
    EXPECT_FALSE(fs::exists(path("dir")));

    write_local(path("file"), "kept");
    EXPECT_FALSE(file_system::rename(path("file").c_str(), path("other").c_str()));
    EXPECT_EQ(ACE_OS::last_error(), this_system::errors.replace_directory);
    EXPECT_FALSE(file_system::rename(path("missing").c_str(), path("file").c_str()));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_file);
    EXPECT_FALSE(file_system::rename(path("file").c_str(), path("missing/file").c_str()));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_directory);
    EXPECT_EQ(read_local(path("file")), "kept");
    EXPECT_EQ(read_local(path("other/b")), "new");
}

TEST_F(File_System_Test, RenameNewRefusesNamesThatAreTaken)
{
    write_local(path("file"), "file");
    write_local(path("taken"), "taken");
    fs::create_directory(path("dir"));
    fs::create_directory(path("empty"));
    for (const char* src : {"file", "dir"}) {
        for (const char* dst : {"taken", "empty"}) {
            EXPECT_FALSE(file_system::rename_new(path(src).c_str(), path(dst).c_str()));
            EXPECT_TRUE(os_error::is_taken(ACE_OS::last_error())) << src << " to " << dst;
            EXPECT_TRUE(fs::exists(path(src)));
        }
    }
    EXPECT_EQ(read_local(path("taken")), "taken");
    EXPECT_TRUE(file_system::rename_new(path("file").c_str(), path("free").c_str()));
    EXPECT_EQ(read_local(path("free")), "file");
    EXPECT_TRUE(file_system::rename_new(path("dir").c_str(), path("free dir").c_str()));
    EXPECT_TRUE(fs::is_directory(path("free dir")));
    EXPECT_FALSE(file_system::rename_new(path("missing").c_str(), path("x").c_str()));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_file);
}

TEST_F(File_System_Test, TheRealPathIsAbsoluteAndOneForEverySpelling)
{
    fs::create_directories(path("dir/below"));
    std::string direct;
    std::string roundabout;
    ASSERT_TRUE(file_system::real_path(path("dir").c_str(), direct));
    EXPECT_TRUE(fs::path(direct).is_absolute()) << direct;
    EXPECT_EQ(fs::path(direct).filename(), "dir");
    ASSERT_TRUE(file_system::real_path(path("dir/./below/..//").c_str(), roundabout));
    EXPECT_EQ(roundabout, direct);
    const fs::path old = fs::current_path();
    fs::current_path(path("dir"));
    const bool found = file_system::real_path(".", roundabout);
    fs::current_path(old);
    ASSERT_TRUE(found);
    EXPECT_EQ(roundabout, direct);
    EXPECT_FALSE(file_system::real_path(path("missing").c_str(), roundabout));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_file);
    EXPECT_EQ(roundabout, direct);
}

TEST_F(File_System_Test, NamesOutsideAnyCodePageWork)
{
    // a-umlaut, Cyrillic zhe, the character for "backup", an emoji
    const std::string name = "\xC3\xA4\xD0\xB6\xE5\xA4\x87\xF0\x9F\x92\xBE";
    EXPECT_TRUE(file_system::make_directory(path(name).c_str(), 0750));
    EXPECT_TRUE(write(name + "/" + name, O_WRONLY | O_CREAT, "data"));
    EXPECT_EQ(status(name + "/" + name).size, 4U);
    EXPECT_TRUE(file_system::rename(path(name + "/" + name).c_str(), path(name + "2").c_str()));
    EXPECT_TRUE(file_system::truncate(path(name + "2").c_str(), 2));
    EXPECT_EQ(read_local(path(name + "2")), "da");
    std::string resolved;
    EXPECT_TRUE(file_system::real_path(path(name + "2").c_str(), resolved));
    EXPECT_TRUE(resolved.ends_with(name + "2")) << resolved;
    EXPECT_TRUE(file_system::remove(path(name + "2").c_str()));
    EXPECT_TRUE(file_system::remove(path(name).c_str()));
    EXPECT_TRUE(fs::is_empty(directory.path()));
}

} // namespace
