#include "client_io/client_io.h"
#include "client_io/file_io.h"
#include "tests/support/small_disk.h"
#include "tests/support/temp_directory.h"

#include <ace/os_include/os_fcntl.h>

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

// A failure to store is told truthfully: whatever was not stored makes some call fail, at the
// latest close(), and what was there before stays.

namespace
{

namespace fs = std::filesystem;

constexpr unsigned overwriting = Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite;
constexpr const char* no_space = ", errno=28: No space left on device";

URI uri_of(const std::string& path)
{
    URI uri;
    uri.scheme("file");
    uri.path(path, false);
    return uri;
}

/// A target with a file "full" to which nothing can be written.
class Full_Device : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(::symlink("/dev/full", (directory_ / "full").c_str()), 0);
        ASSERT_TRUE(io_.connect(uri_of(directory_.str()), Client_IO_Base::Options{}));
        ASSERT_TRUE(facade_.connect(uri_of(directory_.str()), Client_IO_Base::Options{}));
    }

    Temp_Directory directory_;
    File_IO io_;
    Client_IO facade_;
};

TEST_F(Full_Device, CloseFailsWhenTheLastBytesCannotBeWritten)
{
    for (const unsigned mode : {overwriting, unsigned{Client_IO_Base::mode_append},
                                unsigned{Client_IO_Base::mode_random_write}})
    {
        ASSERT_TRUE(io_.open("full", mode, 0, 0)) << io_.error();
        EXPECT_TRUE(io_.write("data", 4));
        EXPECT_FALSE(io_.close()) << mode;
        EXPECT_EQ(io_.error(), "Failed to write " + (directory_ / "full") + no_space);
        EXPECT_EQ(io_.errnum(), ENOSPC);
        EXPECT_FALSE(io_.is_open());
    }
}

TEST_F(Full_Device, CloseWithoutAWriteSucceeds)
{
    ASSERT_TRUE(io_.open("full", overwriting, 0, 0)) << io_.error();
    EXPECT_TRUE(io_.close()) << io_.error();
}

TEST_F(Full_Device, AWriteThatCannotBeBufferedFailsAndSoDoesTheClose)
{
    const std::string data = sample_bytes(1 << 20);
    ASSERT_TRUE(io_.open("full", overwriting, 0, 0));
    EXPECT_FALSE(io_.write(data.data(), data.size()));
    EXPECT_EQ(io_.error(), "Failed to write " + (directory_ / "full") + no_space);
    EXPECT_FALSE(io_.close());
    EXPECT_EQ(io_.errnum(), ENOSPC);
}

TEST_F(Full_Device, ManySmallWritesAreNotAllAccepted)
{
    const std::string data = sample_bytes(1000);
    ASSERT_TRUE(io_.open("full", overwriting, 0, 0));
    int accepted = 0;
    while (accepted < 200 && io_.write(data.data(), data.size()))
        ++accepted;
    EXPECT_LT(accepted, 200);
    EXPECT_FALSE(io_.close());
}

TEST_F(Full_Device, OpeningTheNextFileFailsWithTheReasonOfTheLast)
{
    ASSERT_TRUE(facade_.open("full", overwriting, 0, 0));
    ASSERT_TRUE(facade_.write("data", 4));
    EXPECT_FALSE(facade_.open("next", Client_IO_Base::mode_write, 0, 0));
    EXPECT_EQ(facade_.error(),
              "Failed to close previous file: Failed to write " + (directory_ / "full") + no_space);
    EXPECT_FALSE(fs::exists(directory_ / "next"));
}

TEST_F(Full_Device, EveryWayOfUploadingFails)
{
    for (const std::size_t size : {std::size_t{1}, std::size_t{65536}, std::size_t{1} << 20U}) {
        const std::string data = sample_bytes(size);
        const std::string text = "Failed to write " + (directory_ / "full") + no_space;
        EXPECT_FALSE(facade_.put_contents("full", data, true)) << size;
        EXPECT_EQ(facade_.error(), text) << size;
        EXPECT_FALSE(facade_.put_contents("full", data.data(), data.size(), true)) << size;
        EXPECT_EQ(facade_.error(), text) << size;
        write_local(directory_ / "local", data);
        EXPECT_FALSE(facade_.put_file("full", (directory_ / "local").c_str(), true, 0, 0, {}));
        EXPECT_EQ(facade_.error(), text) << size;
        std::istringstream stream(data);
        EXPECT_FALSE(facade_.put_stream(stream, "full", true)) << size;
        EXPECT_EQ(facade_.error(), text) << size;
        EXPECT_FALSE(facade_.is_open());
    }
}

TEST_F(Full_Device, GetFileOntoItFailsAndKeepsTheLocalFailuresText)
{
    for (const std::size_t size : {std::size_t{1}, std::size_t{65536}, std::size_t{1} << 20U}) {
        write_local(directory_ / "remote", sample_bytes(size));
        EXPECT_FALSE(facade_.get_file("remote", "/dev/full", O_WRONLY, 0, {})) << size;
        EXPECT_EQ(facade_.error(), "Failed to flush local file /dev/full: No space left on device")
            << size;
        EXPECT_FALSE(facade_.is_open());
    }
}

/// A target on a file system of a megabyte.
class Full_Disk : public testing::Test
{
protected:
    void SetUp() override
    {
        disk_ = Small_Disk::mount(1 << 20);
        if (disk_ == nullptr && !HasFailure())
            GTEST_SKIP() << "left out: there is no right to mount a file system";
        ASSERT_NE(disk_, nullptr);
        ASSERT_TRUE(io_.connect(uri_of(disk_->path()), Client_IO_Base::Options{})) << io_.error();
        ASSERT_TRUE(facade_.connect(uri_of(disk_->path()), Client_IO_Base::Options{}));
    }

    /// Leaves no room for another byte in any new or grown file.
    void fill() { fill(64 << 20); }
    void fill(std::size_t size)
    {
        File_IO filler;
        ASSERT_TRUE(filler.connect(uri_of(disk_->path()), Client_IO_Base::Options{}));
        ASSERT_TRUE(filler.open("filler", overwriting, 0, 0));
        const std::string block(65536, 'f');
        std::size_t written = 0;
        while (written < size && filler.write(block.data(), block.size()))
            written += block.size();
        filler.close();
    }

    std::unique_ptr<Small_Disk> disk_;
    File_IO io_;
    Client_IO facade_;
};

TEST_F(Full_Disk, CloseFailsWithFailedToWriteWhenTheFinalWriteFindsNoRoom)
{
    fill();
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_write, 0, 0)) << io_.error();
    EXPECT_TRUE(io_.write("data", 4));
    EXPECT_FALSE(io_.close());
    EXPECT_EQ(io_.error(), "Failed to write " + (*disk_ / "a") + no_space);
    EXPECT_EQ(io_.errnum(), ENOSPC);
    EXPECT_FALSE(io_.is_open());
}

TEST_F(Full_Disk, ASmallFileDoesNotPassAsStored)
{
    fill();
    EXPECT_FALSE(facade_.put_contents("a", "data", false));
    EXPECT_EQ(facade_.error(), "Failed to write " + (*disk_ / "a") + no_space);
}

TEST_F(Full_Disk, AFileThatGrowsBeyondTheDiskFailsAndRoomHelps)
{
    const std::string data = sample_bytes(2 << 20);
    EXPECT_FALSE(facade_.put_contents("a", data, false));
    EXPECT_EQ(facade_.errnum(), ENOSPC);
    EXPECT_TRUE(facade_.remove("a")) << facade_.error();
    EXPECT_TRUE(facade_.put_contents("a", data.substr(0, 500000), false)) << facade_.error();
    EXPECT_TRUE(read_local(*disk_ / "a") == data.substr(0, 500000));
}

TEST_F(Full_Disk, AFailedCopyWithOverwriteKeepsTheOldDestinationAndLeavesNothingBehind)
{
    write_local(*disk_ / "source", std::string(400000, 's'));
    write_local(*disk_ / "destination", "the only copy");
    fill(400000);
    EXPECT_FALSE(io_.copy("source", "destination", true));
    EXPECT_EQ(io_.error(), "Failed to copy " + (*disk_ / "source") + " to " +
                               (*disk_ / "destination") + ": No space left on device");
    EXPECT_EQ(io_.errnum(), ENOSPC);
    EXPECT_EQ(read_local(*disk_ / "destination"), "the only copy");
    EXPECT_EQ(std::distance(fs::directory_iterator(disk_->path()), fs::directory_iterator()), 3);
}

TEST_F(Full_Disk, GetFileOntoItFailsAndKeepsTheText)
{
    const Temp_Directory remote;
    write_local(remote / "a", sample_bytes(2 << 20));
    Client_IO facade;
    ASSERT_TRUE(facade.connect(uri_of(remote.str()), Client_IO_Base::Options{}));
    const std::string local = *disk_ / "a";
    EXPECT_FALSE(facade.get_file("a", local.c_str(), O_CREAT, 0, {}));
    EXPECT_EQ(facade.error(), "Failed to flush local file " + local + ": No space left on device");
}

TEST_F(Full_Disk, AReadOnlyTargetRefusesEveryChangeWithItsNumberAndStaysReadable)
{
    write_local(*disk_ / "a", "kept");
    fs::create_directory(*disk_ / "d");
    ASSERT_TRUE(disk_->make_read_only());
    const auto expect_refused = [&](bool result, const std::string& start) {
        EXPECT_FALSE(result) << start;
        EXPECT_TRUE(io_.error().starts_with(start)) << io_.error();
        EXPECT_TRUE(io_.error().ends_with("Read-only file system")) << io_.error();
        EXPECT_EQ(io_.errnum(), EROFS) << start;
    };
    expect_refused(io_.open("new", Client_IO_Base::mode_write, 0, 0), "Fail to open file ");
    expect_refused(io_.open("a", overwriting, 0, 0), "Fail to open file ");
    expect_refused(io_.open("a", Client_IO_Base::mode_append, 0, 0), "Fail to open file ");
    expect_refused(io_.open("a", Client_IO_Base::mode_random_write, 0, 0), "Fail to open file ");
    expect_refused(io_.make_dir("new", 0750), "Failed to create directory ");
    expect_refused(io_.truncate("a", 0), "Fail to truncate file ");
    expect_refused(io_.remove("a"), "Failed to remove ");
    expect_refused(io_.copy("a", "b", false), "Failed to copy ");
    expect_refused(io_.copy("a", "a2", true), "Failed to copy ");
    expect_refused(io_.rename("a", "b", false), "Failed to rename ");
    EXPECT_FALSE(io_.remove("d"));

    std::string contents;
    EXPECT_TRUE(facade_.get_contents("a", contents)) << facade_.error();
    EXPECT_EQ(contents, "kept");
    EXPECT_EQ(io_.size("d"), Client_IO_Base::size_of_directory);
}

TEST_F(Full_Disk, ConnectingToAMissingDirectoryOfAReadOnlyDiskFails)
{
    ASSERT_TRUE(disk_->make_read_only());
    File_IO io;
    EXPECT_FALSE(io.connect(uri_of(*disk_ / "missing"), Client_IO_Base::Options{}));
    EXPECT_EQ(io.error(), "Failed to create directory " + (*disk_ / "missing") +
                              ", errno=30: Read-only file system");
    EXPECT_FALSE(io.is_connected());
    EXPECT_TRUE(io.connect(uri_of(disk_->path()), Client_IO_Base::Options{})) << io.error();
}

TEST_F(Full_Disk, ADiskThatIsTakenAwayMakesTheNextOpenFail)
{
    write_local(*disk_ / "a", "data");
    ASSERT_TRUE(disk_->detach());
    EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_EQ(io_.errnum(), ENOENT);
}

} // namespace
