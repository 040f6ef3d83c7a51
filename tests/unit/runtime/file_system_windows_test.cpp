#include "platform/runtime/file_system.h"

#include "platform/runtime/directory_reader.h"
#include "platform/runtime/os_error.h"
#include "tests/support/temp_directory.h"
#include "tests/support/this_system.h"

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_unistd.h>
#include <ace/os_include/os_fcntl.h>

#include <filesystem>
#include <gtest/gtest.h>

#include <windows.h>

// Names that only need care here, long paths, attributes and sharing.

namespace fs = std::filesystem;

namespace
{

class File_System_Windows_Test : public testing::Test
{
protected:
    std::string path(const std::string& name) const { return directory / name; }

    bool write(const std::string& path, const std::string& data)
    {
        const ACE_HANDLE handle =
            file_system::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, file_system::share_all);
        if (handle == ACE_INVALID_HANDLE)
            return false;
        EXPECT_EQ(ACE_OS::write(handle, data.data(), data.size()),
                  static_cast<ssize_t>(data.size()));
        return ACE_OS::close(handle) == 0;
    }

    std::string read(const std::string& path)
    {
        const ACE_HANDLE handle = file_system::open(path.c_str(), O_RDONLY, file_system::share_all);
        if (handle == ACE_INVALID_HANDLE)
            return "<missing>";
        char buffer[64];
        const ssize_t size = ACE_OS::read(handle, buffer, sizeof buffer);
        EXPECT_EQ(ACE_OS::close(handle), 0);
        return {buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }

    std::vector<std::string> names(const std::string& path)
    {
        std::vector<std::string> result;
        Directory_Reader reader;
        Directory_Reader::Entry entry;
        EXPECT_TRUE(reader.open(path.c_str(), false, 0)) << path;
        while (reader.read(entry) == 1)
            result.push_back(entry.name);
        return result;
    }

    Temp_Directory directory;
};

TEST_F(File_System_Windows_Test, NamesOfDevicesAndNamesThatWouldBeShortenedAreFiles)
{
    for (const std::string name : {"CON", "nul", "aux.txt", "COM1", "a.", "a ", "...", " a"}) {
        ASSERT_TRUE(write(path("plain"), "plain"));
        EXPECT_TRUE(write(path(name), name)) << name << ": " << ACE_OS::last_error();
        EXPECT_EQ(read(path(name)), name);
        EXPECT_EQ(names(directory.str()).size(), 2U) << name;
        EXPECT_TRUE(file_system::remove(path("plain").c_str()));
        EXPECT_EQ(names(directory.str()), std::vector<std::string>{name});
        file_system::Status status;
        EXPECT_TRUE(file_system::status(path(name).c_str(), true, status));
        EXPECT_EQ(status.size, name.size());
        EXPECT_TRUE(file_system::remove(path(name).c_str())) << name;
        EXPECT_TRUE(file_system::make_directory(path(name).c_str(), 0750)) << name;
        EXPECT_TRUE(write(path(name) + "\\" + name, "below"));
        EXPECT_EQ(names(path(name)), std::vector<std::string>{name});
        EXPECT_TRUE(file_system::remove((path(name) + "\\" + name).c_str()));
        EXPECT_TRUE(file_system::remove(path(name).c_str()));
        EXPECT_TRUE(names(directory.str()).empty()) << name;
    }
}

TEST_F(File_System_Windows_Test, WhatNoNameMayHoldIsRefusedByEveryOperation)
{
    ASSERT_TRUE(write(path("file"), "kept"));
    const std::string stream = path("file:hidden");
    const auto refused = [](bool done) {
        return !done && ACE_OS::last_error() == os_error::invalid_name;
    };
    file_system::Status status;
    std::string resolved;
    EXPECT_TRUE(refused(write(stream, "x")));
    EXPECT_TRUE(refused(file_system::status(stream.c_str(), true, status)));
    EXPECT_TRUE(refused(file_system::truncate(stream.c_str(), 0)));
    EXPECT_TRUE(refused(file_system::make_directory(stream.c_str(), 0750)));
    EXPECT_TRUE(refused(file_system::remove(stream.c_str())));
    EXPECT_TRUE(refused(file_system::rename(stream.c_str(), path("b").c_str())));
    EXPECT_TRUE(refused(file_system::rename(path("file").c_str(), stream.c_str())));
    EXPECT_TRUE(refused(file_system::rename_new(path("file").c_str(), stream.c_str())));
    EXPECT_TRUE(refused(file_system::real_path(stream.c_str(), resolved)));
    Directory_Reader reader;
    EXPECT_TRUE(refused(reader.open(path("*").c_str(), false, 0)));
    EXPECT_EQ(read(path("file")), "kept");
    EXPECT_EQ(names(directory.str()), std::vector<std::string>{"file"});
}

TEST_F(File_System_Windows_Test, PathsLongerThan260CharactersWork)
{
    std::vector<std::string> directories = {directory.str()};
    while (directories.back().size() < 1000) {
        directories.push_back(directories.back() + '\\' + std::string(100, 'd'));
        ASSERT_TRUE(file_system::make_directory(directories.back().c_str(), 0750))
            << directories.size();
    }
    const std::string file = directories.back() + "\\file";
    EXPECT_TRUE(write(file, "deep"));
    EXPECT_EQ(read(file), "deep");
    EXPECT_EQ(names(directories.back()), std::vector<std::string>{"file"});
    EXPECT_TRUE(file_system::exists(file.c_str()));
    EXPECT_TRUE(file_system::truncate(file.c_str(), 2));
    EXPECT_TRUE(file_system::rename_new(file.c_str(), (file + "2").c_str()));
    EXPECT_TRUE(file_system::rename((file + "2").c_str(), path("near").c_str()));
    EXPECT_EQ(read(path("near")), "de");
    for (auto each = directories.rbegin(); each != directories.rend() - 1; ++each)
        EXPECT_TRUE(file_system::remove(each->c_str()));
}

TEST_F(File_System_Windows_Test, NamesOfMoreThan255UnitsAreRefusedByTheSystem)
{
    const std::string longest(255, 'x');
    EXPECT_TRUE(write(path(longest), "data"));
    EXPECT_EQ(read(path(longest)), "data");
    EXPECT_TRUE(file_system::remove(path(longest).c_str()));
    EXPECT_FALSE(write(path(longest + "x"), "data"));
    EXPECT_EQ(ACE_OS::last_error(), this_system::errors.name_too_long);
    EXPECT_TRUE(names(directory.str()).empty());
}

TEST_F(File_System_Windows_Test, CaseDoesNotMatterAndIsKept)
{
    EXPECT_TRUE(write(path("Name"), "data"));
    EXPECT_EQ(read(path("nAME")), "data");
    EXPECT_TRUE(file_system::is_same_file(path("Name").c_str(), path("NAME").c_str()));
    EXPECT_EQ(names(directory.str()), std::vector<std::string>{"Name"});
    EXPECT_FALSE(write(path("other"), "x") &&
                 file_system::rename_new(path("other").c_str(), path("NAME").c_str()));
    EXPECT_TRUE(os_error::is_taken(ACE_OS::last_error()));
}

TEST_F(File_System_Windows_Test, ReadOnlyFilesSaySoInTheirMode)
{
    EXPECT_TRUE(write(path("file"), "kept"));
    file_system::Status status;
    EXPECT_TRUE(file_system::status(path("file").c_str(), true, status));
    EXPECT_EQ(status.mode, 0x8000U | 0666U);
    ASSERT_TRUE(SetFileAttributesW(fs::path(path("file")).c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(file_system::status(path("file").c_str(), true, status));
    EXPECT_EQ(status.mode, 0x8000U | 0444U);
    SetFileAttributesW(fs::path(path("file")).c_str(), FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(file_system::status(directory.str().c_str(), true, status));
    EXPECT_EQ(status.mode, 0x4000U | 0777U);
    file_system::set_directory_permissions(directory.str().c_str(), 0500);
    EXPECT_TRUE(file_system::status(directory.str().c_str(), true, status));
    EXPECT_EQ(status.mode, 0x4000U | 0777U) << "there are no such bits";
}

TEST_F(File_System_Windows_Test, SharingIsWhatTheCallerAllows)
{
    EXPECT_TRUE(write(path("file"), "data"));
    constexpr int share_read = 1;
    const ACE_HANDLE handle = file_system::open(path("file").c_str(), O_RDONLY, share_read);
    ASSERT_NE(handle, ACE_INVALID_HANDLE);
    EXPECT_EQ(read(path("file")), "data");
    EXPECT_FALSE(write(path("file"), "x"));
    EXPECT_EQ(ACE_OS::last_error(), ERROR_SHARING_VIOLATION);
    EXPECT_FALSE(file_system::remove(path("file").c_str()));
    EXPECT_EQ(ACE_OS::last_error(), ERROR_SHARING_VIOLATION);
    EXPECT_FALSE(file_system::rename(path("file").c_str(), path("b").c_str()));
    file_system::Status status;
    EXPECT_TRUE(file_system::status(path("file").c_str(), true, status)) << "a look is allowed";
    EXPECT_EQ(status.size, 4U);
    EXPECT_EQ(ACE_OS::close(handle), 0);
    EXPECT_TRUE(file_system::remove(path("file").c_str()));
}

TEST_F(File_System_Windows_Test, StatusTellsPipes)
{
    HANDLE ends[2] = {};
    ASSERT_TRUE(CreatePipe(&ends[0], &ends[1], nullptr, 0));
    file_system::Status pipe;
    EXPECT_TRUE(file_system::status(ends[0], pipe));
    EXPECT_TRUE(pipe.is_pipe());
    EXPECT_FALSE(pipe.is_file());
    CloseHandle(ends[0]);
    CloseHandle(ends[1]);
}

TEST_F(File_System_Windows_Test, TheRootOfADriveIsADirectory)
{
    const std::string drive = directory.str().substr(0, 2);
    file_system::Status status;
    EXPECT_TRUE(file_system::status((drive + "\\").c_str(), true, status));
    EXPECT_TRUE(status.is_directory());
    EXPECT_FALSE(file_system::make_directory((drive + "/").c_str(), 0750));
    EXPECT_FALSE(names(drive + "\\").empty());
}

} // namespace
