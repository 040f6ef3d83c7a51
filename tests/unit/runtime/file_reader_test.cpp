#include "platform/runtime/fixed_block_file.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/runtime/page_cache_recorder.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

using Hint = Page_Cache_Recorder::Hint;
using Calls = std::vector<Page_Cache_Recorder::Call>;

constexpr std::uint64_t mib = 1U << 20U;

class File_Reader_Test : public testing::Test
{
protected:
    std::string file(const std::string& data)
    {
        write_local(directory / "file", data);
        return directory / "file";
    }

    // A file of zeros that takes no space.
    std::string empty_space(std::uint64_t size)
    {
        file("");
        fs::resize_file(directory / "file", size);
        return directory / "file";
    }

    // The next block; "<failed>" when there is none.
    std::string block()
    {
        char* data = nullptr;
        std::int64_t size = 0;
        if (!reader.read(data, size)) {
            EXPECT_EQ(size, -1);
            return "<failed>";
        }
        return {data, static_cast<std::size_t>(size)};
    }

    std::string rest()
    {
        std::string all;
        for (std::string next = block(); !next.empty(); next = block()) {
            if (next == "<failed>")
                return next;
            all += next;
        }
        return all;
    }

    void read_zeros(std::uint64_t size)
    {
        while (size > 0) {
            char* data = nullptr;
            std::int64_t count = 0;
            ASSERT_TRUE(reader.read(data, count));
            ASSERT_GT(count, 0);
            size -= static_cast<std::uint64_t>(count);
        }
    }

    bool open(const std::string& path, const File_Options& options = {}, bool prefetch = false)
    {
        return reader.open(path.c_str(), O_RDONLY, options, 7, prefetch);
    }

    // The system was asked for all bytes from `from` to `to`, once, in pieces that it takes whole.
    static void expect_fetched(const Page_Cache_Recorder& recorder, std::uint64_t from,
                               std::uint64_t to)
    {
        for (const auto& call : recorder.calls(Hint::fetch)) {
            EXPECT_EQ(call.offset, from);
            EXPECT_LE(call.size, 256U << 10U);
            from += call.size;
        }
        EXPECT_EQ(from, to);
    }

    Temp_Directory directory;
    File_Reader reader;
};

TEST_F(File_Reader_Test, FilesOfEverySizeAroundABlockAreReadWhole)
{
    for (const std::size_t size : {0U, 1U, 65535U, 65536U, 65537U, 131072U, 200000U}) {
        const std::string data = sample_bytes(size);
        ASSERT_TRUE(open(file(data)));
        EXPECT_TRUE(rest() == data) << size;
        EXPECT_EQ(block(), "");
        EXPECT_TRUE(reader.close());
    }
}

TEST_F(File_Reader_Test, BlocksAreFullUpToTheLast)
{
    ASSERT_TRUE(open(file(sample_bytes(100000))));
    EXPECT_EQ(reader.buffer_size(), 65536U);
    EXPECT_EQ(block().size(), 65536U);
    EXPECT_EQ(block().size(), 34464U);
    EXPECT_EQ(block().size(), 0U);
}

TEST_F(File_Reader_Test, BlockSizeIsTaken)
{
    const std::string data = sample_bytes(10);
    ASSERT_TRUE(open(file(data), {.block_size = 4}));
    EXPECT_EQ(reader.buffer_size(), 4U);
    EXPECT_EQ(block(), data.substr(0, 4));
    EXPECT_EQ(block(), data.substr(4, 4));
    EXPECT_EQ(block(), data.substr(8));
}

TEST_F(File_Reader_Test, BlocksLieInTheBuffer)
{
    ASSERT_TRUE(open(file("abc")));
    char* data = nullptr;
    std::int64_t size = 0;
    ASSERT_TRUE(reader.read(data, size));
    EXPECT_EQ(data, reader.buffer());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) % 4096, 0U);
}

TEST_F(File_Reader_Test, BlocksThatAreTooLargeAreRefused)
{
    EXPECT_FALSE(open(file("abc"), {.block_size = File_Buffer_T<char>::max_size + 1}));
    EXPECT_EQ(reader.last_error(), EINVAL);
    EXPECT_FALSE(open(file("abc"), {.block_size = ~std::uint64_t{0}}));
    EXPECT_EQ(reader.last_error(), EINVAL);
    EXPECT_FALSE(reader);
    EXPECT_TRUE(open(file("abc"), {.block_size = File_Buffer_T<char>::max_size}));
    EXPECT_EQ(rest(), "abc");
}

TEST_F(File_Reader_Test, AFileThatGrowsIsReadFurther)
{
    ASSERT_TRUE(open(file("abc")));
    EXPECT_EQ(rest(), "abc");
    std::ofstream(directory / "file", std::ios::app) << "def";
    EXPECT_EQ(rest(), "def");
}

TEST_F(File_Reader_Test, AFileThatShrinksEndsEarly)
{
    ASSERT_TRUE(open(file(sample_bytes(200000))));
    EXPECT_EQ(block().size(), 65536U);
    fs::resize_file(directory / "file", 70000);
    EXPECT_EQ(block().size(), 70000U - 65536U);
    EXPECT_EQ(block(), "");
}

TEST_F(File_Reader_Test, SeekMovesInEveryWay)
{
    const std::string data = sample_bytes(200000);
    ASSERT_TRUE(open(file(data)));
    EXPECT_EQ(reader.seek(150000, SEEK_SET), 150000);
    EXPECT_EQ(reader.seek(-50000, SEEK_CUR), 100000);
    EXPECT_TRUE(rest() == data.substr(100000));
    EXPECT_EQ(reader.seek(-10, SEEK_END), 199990);
    EXPECT_EQ(block(), data.substr(199990));
    EXPECT_EQ(reader.seek(300000, SEEK_SET), 300000);
    EXPECT_EQ(block(), "");
}

TEST_F(File_Reader_Test, SeekToANegativePositionFailsAndMovesNothing)
{
    ASSERT_TRUE(open(file("abcdef")));
    EXPECT_EQ(reader.seek(3, SEEK_SET), 3);
    EXPECT_EQ(reader.seek(-1, SEEK_SET), -1);
    EXPECT_EQ(reader.last_error(), EINVAL);
    EXPECT_EQ(rest(), "def");
}

TEST_F(File_Reader_Test, OffsetsBeyondFourGibAreExact)
{
    constexpr std::uint64_t offset = 5ULL << 30U;
    const std::string path = empty_space(offset);
    std::ofstream(path, std::ios::app) << "end";
    ASSERT_TRUE(open(path));
    EXPECT_EQ(reader.seek(static_cast<std::int64_t>(offset), SEEK_SET),
              static_cast<std::int64_t>(offset));
    EXPECT_EQ(rest(), "end");
}

TEST_F(File_Reader_Test, WhatIsMissingIsNotOpened)
{
    EXPECT_FALSE(open(directory / "missing"));
    EXPECT_EQ(reader.last_error(), ENOENT);
    EXPECT_FALSE(reader);
    EXPECT_FALSE(fs::exists(directory / "missing"));
    EXPECT_FALSE(reader.open(nullptr, 0, {}, 7, false));
    EXPECT_EQ(reader.last_error(), EINVAL);
}

TEST_F(File_Reader_Test, ADirectoryIsNotOpened)
{
    EXPECT_FALSE(open(directory.str()));
    EXPECT_EQ(reader.last_error(), EISDIR);
    EXPECT_FALSE(reader);
}

TEST_F(File_Reader_Test, WriteFlagsDoNotMakeAReaderWrite)
{
    ASSERT_TRUE(reader.open(file("abc").c_str(), O_WRONLY, {}, 7, false));
    EXPECT_EQ(rest(), "abc");
}

TEST_F(File_Reader_Test, AFailedOpenClosesTheEarlierFile)
{
    ASSERT_TRUE(open(file("abc")));
    EXPECT_FALSE(open(directory / "missing"));
    EXPECT_FALSE(reader);
    EXPECT_EQ(block(), "<failed>");
}

TEST_F(File_Reader_Test, AnotherOpenStartsAfresh)
{
    ASSERT_TRUE(open(file("abcdef")));
    EXPECT_EQ(reader.seek(4, SEEK_SET), 4);
    ASSERT_TRUE(open(directory / "file"));
    EXPECT_EQ(rest(), "abcdef");
    EXPECT_EQ(reader.last_error(), 0);
}

TEST_F(File_Reader_Test, WithoutAFileEverythingFails)
{
    EXPECT_FALSE(reader);
    EXPECT_EQ(block(), "<failed>");
    EXPECT_EQ(reader.last_error(), EBADF);
    EXPECT_EQ(reader.seek(0, SEEK_SET), -1);
    EXPECT_TRUE(reader.close());
    ASSERT_TRUE(open(file("abc")));
    EXPECT_TRUE(reader.close());
    EXPECT_FALSE(reader);
    EXPECT_EQ(block(), "<failed>");
}

TEST_F(File_Reader_Test, HandlesAreNotInheritedAndNotLeaked)
{
    ASSERT_TRUE(open(file("abc")));
    const int handle = reader.handle();
    EXPECT_EQ(fcntl(handle, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    ASSERT_TRUE(open(file("abc")));
    EXPECT_EQ(reader.handle(), handle);
    EXPECT_FALSE(open(directory.str()));
    EXPECT_EQ(fcntl(handle, F_GETFD), -1);
    {
        File_Reader other;
        ASSERT_TRUE(other.open((directory / "file").c_str(), 0, {}, 7, false));
        EXPECT_EQ(other.handle(), handle);
    }
    EXPECT_EQ(fcntl(handle, F_GETFD), -1);
}

TEST_F(File_Reader_Test, AFailedCloseIsReported)
{
    ASSERT_TRUE(open(file("abc")));
    ::close(reader.handle());
    EXPECT_FALSE(reader.close());
    EXPECT_EQ(reader.last_error(), EBADF);
    EXPECT_FALSE(reader);
}

TEST_F(File_Reader_Test, APipeIsReadToItsEnd)
{
    const std::string pipe = directory / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    // Open for both, since a pipe opened for writing alone waits for its reader.
    const int writer = ::open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    ASSERT_TRUE(open(pipe, {.read_ahead = mib, .drop_behind = true}));
    ASSERT_EQ(::write(writer, "abc", 3), 3);
    ASSERT_EQ(::write(writer, "def", 3), 3);
    ::close(writer);
    EXPECT_EQ(rest(), "abcdef");
    EXPECT_EQ(reader.seek(0, SEEK_SET), -1);
    EXPECT_EQ(reader.last_error(), ESPIPE);
}

TEST_F(File_Reader_Test, WithoutReadAheadTheSystemIsAskedNothing)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(4 * mib), {.drop_behind = true, .write_behind = mib}, true));
    read_zeros(4 * mib);
    EXPECT_TRUE(reader.close());
    EXPECT_TRUE(recorder.empty());
}

TEST_F(File_Reader_Test, ReadAheadWaitsUntilAMebibyteWasReadInSequence)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(40 * mib), {.read_ahead = 8 * mib}));
    read_zeros(mib - 65536);
    EXPECT_TRUE(recorder.empty());
    read_zeros(65536);
    EXPECT_EQ(recorder.calls(Hint::sequential).size(), 1U);
    expect_fetched(recorder, mib, 9 * mib);
}

TEST_F(File_Reader_Test, ReadAheadStaysBetweenHalfAndTheWholeOfItsRange)
{
    constexpr std::uint64_t ahead = 8 * mib;
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(64 * mib), {.read_ahead = ahead}));
    read_zeros(mib);
    for (std::uint64_t position = mib; position < 40 * mib; position += 65536) {
        const Calls fetched = recorder.calls(Hint::fetch);
        ASSERT_FALSE(fetched.empty());
        const std::uint64_t end = fetched.back().offset + fetched.back().size;
        ASSERT_GE(end, position + ahead / 2);
        ASSERT_LE(end, position + ahead);
        read_zeros(65536);
    }
    const Calls last = recorder.calls(Hint::fetch);
    expect_fetched(recorder, mib, last.back().offset + last.back().size);
    EXPECT_EQ(recorder.calls(Hint::sequential).size(), 1U);
    EXPECT_TRUE(recorder.calls(Hint::forget).empty());
}

TEST_F(File_Reader_Test, PrefetchAsksAtOnce)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(4 * mib), {.read_ahead = 2 * mib}, true));
    expect_fetched(recorder, 0, 2 * mib);
}

TEST_F(File_Reader_Test, RefusedHintsDoNoHarm)
{
    Page_Cache_Recorder recorder;
    recorder.refuse(ESPIPE);
    const std::string data = sample_bytes(4 * mib);
    ASSERT_TRUE(open(file(data), {.read_ahead = mib, .drop_behind = true}, true));
    errno = 0;
    EXPECT_TRUE(rest() == data);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(reader.last_error(), 0);
    EXPECT_TRUE(reader.close());
    EXPECT_FALSE(recorder.empty());
}

TEST_F(File_Reader_Test, SeekEndsTheSequence)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(64 * mib), {.read_ahead = 8 * mib, .drop_behind = true}));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(reader.seek(i * 3 * static_cast<std::int64_t>(mib), SEEK_SET),
                  i * 3 * static_cast<std::int64_t>(mib));
        read_zeros(mib - 65536);
    }
    EXPECT_TRUE(reader.close());
    EXPECT_TRUE(recorder.empty());
}

TEST_F(File_Reader_Test, WindowsBehindThePositionAreForgotten)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(7 * mib), {.read_ahead = 2 * mib, .drop_behind = true}));
    read_zeros(5 * mib);
    EXPECT_EQ(recorder.calls(Hint::forget),
              (Calls{{Hint::forget, 0, 2 * mib}, {Hint::forget, 2 * mib, 2 * mib}}));
    read_zeros(2 * mib);
    EXPECT_TRUE(reader.close());
    EXPECT_EQ(recorder.calls(Hint::forget), (Calls{{Hint::forget, 0, 2 * mib},
                                                   {Hint::forget, 2 * mib, 2 * mib},
                                                   {Hint::forget, 4 * mib, 2 * mib},
                                                   {Hint::forget, 6 * mib, mib}}));
}

TEST_F(File_Reader_Test, FilesSmallerThanAWindowStayInThePageCache)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(2 * mib - 1), {.read_ahead = 2 * mib, .drop_behind = true}));
    read_zeros(2 * mib - 1);
    EXPECT_EQ(block(), "");
    EXPECT_TRUE(reader.close());
    EXPECT_TRUE(recorder.calls(Hint::forget).empty());
}

TEST_F(File_Reader_Test, AnEnormousReadAheadDoesNoHarm)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(
        open(empty_space(4 * mib), {.read_ahead = ~std::uint64_t{0}, .drop_behind = true}, true));
    read_zeros(4 * mib);
    expect_fetched(recorder, 0, 1024 * mib);
    EXPECT_TRUE(recorder.calls(Hint::forget).empty());
}

} // namespace
