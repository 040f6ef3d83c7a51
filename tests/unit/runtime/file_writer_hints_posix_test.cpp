#include "tests/unit/runtime/file_writer_fixture.h"
#include "tests/unit/runtime/page_cache_recorder.h"

#include <cerrno>

// Hints about the page cache, which this system takes for parts of an open file.

namespace
{

using Hint = Page_Cache_Recorder::Hint;
using Calls = std::vector<Page_Cache_Recorder::Call>;

class File_Writer_Hints : public File_Writer_Test
{};

TEST_F(File_Writer_Hints, WithoutWriteBehindTheSystemIsAskedNothing)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(fresh, {.read_ahead = mib, .drop_behind = true}));
    EXPECT_TRUE(write(sample_bytes(4 * mib)));
    EXPECT_TRUE(writer.close());
    EXPECT_TRUE(recorder.empty());
}

TEST_F(File_Writer_Hints, FullWindowsAreStored)
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

TEST_F(File_Writer_Hints, OneWindowIsKeptBehindTheOneBeingFilled)
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

TEST_F(File_Writer_Hints, MoreWindowsAreKeptWhenAsked)
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

TEST_F(File_Writer_Hints, FilesSmallerThanAWindowAreLeftToTheSystem)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(fresh, {.drop_behind = true, .write_behind = mib}));
    EXPECT_TRUE(write(sample_bytes(mib - 1)));
    EXPECT_TRUE(writer.close());
    EXPECT_TRUE(recorder.empty());
}

TEST_F(File_Writer_Hints, WindowsStartWhereWritingStarts)
{
    write_local(path, sample_bytes(100));
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(open(O_APPEND, {.write_behind = mib}));
    EXPECT_TRUE(write(sample_bytes(mib)));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(recorder.calls(Hint::store), (Calls{{Hint::store, 100, mib}}));
}

TEST_F(File_Writer_Hints, SeekingDoesNotMoveWhereAppendedDataGoesNorItsWindows)
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

TEST_F(File_Writer_Hints, RefusedHintsDoNoHarm)
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

TEST_F(File_Writer_Hints, EnormousWindowsDoNoHarm)
{
    Page_Cache_Recorder recorder;
    ASSERT_TRUE(
        open(fresh, {.drop_behind = true, .windows_kept = ~0U, .write_behind = ~std::uint64_t{0}}));
    EXPECT_TRUE(write(sample_bytes(4 * mib)));
    EXPECT_TRUE(writer.close());
    EXPECT_TRUE(recorder.empty());
}

} // namespace
