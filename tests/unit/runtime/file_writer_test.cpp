#include "platform/runtime/fixed_block_file.h"
#include "tests/support/small_disk.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/runtime/page_cache_recorder.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

using Hint = Page_Cache_Recorder::Hint;
using Calls = std::vector<Page_Cache_Recorder::Call>;

constexpr std::uint64_t mib = 1U << 20U;
constexpr int fresh = O_CREAT | O_TRUNC;

class File_Writer_Test : public testing::Test
{
protected:
    bool open(int flags = fresh, const File_Options& options = {}, bool buffered = true)
    {
        return writer.open(path.c_str(), flags, buffered, 7, options);
    }

    bool write(const std::string& data, std::uint64_t* accepted = nullptr)
    {
        return writer.write(data.data(), data.size(), accepted);
    }

    std::string stored() const { return read_local(path); }

    Temp_Directory directory;
    std::string path = directory / "file";
    File_Writer writer;
};

TEST_F(File_Writer_Test, SmallWritesWaitInTheBufferUntilItIsFull)
{
    ASSERT_TRUE(open(fresh, {.block_size = 8}));
    EXPECT_EQ(writer.buffer_size(), 8U);
    EXPECT_TRUE(write("abc"));
    EXPECT_TRUE(write("defg"));
    EXPECT_EQ(stored(), "");
    EXPECT_TRUE(write("hi"));
    EXPECT_EQ(stored(), "abcdefgh");
    EXPECT_TRUE(writer.flush());
    EXPECT_EQ(stored(), "abcdefghi");
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "abcdefghi");
}

TEST_F(File_Writer_Test, WholeBlocksAreNotGathered)
{
    ASSERT_TRUE(open(fresh, {.block_size = 8}));
    EXPECT_TRUE(write("0123456789abcdefXY"));
    EXPECT_EQ(stored(), "0123456789abcdef");
    EXPECT_TRUE(write("Z"));
    EXPECT_EQ(stored(), "0123456789abcdef");
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "0123456789abcdefXYZ");
}

TEST_F(File_Writer_Test, UnbufferedWritesReachTheSystemAtOnce)
{
    ASSERT_TRUE(open(fresh, {}, false));
    EXPECT_TRUE(write("a"));
    EXPECT_EQ(stored(), "a");
    EXPECT_TRUE(write("bc"));
    EXPECT_EQ(stored(), "abc");
}

TEST_F(File_Writer_Test, AcceptedCountsWhatWasTaken)
{
    std::uint64_t accepted = 77;
    ASSERT_TRUE(open());
    EXPECT_TRUE(write(sample_bytes(100000), &accepted));
    EXPECT_EQ(accepted, 100000U);
    EXPECT_TRUE(write("", &accepted));
    EXPECT_EQ(accepted, 0U);
    EXPECT_TRUE(writer.write(nullptr, 0, &accepted));
}

TEST_F(File_Writer_Test, NullDataIsRefusedAndHarmless)
{
    ASSERT_TRUE(open());
    std::uint64_t accepted = 77;
    EXPECT_FALSE(writer.write(nullptr, 1, &accepted));
    EXPECT_EQ(accepted, 0U);
    EXPECT_EQ(writer.last_error(), EINVAL);
    EXPECT_TRUE(write("abc"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "abc");
}

TEST_F(File_Writer_Test, DestructionForgetsTheBuffer)
{
    {
        File_Writer other;
        ASSERT_TRUE(other.open(path.c_str(), fresh, true, 7, {.block_size = 8}));
        ASSERT_TRUE(other.write("0123456789", 10, nullptr));
    }
    EXPECT_EQ(stored(), "01234567");
}

TEST_F(File_Writer_Test, AnotherOpenForgetsTheBuffer)
{
    ASSERT_TRUE(open());
    EXPECT_TRUE(write("lost"));
    ASSERT_TRUE(open(0));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "");
}

TEST_F(File_Writer_Test, AppendStartsAtTheEnd)
{
    write_local(path, "old");
    ASSERT_TRUE(open(O_APPEND));
    EXPECT_TRUE(write("new"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "oldnew");
}

TEST_F(File_Writer_Test, FlagsAreThoseOfTheSystem)
{
    EXPECT_FALSE(open(0));
    EXPECT_EQ(writer.last_error(), ENOENT);
    EXPECT_FALSE(fs::exists(path));
    write_local(path, "kept");
    EXPECT_FALSE(open(O_CREAT | O_EXCL));
    EXPECT_EQ(writer.last_error(), EEXIST);
    EXPECT_FALSE(writer);
    EXPECT_EQ(stored(), "kept");
    ASSERT_TRUE(open(O_WRONLY));
    EXPECT_TRUE(write("K"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "Kept");
    ASSERT_TRUE(open(O_RDWR));
    EXPECT_TRUE(writer.close());
}

TEST_F(File_Writer_Test, NewFilesHaveTheUsualModeAndAreNotInherited)
{
    const mode_t old = umask(022);
    ASSERT_TRUE(open());
    umask(old);
    struct stat info;
    ASSERT_EQ(fstat(writer.handle(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0644U);
    EXPECT_EQ(fcntl(writer.handle(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(File_Writer_Test, ADirectoryIsNotOpened)
{
    EXPECT_FALSE(writer.open(directory.str().c_str(), 0, true, 7, {}));
    EXPECT_EQ(writer.last_error(), EISDIR);
    EXPECT_FALSE(writer.open(nullptr, 0, true, 7, {}));
    EXPECT_EQ(writer.last_error(), EINVAL);
}

TEST_F(File_Writer_Test, BlocksThatAreTooLargeAreRefusedBeforeAFileIsMade)
{
    EXPECT_FALSE(open(fresh, {.block_size = File_Buffer_T<char>::max_size + 1}));
    EXPECT_EQ(writer.last_error(), EINVAL);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(File_Writer_Test, SeekCountsWhatIsBuffered)
{
    ASSERT_TRUE(open());
    EXPECT_TRUE(write("abcdef"));
    EXPECT_EQ(writer.seek(0, SEEK_CUR), 6);
    EXPECT_EQ(stored(), "abcdef");
    EXPECT_EQ(writer.seek(-4, SEEK_CUR), 2);
    EXPECT_TRUE(write("XY"));
    EXPECT_EQ(writer.seek(0, SEEK_END), 6);
    EXPECT_TRUE(write("g"));
    EXPECT_EQ(writer.seek(10, SEEK_SET), 10);
    EXPECT_TRUE(write("h"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), std::string("abXYefg\0\0\0h", 11));
}

TEST_F(File_Writer_Test, AFailedSeekLosesNothing)
{
    ASSERT_TRUE(open());
    EXPECT_TRUE(write("abc"));
    EXPECT_EQ(writer.seek(-1, SEEK_SET), -1);
    EXPECT_EQ(writer.last_error(), EINVAL);
    EXPECT_TRUE(write("def"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "abcdef");
}

TEST_F(File_Writer_Test, WithoutAFileEverythingButCloseFails)
{
    std::uint64_t accepted = 77;
    EXPECT_FALSE(writer);
    EXPECT_FALSE(write("a", &accepted));
    EXPECT_EQ(accepted, 0U);
    EXPECT_EQ(writer.last_error(), EBADF);
    EXPECT_FALSE(writer.flush());
    EXPECT_EQ(writer.seek(0, SEEK_SET), -1);
    EXPECT_TRUE(writer.close());
    ASSERT_TRUE(open());
    EXPECT_TRUE(writer.close());
    EXPECT_FALSE(write("a"));
    EXPECT_TRUE(writer.close());
}

TEST_F(File_Writer_Test, AFullDiskIsMetByFlush)
{
    path = "/dev/full";
    ASSERT_TRUE(open(0));
    EXPECT_TRUE(write("abc"));
    EXPECT_FALSE(writer.flush());
    EXPECT_EQ(writer.last_error(), ENOSPC);
}

TEST_F(File_Writer_Test, AFullDiskIsMetByCloseAtTheLatest)
{
    path = "/dev/full";
    ASSERT_TRUE(open(0));
    EXPECT_TRUE(write("abc"));
    EXPECT_FALSE(writer.close());
    EXPECT_EQ(writer.last_error(), ENOSPC);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(writer);
}

TEST_F(File_Writer_Test, AfterAFailureEverythingFailsForTheSameReason)
{
    path = "/dev/full";
    ASSERT_TRUE(open(0, {}, false));
    std::uint64_t accepted = 77;
    EXPECT_FALSE(write("abc", &accepted));
    EXPECT_EQ(accepted, 0U);
    for (int i = 0; i < 2; ++i) {
        errno = 0;
        EXPECT_FALSE(write("abc"));
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_FALSE(writer.flush());
        EXPECT_EQ(writer.seek(0, SEEK_SET), -1);
        EXPECT_EQ(writer.last_error(), ENOSPC);
    }
    const int handle = writer.handle();
    EXPECT_FALSE(writer.close());
    EXPECT_EQ(writer.last_error(), ENOSPC);
    EXPECT_EQ(fcntl(handle, F_GETFD), -1) << "the file is closed all the same";
    EXPECT_FALSE(writer.close());
}

TEST_F(File_Writer_Test, AnotherOpenForgetsTheFailure)
{
    const std::string good = path;
    path = "/dev/full";
    ASSERT_TRUE(open(0, {}, false));
    EXPECT_FALSE(write("abc"));
    path = good;
    ASSERT_TRUE(open());
    EXPECT_EQ(writer.last_error(), 0);
    EXPECT_TRUE(write("abc"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "abc");
}

TEST_F(File_Writer_Test, AFailedCloseOfTheHandleIsAFailure)
{
    ASSERT_TRUE(open());
    EXPECT_TRUE(write("abc"));
    EXPECT_TRUE(writer.flush());
    ::close(writer.handle());
    EXPECT_FALSE(writer.close());
    EXPECT_EQ(writer.last_error(), EBADF);
    EXPECT_FALSE(writer);
}

TEST_F(File_Writer_Test, AcceptedTellsWhereADiskBecameFull)
{
    const auto disk = Small_Disk::mount(4 * mib);
    if (disk == nullptr)
        return;
    path = *disk / "file";
    ASSERT_TRUE(open(fresh, {}, false));
    std::uint64_t accepted = 0;
    EXPECT_FALSE(write(sample_bytes(8 * mib), &accepted));
    EXPECT_EQ(writer.last_error(), ENOSPC);
    EXPECT_GT(accepted, 0U);
    EXPECT_EQ(accepted, fs::file_size(path));
    EXPECT_FALSE(writer.close());
}

TEST_F(File_Writer_Test, APipeIsWritten)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    ASSERT_TRUE(open(O_APPEND, {.drop_behind = true, .write_behind = 1}));
    EXPECT_TRUE(write("abc"));
    EXPECT_TRUE(writer.close());
    char text[8] = "";
    EXPECT_EQ(::read(reader, text, sizeof text), 3);
    EXPECT_STREQ(text, "abc");
    ::close(reader);
}

TEST_F(File_Writer_Test, RandomWritesSeeksAndFlushesMakeTheExpectedFile)
{
    const char* const given = std::getenv("CLIENT_IO_SEED");
    const auto seed = given != nullptr
                          ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10))
                          : std::random_device()();
    std::cout << "CLIENT_IO_SEED=" << seed << '\n';
    std::mt19937 random(seed);
    const auto below = [&](std::size_t bound) { return random() % bound; };
    const std::string data = sample_bytes(5000);
    for (int round = 0; round < 50; ++round) {
        const std::size_t block = 1 + below(600);
        ASSERT_TRUE(
            open(fresh, {.block_size = block, .write_behind = 1 + below(3000)}, below(4) != 0));
        std::string expected;
        std::size_t position = 0;
        for (int step = 0; step < 100; ++step) {
            switch (below(8)) {
            case 0:
                ASSERT_TRUE(writer.flush());
                ASSERT_TRUE(stored() == expected);
                break;
            case 1:
                position = below(expected.size() + 50);
                ASSERT_EQ(writer.seek(static_cast<std::int64_t>(position), SEEK_SET),
                          static_cast<std::int64_t>(position));
                break;
            default:
                const std::size_t size = below(step % 10 == 0 ? 4000 : 300);
                const std::string piece = data.substr(below(1000), size);
                ASSERT_TRUE(write(piece));
                if (piece.empty())
                    break;
                expected.resize(std::max(expected.size(), position + size));
                expected.replace(position, size, piece);
                position += size;
            }
        }
        ASSERT_TRUE(writer.close());
        ASSERT_TRUE(stored() == expected) << "round " << round;
    }
}

TEST_F(File_Writer_Test, WithoutWriteBehindTheSystemIsAskedNothing)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(fresh, {.read_ahead = mib, .drop_behind = true}));
    EXPECT_TRUE(write(sample_bytes(4 * mib)));
    EXPECT_TRUE(writer.close());
    EXPECT_TRUE(recorder.empty());
}

TEST_F(File_Writer_Test, FullWindowsAreStored)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(fresh, {.write_behind = mib}));
    EXPECT_TRUE(write(sample_bytes(mib - 65536)));
    EXPECT_TRUE(recorder.empty());
    EXPECT_TRUE(write(sample_bytes(3 * mib)));
    EXPECT_EQ(recorder.calls(Hint::store),
              (Calls{{Hint::store, 0, mib}, {Hint::store, mib, mib}, {Hint::store, 2 * mib, mib}}));
    EXPECT_TRUE(recorder.calls(Hint::forget).empty());
    EXPECT_TRUE(writer.close());
}

TEST_F(File_Writer_Test, OneWindowIsKeptBehindTheOneBeingFilled)
{
    for (const unsigned kept : {0U, 1U}) {
        Page_Cache_Recorder recorder;
        ASSERT_TRUE(open(fresh, {.drop_behind = true, .windows_kept = kept, .write_behind = mib}));
        EXPECT_TRUE(write(sample_bytes(mib)));
        EXPECT_TRUE(recorder.calls(Hint::forget).empty());
        EXPECT_TRUE(write(sample_bytes(mib)));
        EXPECT_EQ(recorder.calls(Hint::forget), (Calls{{Hint::forget, 0, mib}}));
        EXPECT_TRUE(write(sample_bytes(mib)));
        EXPECT_EQ(recorder.calls(Hint::forget),
                  (Calls{{Hint::forget, 0, mib}, {Hint::forget, mib, mib}}));
        EXPECT_TRUE(writer.close());
    }
}

TEST_F(File_Writer_Test, MoreWindowsAreKeptWhenAsked)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(fresh, {.drop_behind = true, .windows_kept = 3, .write_behind = mib}));
    EXPECT_TRUE(write(sample_bytes(3 * mib)));
    EXPECT_TRUE(recorder.calls(Hint::forget).empty());
    EXPECT_TRUE(write(sample_bytes(2 * mib)));
    EXPECT_EQ(recorder.calls(Hint::forget),
              (Calls{{Hint::forget, 0, mib}, {Hint::forget, mib, mib}}));
    EXPECT_TRUE(writer.close());
}

TEST_F(File_Writer_Test, FilesSmallerThanAWindowAreLeftToTheSystem)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(fresh, {.drop_behind = true, .write_behind = mib}));
    EXPECT_TRUE(write(sample_bytes(mib - 1)));
    EXPECT_TRUE(writer.close());
    EXPECT_TRUE(recorder.empty());
}

TEST_F(File_Writer_Test, WindowsStartWhereWritingStarts)
{
    write_local(path, sample_bytes(100));
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(O_APPEND, {.write_behind = mib}));
    EXPECT_TRUE(write(sample_bytes(mib)));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(recorder.calls(Hint::store), (Calls{{Hint::store, 100, mib}}));
}

TEST_F(File_Writer_Test, SeekingDoesNotMoveWhereAppendedDataGoesNorItsWindows)
{
    write_local(path, sample_bytes(100));
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(O_APPEND, {.write_behind = mib}));
    EXPECT_EQ(writer.seek(0, SEEK_SET), 0);
    const std::string data = sample_bytes(mib);
    EXPECT_TRUE(write(data));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(recorder.calls(Hint::store), (Calls{{Hint::store, 100, mib}}));
    EXPECT_TRUE(stored() == sample_bytes(100) + data);
}

TEST_F(File_Writer_Test, RefusedHintsDoNoHarm)
{
    Page_Cache_Recorder recorder;
    recorder.refuse(ESPIPE);
    const std::string data = sample_bytes(4 * mib);
    ASSERT_TRUE(open(fresh, {.drop_behind = true, .write_behind = mib}));
    errno = 0;
    EXPECT_TRUE(write(data));
    EXPECT_EQ(errno, 0);
    EXPECT_TRUE(writer.close());
    EXPECT_FALSE(recorder.empty());
    EXPECT_TRUE(stored() == data);
}

TEST_F(File_Writer_Test, EnormousWindowsDoNoHarm)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(
        open(fresh, {.drop_behind = true, .windows_kept = ~0U, .write_behind = ~std::uint64_t{0}}));
    EXPECT_TRUE(write(sample_bytes(4 * mib)));
    EXPECT_TRUE(writer.close());
    EXPECT_TRUE(recorder.empty());
}

} // namespace
