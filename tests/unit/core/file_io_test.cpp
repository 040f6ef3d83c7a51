#include "client_io/file_io.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"
#include "tests/support/temp_directory.h"
#include "tests/support/this_system.h"

#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>

namespace
{

namespace fs = std::filesystem;

constexpr unsigned overwriting = Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite;

URI uri_of(const std::string& path)
{
    URI uri;
    uri.scheme("file");
    uri.path(path, false);
    return uri;
}

class File_IO_Backend : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(io_.connect(uri_of(directory_.str()), Client_IO_Base::Options{}))
            << io_.error();
    }

    /// The error form: words, full path, number, its text.
    void expect_error(const std::string& words, const std::string& name, int number)
    {
        EXPECT_EQ(io_.error(), words + ' ' + (directory_ / name) + ", errno=" +
                                   std::to_string(number) + ": " + POSIX_Error(number, 1).str());
        EXPECT_EQ(io_.errnum(), number);
        EXPECT_FALSE(io_.retriable());
    }

    bool write(const char* name, unsigned mode, std::uint64_t offset, const std::string& data)
    {
        return io_.open(name, mode, offset, 0) && io_.write(data.data(), data.size()) &&
               io_.close();
    }

    Temp_Directory directory_;
    File_IO io_;
    char buffer_[64] = {};
};

TEST(File_IO_Connect, WithAnEmptyPathFailsAndStaysUnconnected)
{
    File_IO io;
    EXPECT_FALSE(io.connect(uri_of(""), Client_IO_Base::Options{}));
    EXPECT_EQ(io.error(), "Directory is not set");
    EXPECT_FALSE(io.is_connected());
    EXPECT_FALSE(io.reconnect());
    EXPECT_EQ(io.error(), "URI is not set");
}

TEST(File_IO_Connect, CreatesAMissingBaseDirectoryWithItsParents)
{
    const Temp_Directory directory;
    File_IO io;
    EXPECT_TRUE(io.connect(uri_of(directory.str() + "/a/b/c"), Client_IO_Base::Options{}))
        << io.error();
    EXPECT_TRUE(fs::is_directory(directory.path() / "a" / "b" / "c"));
    EXPECT_TRUE(io.is_connected());
    EXPECT_TRUE(io.reconnect());
}

TEST(File_IO_Connect, ToAnExistingDirectoryKeepsItsContents)
{
    const Temp_Directory directory;
    write_local(directory / "a", "kept");
    File_IO io;
    EXPECT_TRUE(io.connect(uri_of(directory.str() + "/"), Client_IO_Base::Options{}));
    EXPECT_EQ(io.size("a"), 4U);
    EXPECT_EQ(read_local(directory / "a"), "kept");
}

TEST(File_IO_Connect, ToAFileFailsAndStaysUnconnected)
{
    const Temp_Directory directory;
    write_local(directory / "file", "kept");
    File_IO io;
    EXPECT_FALSE(io.connect(uri_of(directory / "file"), Client_IO_Base::Options{}));
    EXPECT_TRUE(io.error().starts_with("Failed to create directory " + (directory / "file")))
        << io.error();
    EXPECT_FALSE(io.is_connected());
    EXPECT_FALSE(io.connect(uri_of(directory / "file/below"), Client_IO_Base::Options{}));
    EXPECT_EQ(io.errnum(), this_system::errors.make_below_a_file);
    EXPECT_EQ(read_local(directory / "file"), "kept");
}

TEST(File_IO_Connect, WithoutAConnectionNoPathReachesTheFileSystem)
{
    const Temp_Directory outside;
    write_local(outside / "kept", "data");
    File_IO io;
    EXPECT_EQ(io.size((outside / "kept").c_str()), Client_IO_Base::size_unknown);
    EXPECT_FALSE(io.truncate((outside / "kept").c_str(), 0));
    EXPECT_FALSE(io.open((outside / "kept").c_str(), 0x102, 0, 0));
    static_cast<void>(io.remove((outside / "kept").c_str()));
    EXPECT_EQ(read_local(outside / "kept"), "data");
}

TEST(File_IO_Connect, AgainUsesTheNewDirectoryAndItsOptions)
{
    const Temp_Directory first;
    const Temp_Directory second;
    write_local(second / "a", "old");
    File_IO io;
    Client_IO_Base::Options options;
    ASSERT_TRUE(io.connect(uri_of(first.str()), options));
    options.overwrite = true;
    ASSERT_TRUE(io.connect(uri_of(second.str()), options));
    EXPECT_TRUE(io.open("a", Client_IO_Base::mode_write, 0, 0)) << io.error();
    EXPECT_TRUE(io.close());
    EXPECT_EQ(read_local(second / "a"), "");
    EXPECT_TRUE(fs::is_empty(first.path()));
}

TEST_F(File_IO_Backend, APathWithSlashesUsesTheSystemsSeparatorEverywhere)
{
    ASSERT_TRUE(write("a/b/file", Client_IO_Base::mode_write, 0, "x"));
    EXPECT_EQ(read_local((directory_.path() / "a" / "b" / "file").string()), "x");
    EXPECT_FALSE(io_.open("a/b/missing", Client_IO_Base::mode_read, 0, 0));
    const std::string separator(1, static_cast<char>(fs::path::preferred_separator));
    expect_error("Fail to open file", "a" + separator + "b" + separator + "missing",
                 os_error::no_such_file);
}

TEST_F(File_IO_Backend, WriteModeOnAnExistingFileWithoutOverwriteFails)
{
    write_local(directory_ / "a", "kept");
    EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_write, 0, 0));
    EXPECT_TRUE(io_.error().starts_with("File already exists " + (directory_ / "a") + ", errno="))
        << io_.error();
    EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_write, 2, 0));
    EXPECT_TRUE(io_.error().starts_with("File already exists ")) << io_.error();
    EXPECT_EQ(read_local(directory_ / "a"), "kept");
    EXPECT_FALSE(io_.is_open());
}

TEST_F(File_IO_Backend, WriteModeWithTheOverwriteBitTruncatesAtOffset0Only)
{
    write_local(directory_ / "a", "0123456789");
    ASSERT_TRUE(write("a", overwriting, 4, "xy"));
    EXPECT_EQ(read_local(directory_ / "a"), "0123xy6789");
    ASSERT_TRUE(write("a", overwriting, 0, "z"));
    EXPECT_EQ(read_local(directory_ / "a"), "z");
}

TEST_F(File_IO_Backend, WriteModeWithTheOverwriteOptionTruncatesAtOffset0Only)
{
    Client_IO_Base::Options options;
    options.overwrite = true;
    ASSERT_TRUE(io_.connect(uri_of(directory_.str()), options));
    write_local(directory_ / "a", "0123456789");
    ASSERT_TRUE(write("a", Client_IO_Base::mode_write, 4, "xy")) << io_.error();
    EXPECT_EQ(read_local(directory_ / "a"), "0123xy6789");
    ASSERT_TRUE(write("a", Client_IO_Base::mode_write, 0, "z")) << io_.error();
    EXPECT_EQ(read_local(directory_ / "a"), "z");
}

TEST_F(File_IO_Backend, RandomWriteModeNeverTruncates)
{
    write_local(directory_ / "a", "0123456789");
    for (const unsigned mode : {4U, 0x104U}) {
        ASSERT_TRUE(io_.open("a", mode, 0, 0));
        ASSERT_TRUE(io_.close());
        EXPECT_EQ(read_local(directory_ / "a"), "0123456789");
    }
}

TEST_F(File_IO_Backend, AppendModeWithAnOffsetFailsAndCreatesNothing)
{
    EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_append, 1, 0));
    EXPECT_EQ(io_.error(), "Invalid offset: not supported");
    EXPECT_EQ(io_.errnum(), 0);
    EXPECT_FALSE(io_.is_open());
    EXPECT_FALSE(fs::exists(directory_ / "a"));
}

TEST_F(File_IO_Backend, AppendModeStartsItsSizeAt0)
{
    write_local(directory_ / "a", "12345");
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_append, 0, 0));
    EXPECT_EQ(io_.size(), 0U);
    ASSERT_TRUE(io_.write("678", 3));
    EXPECT_EQ(io_.size(), 3U);
    ASSERT_TRUE(io_.close());
    EXPECT_EQ(read_local(directory_ / "a"), "12345678");
}

TEST_F(File_IO_Backend, Modes0And5FailWithInvalidOpenMode)
{
    for (const unsigned mode : {0U, 5U, 0x100U, 0x105U}) {
        EXPECT_FALSE(io_.open("a", mode, 0, 0)) << mode;
        EXPECT_EQ(io_.error(), "Invalid open mode");
        EXPECT_EQ(io_.errnum(), 0);
    }
    EXPECT_FALSE(fs::exists(directory_ / "a"));
}

TEST_F(File_IO_Backend, OnlyTheLowByteIsTheMode)
{
    write_local(directory_ / "a", "data");
    EXPECT_TRUE(io_.open("a", 0xF001, 0, 0)) << io_.error();
    EXPECT_EQ(io_.read(buffer_, 64), 4);
}

TEST_F(File_IO_Backend, AFailedOpenClosesTheEarlierFileAndLeavesNoneOpen)
{
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_write, 0, 0));
    ASSERT_TRUE(io_.write("first", 5));
    EXPECT_FALSE(io_.open("b", 9, 0, 0));
    EXPECT_FALSE(io_.is_open());
    EXPECT_EQ(read_local(directory_ / "a"), "first");
    EXPECT_FALSE(io_.write("x", 1));
    EXPECT_EQ(io_.error(), "Operation not permitted");
}

TEST_F(File_IO_Backend, ReadingFromOffsetOWithSizeSYieldsExactlySBytesThenNothing)
{
    write_local(directory_ / "a", "0123456789");
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 3, 4));
    EXPECT_EQ(io_.read(buffer_, 3), 3);
    EXPECT_EQ(io_.read(buffer_ + 3, 64 - 3), 1);
    EXPECT_EQ(std::string(buffer_, 4), "3456");
    EXPECT_EQ(io_.read(buffer_, 64), 0);
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 3, 0));
    EXPECT_EQ(io_.read(buffer_, 64), 7);
}

TEST_F(File_IO_Backend, ReadIsRefusedOnAFileOpenForWritingAndTheOtherWayRound)
{
    const void* data = nullptr;
    std::uint64_t size = 7;
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_write, 0, 0));
    EXPECT_EQ(io_.read(buffer_, 1), -1);
    EXPECT_EQ(io_.error(), "Operation not permitted");
    EXPECT_FALSE(io_.read(data, size));
    EXPECT_EQ(io_.error(), "Operation not permitted");
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_FALSE(io_.write("x", 1));
    EXPECT_EQ(io_.error(), "Operation not permitted");
    EXPECT_EQ(io_.errnum(), 0);
}

TEST_F(File_IO_Backend, SizeOfADirectoryIsMinus21AndOfAMissingPathMinus1)
{
    ASSERT_TRUE(io_.make_dir("d", 0750));
    EXPECT_EQ(io_.size("d"), static_cast<std::uint64_t>(-21));
    EXPECT_EQ(io_.size("missing"), static_cast<std::uint64_t>(-1));
    EXPECT_EQ(io_.size(""), static_cast<std::uint64_t>(-21));
}

TEST_F(File_IO_Backend, RemovingAMissingPathSucceedsAndAnEmptyDirectoryGoesByRmdir)
{
    EXPECT_TRUE(io_.remove("missing"));
    ASSERT_TRUE(io_.make_dir("d", 0750));
    EXPECT_TRUE(io_.remove("d")) << io_.error();
    EXPECT_FALSE(fs::exists(directory_ / "d"));
}

TEST_F(File_IO_Backend, RemovingANonEmptyDirectoryFailsAndLosesNothing)
{
    write_local(directory_ / "file", "x");
    ASSERT_TRUE(write("d/file", Client_IO_Base::mode_write, 0, "kept"));
    EXPECT_FALSE(io_.remove("d"));
    expect_error("Failed to remove", "d", this_system::errors.directory_not_empty);
    EXPECT_EQ(read_local(directory_ / "d/file"), "kept");
}

TEST_F(File_IO_Backend, CopyAndRenameOntoAnExistingFileFailWithNumber17AndTheirTexts)
{
    write_local(directory_ / "a", "new");
    write_local(directory_ / "b", "old");
    const std::string paths = (directory_ / "a") + " to " + (directory_ / "b");
    EXPECT_FALSE(io_.copy("a", "b", false));
    EXPECT_EQ(io_.errnum(), 17);
    EXPECT_EQ(io_.error(), "Failed to copy " + paths + ": File exists");
    EXPECT_FALSE(io_.rename("a", "b", false));
    EXPECT_EQ(io_.errnum(), 17);
    EXPECT_EQ(io_.error(), "Failed to rename " + paths + ": File exists");
    EXPECT_EQ(read_local(directory_ / "b"), "old");
}

TEST_F(File_IO_Backend, CopyAndRenameOfAMissingFileHaveTheSystemsReason)
{
    const std::string paths = (directory_ / "a") + " to " + (directory_ / "b");
    const std::string reason = POSIX_Error(os_error::no_such_file, 1).str();
    for (const bool overwrite : {false, true}) {
        EXPECT_FALSE(io_.copy("a", "b", overwrite));
        EXPECT_EQ(io_.errnum(), os_error::no_such_file);
        EXPECT_EQ(io_.error(), "Failed to copy " + paths + ": " + reason);
        EXPECT_FALSE(io_.rename("a", "b", overwrite));
        EXPECT_EQ(io_.errnum(), os_error::no_such_file);
        EXPECT_EQ(io_.error(), "Failed to rename " + paths + ": " + reason);
    }
    EXPECT_TRUE(fs::is_empty(directory_.path()));
}

TEST_F(File_IO_Backend, CopyOntoItselfKeepsTheContents)
{
    const std::string data = sample_bytes(200000);
    write_local(directory_ / "a", data);
    io_.copy("a", "a", true);
    EXPECT_TRUE(read_local(directory_ / "a") == data);
    io_.rename("a", "a", true);
    EXPECT_TRUE(read_local(directory_ / "a") == data);
    EXPECT_FALSE(io_.copy("a", "a", false));
    EXPECT_EQ(io_.errnum(), 17);
}

TEST_F(File_IO_Backend, CopyOfADirectoryFailsAndLeavesNothingBehind)
{
    ASSERT_TRUE(write("d/file", Client_IO_Base::mode_write, 0, "kept"));
    EXPECT_FALSE(io_.copy("d", "e", false));
    EXPECT_TRUE(io_.error().starts_with("Failed to copy ")) << io_.error();
    EXPECT_FALSE(fs::exists(directory_ / "e"));
    EXPECT_EQ(read_local(directory_ / "d/file"), "kept");
}

TEST_F(File_IO_Backend, CopyOntoADirectoryWithOverwriteFailsAndKeepsIt)
{
    write_local(directory_ / "a", "file");
    ASSERT_TRUE(write("d/file", Client_IO_Base::mode_write, 0, "kept"));
    EXPECT_FALSE(io_.copy("a", "d", true));
    EXPECT_FALSE(io_.rename("a", "d", true));
    EXPECT_EQ(read_local(directory_ / "d/file"), "kept");
    EXPECT_EQ(read_local(directory_ / "a"), "file");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory_.path()), fs::directory_iterator()),
              2);
}

TEST_F(File_IO_Backend, TruncateOfAMissingFileHasItsText)
{
    EXPECT_FALSE(io_.truncate("missing", 0));
    expect_error("Fail to truncate file", "missing", os_error::no_such_file);
}

TEST_F(File_IO_Backend, ListingAMissingDirectoryHasItsText)
{
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_FALSE(io_.get_dir("missing", entries));
    expect_error("Failed to open directory", "missing", os_error::no_such_directory);
}

TEST_F(File_IO_Backend, MakingADirectoryBelowAFileHasItsText)
{
    write_local(directory_ / "file", "kept");
    EXPECT_FALSE(io_.make_dir("file/below", 0750));
    expect_error("Failed to create directory", "file/below", this_system::errors.make_below_a_file);
}

TEST_F(File_IO_Backend, SeekingToAnImpossibleOffsetHasItsTextAndTheFileStaysUsable)
{
    write_local(directory_ / "a", "data");
    const std::uint64_t impossible = 1ULL << 63U;
    EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_read, impossible, 0));
    expect_error("Failed to seek", "a", os_error::invalid_argument);
    EXPECT_FALSE(io_.is_open());
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_FALSE(io_.seek(impossible, 0));
    EXPECT_TRUE(io_.seek(1, 0));
    EXPECT_EQ(io_.read(buffer_, 64), 3);
}

TEST_F(File_IO_Backend, FlushSucceedsAndWritesNothingToTheDisk)
{
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_write, 0, 0));
    ASSERT_TRUE(io_.write("data", 4));
    EXPECT_TRUE(io_.flush());
    EXPECT_EQ(fs::file_size(directory_ / "a"), 0U);
    EXPECT_TRUE(io_.close());
    EXPECT_EQ(fs::file_size(directory_ / "a"), 4U);
    EXPECT_TRUE(io_.flush());
}

TEST_F(File_IO_Backend, ReadsAreServedFromTheBlockBuffer)
{
    const std::string data = sample_bytes(65536 + 100);
    write_local(directory_ / "a", data);
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_EQ(io_.read(buffer_, 10), 10);
    // The rest of the first block is in memory already; what follows is the file's new contents.
    write_local(directory_ / "a", std::string(65536 + 100, 'n'));
    std::string rest(65536 + 90, '\0');
    EXPECT_EQ(io_.read(rest.data(), rest.size()), static_cast<std::int64_t>(rest.size()));
    EXPECT_TRUE(rest == data.substr(10, 65526) + std::string(100, 'n'));
}

TEST_F(File_IO_Backend, AFileThatShrinksWhileItIsReadEndsEarlyWithoutAnError)
{
    write_local(directory_ / "a", sample_bytes(500000));
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    std::string block(65536, '\0');
    ASSERT_EQ(io_.read(block.data(), block.size()), 65536);
    fs::resize_file(directory_ / "a", 70000);
    EXPECT_EQ(io_.read(block.data(), block.size()), 70000 - 65536);
    EXPECT_EQ(io_.read(block.data(), block.size()), 0);
    EXPECT_TRUE(io_.close());
}

TEST_F(File_IO_Backend, AFileThatGrowsWhileItIsReadIsReadToItsNewEnd)
{
    const std::string data = sample_bytes(200000);
    write_local(directory_ / "a", data.substr(0, 65536));
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    std::string block(65536, '\0');
    ASSERT_EQ(io_.read(block.data(), block.size()), 65536);
    write_local(directory_ / "a", data);
    std::string rest(200000 - 65536, '\0');
    EXPECT_EQ(io_.read(rest.data(), rest.size()), static_cast<std::int64_t>(rest.size()));
    EXPECT_TRUE(rest == data.substr(65536));
}

TEST_F(File_IO_Backend, ListingGivesModificationTimesInSeconds)
{
    write_local(directory_ / "a", "x");
    const auto when = fs::last_write_time(directory_ / "a");
    fs::last_write_time(directory_ / "a", when - std::chrono::hours(24 * 365));
    write_local(directory_ / "b", "x");
    std::vector<Client_IO_Base::Directory_Entry> entries;
    ASSERT_TRUE(io_.get_dir("", entries));
    ASSERT_EQ(entries.size(), 2U);
    if (entries[0].name == "b")
        std::swap(entries[0], entries[1]);
    const std::int64_t now = std::time(nullptr);
    EXPECT_NEAR(static_cast<double>(entries[1].mtime), static_cast<double>(now), 60);
    EXPECT_NEAR(static_cast<double>(entries[0].mtime), static_cast<double>(now - 24 * 365 * 3600),
                60);
}

TEST_F(File_IO_Backend, DisconnectOnlyForgetsTheDirectory)
{
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_write, 0, 0));
    io_.disconnect();
    EXPECT_FALSE(io_.is_connected());
    EXPECT_TRUE(io_.is_open());
    EXPECT_TRUE(io_.write("data", 4));
    EXPECT_TRUE(io_.close());
    EXPECT_EQ(read_local(directory_ / "a"), "data");
    EXPECT_FALSE(io_.reconnect());
}

TEST_F(File_IO_Backend, DestroyingItDoesNotPublishUnstoredData)
{
    {
        File_IO other;
        ASSERT_TRUE(other.connect(uri_of(directory_.str()), Client_IO_Base::Options{}));
        ASSERT_TRUE(other.open("a", Client_IO_Base::mode_write, 0, 0));
        ASSERT_TRUE(other.write("data", 4));
    }
    EXPECT_EQ(read_local(directory_ / "a"), "");
}

TEST_F(File_IO_Backend, TheBaseDirectoryIsNotRemovedThroughItsOwnConnection)
{
    ASSERT_TRUE(io_.make_dir("a", 0750));
    for (const char* path : {"", "/", "//", ".", "./", "a/.."}) {
        EXPECT_FALSE(io_.remove(path)) << path;
        EXPECT_EQ(io_.errnum(), os_error::busy) << path;
    }
    ASSERT_TRUE(io_.remove("a"));
    EXPECT_TRUE(std::filesystem::exists(directory_.path()));
}

TEST_F(File_IO_Backend, ADirectoryDoesNotTakeThePlaceOfAFile)
{
    ASSERT_TRUE(io_.make_dir("directory", 0750));
    ASSERT_TRUE(write("file", 2, 0, "kept"));
    EXPECT_FALSE(io_.rename("directory", "file", true));
    EXPECT_EQ(read_local(directory_ / "file"), "kept");
    EXPECT_TRUE(std::filesystem::is_directory(directory_ / "directory"));
}

TEST_F(File_IO_Backend, AnOffsetBeyondAnyFileFailsAndLeavesNoFileInTheWay)
{
    EXPECT_FALSE(io_.open("new", 2, ~std::uint64_t{0}, 0));
    expect_error("Failed to seek", "new", os_error::invalid_argument);
    EXPECT_FALSE(std::filesystem::exists(directory_ / "new"));
    EXPECT_TRUE(write("new", 2, 0, "data")) << io_.error();
}

TEST_F(File_IO_Backend, ATargetThatVanishesMakesOperationsFailWithoutComingBack)
{
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_write, 0, 0));
    ASSERT_TRUE(io_.close());
    fs::remove_all(directory_.path());
    EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_EQ(io_.errnum(), os_error::no_such_directory);
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_FALSE(io_.get_dir("", entries));
    EXPECT_EQ(io_.errnum(), os_error::no_such_directory);
    EXPECT_FALSE(io_.truncate("a", 0));
    EXPECT_FALSE(io_.copy("a", "b", true));
    EXPECT_EQ(io_.size("a"), Client_IO_Base::size_unknown);
    EXPECT_FALSE(fs::exists(directory_.path()));
}

TEST_F(File_IO_Backend, AFileRemovedWhileItIsReadIsReadToItsEnd)
{
    const std::string data = sample_bytes(200000);
    write_local(directory_ / "a", data);
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    ASSERT_TRUE(fs::remove(directory_ / "a"));
    std::string read(200000, '\0');
    EXPECT_EQ(io_.read(read.data(), read.size()), 200000);
    EXPECT_TRUE(read == data);
}

TEST_F(File_IO_Backend, FailedAndSuccessfulOperationsLeaveNoHandleOpen)
{
    const std::size_t before = this_system::open_handles();
    std::vector<Client_IO_Base::Directory_Entry> entries;
    write_local(directory_ / "a", "data");
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
        EXPECT_TRUE(io_.open("b", Client_IO_Base::mode_append, 0, 0));
        EXPECT_TRUE(io_.close());
        EXPECT_FALSE(io_.open("missing", Client_IO_Base::mode_read, 0, 0));
        EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_read, 1ULL << 63U, 0));
        EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_random_write, 1ULL << 63U, 0));
        EXPECT_FALSE(io_.open("a/b", Client_IO_Base::mode_write, 0, 0));
        EXPECT_TRUE(io_.get_dir("", entries));
        EXPECT_FALSE(io_.get_dir("a", entries));
        EXPECT_TRUE(io_.copy("a", "c", true));
        EXPECT_FALSE(io_.copy("missing", "c", true));
    }
    EXPECT_EQ(this_system::open_handles(), before);
}

TEST_F(File_IO_Backend, OfTwoCopiesOrRenamesToOneNameOneFails)
{
    for (const bool renaming : {false, true}) {
        for (int round = 0; round < 200; ++round) {
            std::atomic<int> won{0};
            std::atomic<int> ready{0};
            fs::remove(directory_ / "dst");
            const auto move = [&](const std::string& src) {
                File_IO io;
                ASSERT_TRUE(io.connect(uri_of(directory_.str()), Client_IO_Base::Options{}));
                write_local(directory_ / src, src);
                ++ready;
                while (ready < 2)
                    std::this_thread::yield();
                won += renaming ? io.rename(src.c_str(), "dst", false)
                                : io.copy(src.c_str(), "dst", false);
            };
            std::thread other(move, "one");
            move("two");
            other.join();
            ASSERT_EQ(won, 1) << (renaming ? "rename" : "copy") << " in round " << round;
        }
    }
}

TEST_F(File_IO_Backend, OpeningOrReadingADirectoryFailsWithItsNumber)
{
    ASSERT_TRUE(io_.make_dir("d", 0750));
    char byte = 0;
    const bool opened = io_.open("d", Client_IO_Base::mode_read, 0, 0);
    if (opened) {
        EXPECT_EQ(io_.read(&byte, 1), -1);
    }
    const int number = this_system::errors.open_directory;
    EXPECT_EQ(io_.errnum(), number);
    EXPECT_TRUE(io_.error().ends_with(", errno=" + std::to_string(number) + ": " +
                                      POSIX_Error(number, 1).str()))
        << io_.error();
    EXPECT_FALSE(io_.open("d", Client_IO_Base::mode_random_write, 0, 0));
    expect_error("Fail to open file", "d", number);
}

} // namespace
