#include "tests/unit/runtime/file_reader_fixture.h"
#include "tests/unit/runtime/page_cache_recorder.h"

#include <cerrno>

// Hints about the page cache, which this system takes for parts of an open file.

namespace
{

using Hint = Page_Cache_Recorder::Hint;
using Calls = std::vector<Page_Cache_Recorder::Call>;

constexpr std::uint64_t mib = 1U << 20U;

class File_Reader_Hints : public File_Reader_Test
{
protected:
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
};

TEST_F(File_Reader_Hints, WithoutReadAheadTheSystemIsAskedNothing)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(4 * mib), {.drop_behind = true, .write_behind = mib}, true));
    read_zeros(4 * mib);
    EXPECT_TRUE(reader.close());
    EXPECT_TRUE(recorder.empty());
}

TEST_F(File_Reader_Hints, ReadAheadWaitsUntilAMebibyteWasReadInSequence)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(40 * mib), {.read_ahead = 8 * mib}));
    read_zeros(mib - 65536);
    EXPECT_TRUE(recorder.empty());
    read_zeros(65536);
    EXPECT_EQ(recorder.calls(Hint::sequential).size(), 1U);
    expect_fetched(recorder, mib, 9 * mib);
}

TEST_F(File_Reader_Hints, ReadAheadStaysBetweenHalfAndTheWholeOfItsRange)
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

TEST_F(File_Reader_Hints, PrefetchAsksAtOnce)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(4 * mib), {.read_ahead = 2 * mib}, true));
    expect_fetched(recorder, 0, 2 * mib);
}

TEST_F(File_Reader_Hints, RefusedHintsDoNoHarm)
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

TEST_F(File_Reader_Hints, SeekEndsTheSequence)
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

TEST_F(File_Reader_Hints, WindowsBehindThePositionAreForgotten)
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

TEST_F(File_Reader_Hints, FilesSmallerThanAWindowStayInThePageCache)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(empty_space(2 * mib - 1), {.read_ahead = 2 * mib, .drop_behind = true}));
    read_zeros(2 * mib - 1);
    EXPECT_EQ(block(), "");
    EXPECT_TRUE(reader.close());
    EXPECT_TRUE(recorder.calls(Hint::forget).empty());
}

TEST_F(File_Reader_Hints, AnEnormousReadAheadDoesNoHarm)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(
        open(empty_space(4 * mib), {.read_ahead = ~std::uint64_t{0}, .drop_behind = true}, true));
    read_zeros(4 * mib);
    expect_fetched(recorder, 0, 1024 * mib);
    EXPECT_TRUE(recorder.calls(Hint::forget).empty());
}

} // namespace
