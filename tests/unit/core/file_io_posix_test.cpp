#include "client_io/client_io.h"
#include "client_io/file_io.h"
#include "platform/json/json_value.h"
#include "tests/support/temp_directory.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

// What is particular to local files on POSIX: permissions, links, devices, names of any bytes.

namespace
{

class File_IO_Posix : public testing::Test
{
protected:
    void SetUp() override
    {
        old_umask_ = ::umask(027);
        uri_.scheme("file");
        uri_.path(directory_ / "target", false);
        ASSERT_TRUE(io_.connect(uri_, Client_IO_Base::Options{})) << io_.error();
    }

    void TearDown() override { ::umask(old_umask_); }

    std::string local(const std::string& name) const { return directory_ / ("target/" + name); }

    unsigned mode_of(const std::string& name) const
    {
        struct stat status = {};
        EXPECT_EQ(::stat(local(name).c_str(), &status), 0) << name;
        return status.st_mode & 07777U;
    }

    unsigned current_umask() const
    {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        return mask;
    }

    Temp_Directory directory_;
    URI uri_;
    File_IO io_;
    mode_t old_umask_ = 0;
};

TEST_F(File_IO_Posix, TheBaseDirectoryIsCreatedWithMode0750WhateverTheUmask)
{
    EXPECT_EQ(mode_of(""), 0750U);
    ::umask(0);
    uri_.path(directory_ / "target/x/y", false);
    ASSERT_TRUE(io_.connect(uri_, Client_IO_Base::Options{}));
    EXPECT_EQ(mode_of("x"), 0750U);
    EXPECT_EQ(mode_of("x/y"), 0750U);
    EXPECT_EQ(current_umask(), 0U);
}

TEST_F(File_IO_Posix, MakeDirUsesItsModeForEveryDirectoryItCreates)
{
    EXPECT_TRUE(io_.make_dir("a/b", 0777));
    EXPECT_EQ(mode_of("a"), 0777U);
    EXPECT_EQ(mode_of("a/b"), 0777U);
    EXPECT_TRUE(io_.make_dir("a/c", 0700));
    EXPECT_EQ(mode_of("a"), 0777U);
    EXPECT_EQ(mode_of("a/c"), 0700U);
    EXPECT_EQ(current_umask(), 027U);
}

TEST_F(File_IO_Posix, OpenForWritingCreatesMissingParentsWithMode0750)
{
    ASSERT_TRUE(io_.open("a/b/file", Client_IO_Base::mode_write, 0, 0));
    EXPECT_EQ(mode_of("a"), 0750U);
    EXPECT_EQ(mode_of("a/b"), 0750U);
    EXPECT_EQ(current_umask(), 027U);
}

TEST_F(File_IO_Posix, OpenWithExtraCreatesMissingParentsWith0777LessTheCreationMask)
{
    const json_spirit::Value mask = {{"X-Mode-Creation-Mask", 022}};
    ASSERT_TRUE(io_.open("masked/file", Client_IO_Base::mode_write, mask));
    EXPECT_EQ(mode_of("masked"), 0755U);
    const json_spirit::Value whole = {{"X-Mode-Creation-Mask", 07777077}};
    ASSERT_TRUE(io_.open("whole/file", Client_IO_Base::mode_write, whole));
    EXPECT_EQ(mode_of("whole"), 0700U);
    int number = 0;
    for (const json_spirit::Value& extra :
         {json_spirit::Value(), json_spirit::Value("text"), json_spirit::Value(022),
          json_spirit::Value({{"other", 022}}), json_spirit::Value::array({1, 2}),
          json_spirit::Value({{"X-Mode-Creation-Mask", "022"}})})
    {
        const std::string name = "open" + std::to_string(++number);
        ASSERT_TRUE(io_.open((name + "/file").c_str(), Client_IO_Base::mode_write, extra));
        EXPECT_EQ(mode_of(name), 0777U) << extra;
    }
}

TEST_F(File_IO_Posix, NewFilesHaveTheModeThatTheUmaskLeaves)
{
    ASSERT_TRUE(io_.open("file", Client_IO_Base::mode_write, 0, 0));
    EXPECT_EQ(mode_of("file"), 0640U);
    const json_spirit::Value mask = {{"X-Mode-Creation-Mask", 0}};
    ASSERT_TRUE(io_.open("second", Client_IO_Base::mode_write, mask));
    EXPECT_EQ(mode_of("second"), 0640U);
}

TEST_F(File_IO_Posix, ThreadsThatCreateDirectoriesAndFilesKeepTheUmaskAndTheModes)
{
    constexpr int rounds = 100;
    std::atomic<int> failures = 0;
    const auto work = [&](const std::string& name) {
        File_IO io;
        if (!io.connect(uri_, Client_IO_Base::Options{}))
            ++failures;
        for (int i = 0; i < rounds; ++i) {
            const std::string path = name + '/' + std::to_string(i);
            if (!io.make_dir((path + "/made").c_str(), 0750) ||
                !io.open((path + "/opened/file").c_str(), Client_IO_Base::mode_write, 0, 0) ||
                !io.close())
                ++failures;
        }
    };
    std::thread first(work, "first");
    std::thread second(work, "second");
    std::thread third(work, "third");
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(current_umask(), 027U);
    for (const char* name : {"first", "second", "third"}) {
        for (int i = 0; i < rounds; ++i) {
            const std::string path = std::string(name) + '/' + std::to_string(i);
            ASSERT_EQ(mode_of(path + "/made"), 0750U);
            ASSERT_EQ(mode_of(path + "/opened"), 0750U);
            ASSERT_EQ(mode_of(path + "/opened/file"), 0640U);
        }
    }
}

TEST_F(File_IO_Posix, NamesOfAnyBytesAreKept)
{
    for (const std::string name :
         {"\xff\xfe not UTF-8", "new\nline", "tab\tand\x01\x7f", "back\\slash"})
    {
        ASSERT_TRUE(io_.open(name.c_str(), Client_IO_Base::mode_write, 0, 0)) << io_.error();
        ASSERT_TRUE(io_.close());
        std::vector<Client_IO_Base::Directory_Entry> entries;
        ASSERT_TRUE(io_.get_dir("", entries));
        ASSERT_EQ(entries.size(), 1U);
        EXPECT_EQ(entries[0].name, name);
        EXPECT_TRUE(io_.remove(name.c_str()));
    }
}

TEST_F(File_IO_Posix, AFailedReadHasItsTextInBothForms)
{
    ASSERT_EQ(::symlink("/proc/self/mem", local("mem").c_str()), 0);
    char byte = 'x';
    ASSERT_TRUE(io_.open("mem", Client_IO_Base::mode_read, 0, 0)) << io_.error();
    EXPECT_EQ(io_.read(&byte, 1), -1);
    EXPECT_EQ(io_.error(), "Failed to read " + local("mem") + ", errno=5: Input/output error");
    EXPECT_EQ(io_.errnum(), EIO);
    EXPECT_EQ(byte, 'x');
    ASSERT_TRUE(io_.open("mem", Client_IO_Base::mode_read, 0, 0));
    const void* data = nullptr;
    std::uint64_t size = 0;
    EXPECT_FALSE(io_.read(data, size));
    EXPECT_EQ(io_.errnum(), EIO);
}

TEST_F(File_IO_Posix, PutFileKeepsTheTextOfALocalFileThatCannotBeRead)
{
    Client_IO facade;
    ASSERT_TRUE(facade.connect(uri_, Client_IO_Base::Options{}));
    EXPECT_FALSE(facade.put_file("copy", "/proc/self/mem", false, 0, 0, {}));
    EXPECT_EQ(facade.error(), "Failed to read local file /proc/self/mem: Input/output error");
    EXPECT_FALSE(facade.is_open());
}

TEST_F(File_IO_Posix, RemovingALinkToADirectoryRemovesTheLinkOnly)
{
    ASSERT_TRUE(io_.make_dir("d", 0750));
    write_local(local("d/file"), "kept");
    ASSERT_EQ(::symlink("d", local("link").c_str()), 0);
    EXPECT_TRUE(io_.remove("link")) << io_.error();
    EXPECT_EQ(read_local(local("d/file")), "kept");
}

TEST_F(File_IO_Posix, ADanglingLinkIsListedAndRemovedAndNotWrittenThroughWithoutOverwrite)
{
    ASSERT_EQ(::symlink((directory_ / "elsewhere").c_str(), local("link").c_str()), 0);
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_TRUE(io_.get_dir("", entries)) << io_.error();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, "link");
    EXPECT_FALSE(entries[0].is_dir);
    EXPECT_EQ(io_.size("link"), Client_IO_Base::size_unknown);
    EXPECT_TRUE(io_.remove("link")) << io_.error();
}

TEST_F(File_IO_Posix, RunningOutOfHandlesIsAnOpenErrorWithItsNumber)
{
    write_local(local("a"), "data");
    // The undefined-behaviour sanitizer needs a handle itself the first time it meets a class on
    // a path, so the same failure happens once before.
    EXPECT_FALSE(io_.open("missing", Client_IO_Base::mode_read, 0, 0));
    rlimit limit = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const bool opened = io_.open("a", Client_IO_Base::mode_read, 0, 0);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_FALSE(opened);
    EXPECT_EQ(io_.errnum(), EMFILE);
    EXPECT_EQ(io_.error(), "Fail to open file " + local("a") + ", errno=24: Too many open files");
    EXPECT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0)) << io_.error();
}

TEST_F(File_IO_Posix, PipesAreRefusedInsteadOfWaitedFor)
{
    ASSERT_EQ(::mkfifo(local("pipe").c_str(), 0600), 0);
    for (const unsigned mode : {1U, 0x102U, 3U, 4U}) {
        EXPECT_FALSE(io_.open("pipe", mode, 0, 0)) << mode;
        EXPECT_EQ(io_.error(), "Fail to open file " + local("pipe") + ", errno=29: Illegal seek");
        EXPECT_FALSE(io_.is_open());
    }
}

TEST_F(File_IO_Posix, AWriteBeyondTheLargestPositionFails)
{
    URI devices;
    devices.scheme("file");
    devices.path("/dev", false);
    File_IO io;
    ASSERT_TRUE(io.connect(devices, Client_IO_Base::Options{})) << io.error();
    ASSERT_TRUE(io.open("null", 4, INT64_MAX - 2, 0)) << io.error();
    EXPECT_TRUE(io.write("ab", 2));
    EXPECT_FALSE(io.write("c", 1));
    EXPECT_EQ(io.error(), "Failed to write /dev/null, errno=27: File too large");
    EXPECT_EQ(io.size(), static_cast<std::uint64_t>(INT64_MAX));
}

TEST_F(File_IO_Posix, AFailedReadLeavesTheStreamWhereItWas)
{
    // The memory of this process as a file: what is mapped can be read, what follows cannot.
    constexpr std::size_t readable = 2 * 65536;
    void* const map =
        ::mmap(nullptr, 2 * readable, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    const std::string data = sample_bytes(readable);
    std::memcpy(map, data.data(), readable);
    ASSERT_EQ(::munmap(static_cast<char*>(map) + readable, readable), 0);

    URI self;
    self.scheme("file");
    self.path("/proc/self", false);
    File_IO io;
    ASSERT_TRUE(io.connect(self, Client_IO_Base::Options{})) << io.error();
    ASSERT_TRUE(io.open("mem", 1, reinterpret_cast<std::uintptr_t>(map), 150000)) << io.error();
    std::string got(200000, '-');
    EXPECT_EQ(io.read(got.data(), 65536), 65536);
    EXPECT_EQ(io.read(got.data(), got.size()), -1);
    EXPECT_EQ(io.errnum(), EIO);
    EXPECT_EQ(io.read(got.data(), 65536), 65536);
    EXPECT_TRUE(got.substr(0, 65536) == data.substr(65536));
    ::munmap(map, readable);
}

TEST_F(File_IO_Posix, NewDirectoriesKeepTheGroupThatTheirParentHandsDown)
{
    ASSERT_EQ(::chmod(local("").c_str(), 02750), 0);
    EXPECT_TRUE(io_.make_dir("a/b", 0705));
    EXPECT_EQ(mode_of("a"), 02705U);
    EXPECT_EQ(mode_of("a/b"), 02705U);
}

TEST_F(File_IO_Posix, AFileWithoutPositionsIsNotLeftOpen)
{
    URI devices;
    devices.scheme("file");
    devices.path("/dev", false);
    File_IO io;
    ASSERT_TRUE(io.connect(devices, Client_IO_Base::Options{})) << io.error();
    for (const unsigned mode : {1U, 4U}) {
        EXPECT_FALSE(io.open("ptmx", mode, 0, 0));
        EXPECT_EQ(io.error(), "Failed to seek /dev/ptmx, errno=29: Illegal seek");
        EXPECT_FALSE(io.is_open());
    }
}

TEST_F(File_IO_Posix, RemovingBelowAFileFails)
{
    write_local(local("file"), "kept");
    EXPECT_FALSE(io_.remove("file/below"));
    EXPECT_EQ(io_.errnum(), ENOTDIR);
    EXPECT_EQ(read_local(local("file")), "kept");
}

} // namespace
