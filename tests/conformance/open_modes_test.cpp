#include "platform/json/json_value.h"
#include "platform/runtime/os_error.h"
#include "tests/conformance/member.h"
#include "tests/support/this_system.h"

namespace
{

constexpr unsigned overwriting = Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite;

class Open_Modes : public Conformance
{
protected:
    void write_at(const char* path, unsigned mode, std::uint64_t offset, const std::string& data)
    {
        ASSERT_TRUE(io_->open(path, mode, offset, 0)) << io_->error();
        ASSERT_TRUE(io_->write(data.data(), data.size())) << io_->error();
        ASSERT_TRUE(io_->close()) << io_->error();
    }
};

INSTANTIATE_TEST_SUITE_P(Of, Open_Modes, testing::ValuesIn(members()), member_name);

TEST_P(Open_Modes, WritingCreatesAFileWithExactlyTheBytesWritten)
{
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0)) << io_->error();
    EXPECT_TRUE(io_->write("hello ", 6));
    EXPECT_TRUE(io_->write("world", 5));
    EXPECT_TRUE(io_->close()) << io_->error();
    EXPECT_EQ(stored("a"), "hello world");
    EXPECT_EQ(stored_size("a"), size_shown("a", 11));
}

TEST_P(Open_Modes, WritingOverAnExistingFileIsRefusedWithoutTheOverwriteFlag)
{
    store("a", "old contents");
    EXPECT_FALSE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    EXPECT_FALSE(io_->error().empty());
    EXPECT_FALSE(io_->is_open());
    EXPECT_EQ(stored("a"), "old contents");
}

TEST_P(Open_Modes, WritingWithTheOverwriteFlagReplacesTheWholeFile)
{
    store("a", "old contents");
    write_at("a", overwriting, 0, "new");
    EXPECT_EQ(stored("a"), "new");
}

TEST_P(Open_Modes, WritingWithTheOverwriteFlagFromAnOffsetKeepsWhatStandsAround)
{
    store("a", "0123456789");
    if (refuses_to_write_within("a", overwriting, 3))
        return;
    write_at("a", overwriting, 3, "xyz");
    EXPECT_EQ(stored("a"), "012xyz6789");
}

TEST_P(Open_Modes, AppendingToAnExistingFileWritesBehindItsEnd)
{
    store("a", "first");
    if (refuses_to_append("a"))
        return;
    write_at("a", Client_IO_Base::mode_append, 0, " second");
    EXPECT_EQ(stored("a"), "first second");
}

TEST_P(Open_Modes, AppendingToAMissingFileCreatesIt)
{
    write_at("a", Client_IO_Base::mode_append, 0, "alone");
    EXPECT_EQ(stored("a"), "alone");
}

TEST_P(Open_Modes, SizeOfAFileOpenForAppendStartsAtTheFilesSize)
{
    store("a", "12345");
    if (refuses_to_append("a"))
        return;
    const std::uint64_t before = size_shown("a", 5);
    const std::uint64_t base = deviates(Deviation::append_size_counts_from_open) ? 0 : before;
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_append, 0, 0));
    EXPECT_EQ(io_->size(), base);
    ASSERT_TRUE(io_->write("678", 3));
    EXPECT_TRUE(io_->flush());
    if (deviates(Deviation::stored_size_differs)) {
        EXPECT_GT(io_->size(), base);
    } else {
        EXPECT_EQ(io_->size(), base + 3);
    }
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored_size("a"), size_shown("a", 8));
    EXPECT_GT(stored_size("a"), before);
    EXPECT_EQ(stored("a"), "12345678");
}

TEST_P(Open_Modes, RandomWritingKeepsWhatIsNotWritten)
{
    store("a", "0123456789");
    if (refuses_to_write_within("a", Client_IO_Base::mode_random_write, 4))
        return;
    write_at("a", Client_IO_Base::mode_random_write, 4, "AB");
    EXPECT_EQ(stored("a"), "0123AB6789");
}

TEST_P(Open_Modes, RandomWritingFromTheStartNeverTruncates)
{
    store("a", "0123456789");
    if (refuses_to_write_within("a", Client_IO_Base::mode_random_write, 0))
        return;
    write_at("a", Client_IO_Base::mode_random_write, 0, "x");
    EXPECT_EQ(stored("a"), "x123456789");
}

TEST_P(Open_Modes, RandomWritingBehindTheEndFillsTheGapWithZeros)
{
    store("a", "ab");
    if (refuses_to_write_within("a", Client_IO_Base::mode_random_write, 5))
        return;
    write_at("a", Client_IO_Base::mode_random_write, 5, "c");
    EXPECT_EQ(stored("a"), std::string("ab\0\0\0c", 6));
}

TEST_P(Open_Modes, RandomWritingFollowsSeeks)
{
    if (refuses_to_write_within("a", Client_IO_Base::mode_random_write, 0))
        return;
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_random_write, 0, 0));
    EXPECT_TRUE(io_->write("0123456789", 10));
    EXPECT_TRUE(io_->seek(2, 0));
    EXPECT_TRUE(io_->write("XY", 2));
    EXPECT_TRUE(io_->seek(12, 1));
    EXPECT_TRUE(io_->write("Z", 1));
    EXPECT_EQ(io_->size(), 13U);
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored("a"), std::string("01XY456789\0\0Z", 13));
}

TEST_P(Open_Modes, ASeekInAWriteModeIsFollowedOrRefused)
{
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    EXPECT_TRUE(io_->write("0123456789", 10));
    const bool whole_only = deviates(Deviation::whole_files_only);
    if (whole_only) {
        EXPECT_FALSE(io_->seek(2, 0));
        EXPECT_EQ(io_->error(), GetParam().unsupported);
    }
    const bool refused = whole_only || refuses_to_seek(2, 0);
    EXPECT_TRUE(refused || io_->seek(2, 0)) << io_->error();
    EXPECT_TRUE(io_->write("AB", 2));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored("a"), refused ? "0123456789AB" : "01AB456789");
}

TEST_P(Open_Modes, EveryWriteModeCreatesMissingParentDirectories)
{
    if (deviates(Deviation::makes_no_parents)) {
        expect_write_refused("w/x/file", Client_IO_Base::mode_write);
        EXPECT_TRUE(names("").empty());
        return;
    }
    write_at("w/x/file", Client_IO_Base::mode_write, 0, "1");
    write_at("a/x/file", Client_IO_Base::mode_append, 0, "2");
    EXPECT_EQ(names(""), (std::vector<std::string>{"a/", "w/"}));
    EXPECT_EQ(names("w/x"), std::vector<std::string>{"file"});
    EXPECT_EQ(stored("a/x/file"), "2");
    if (refuses_to_write_within("r/x/file", Client_IO_Base::mode_random_write, 0))
        return;
    write_at("r/x/file", Client_IO_Base::mode_random_write, 0, "3");
    EXPECT_EQ(names(""), (std::vector<std::string>{"a/", "r/", "w/"}));
    EXPECT_EQ(stored("r/x/file"), "3");
}

TEST_P(Open_Modes, OpeningAMissingFileForReadingFailsAndCreatesNothing)
{
    EXPECT_FALSE(io_->open("missing/file", Client_IO_Base::mode_read, 0, 0));
    EXPECT_FALSE(io_->error().empty());
    EXPECT_EQ(io_->errnum(), os_error::no_such_directory);
    EXPECT_FALSE(io_->is_open());
    EXPECT_TRUE(names("").empty());
}

TEST_P(Open_Modes, UnknownOpenModesAreRefusedAndCreateNothing)
{
    for (const unsigned mode : {0U, 5U, 0xFFU, 0x100U, 0x105U}) {
        if (deviates(Deviation::unknown_modes_write)) {
            write_at("a", mode, 0, std::to_string(mode));
            EXPECT_EQ(stored("a"), std::to_string(mode));
            EXPECT_TRUE(io_->remove("a"));
            continue;
        }
        EXPECT_FALSE(io_->open("a", mode, 0, 0)) << mode;
        EXPECT_EQ(io_->error(), "Invalid open mode") << mode;
        EXPECT_FALSE(io_->is_open()) << mode;
    }
    EXPECT_TRUE(names("").empty());
}

TEST_P(Open_Modes, OpeningADirectoryForWritingFailsAndKeepsIt)
{
    ASSERT_TRUE(io_->make_dir("d", 0750));
    store("d/file", "kept");
    for (const unsigned mode :
         {overwriting, unsigned{Client_IO_Base::mode_append},
          unsigned{Client_IO_Base::mode_random_write}, unsigned{Client_IO_Base::mode_write}})
        expect_write_refused("d", mode);
    EXPECT_EQ(stored("d/file"), "kept");
}

TEST_P(Open_Modes, AFileInPlaceOfADirectoryMakesWritingBelowItFail)
{
    store("file", "kept");
    expect_write_refused("file/below", Client_IO_Base::mode_write);
    if (!deviates(Deviation::whole_files_only)) { // by others, who have other statuses for it
        EXPECT_EQ(io_->errnum(), number_shown(this_system::errors.below_a_file));
    }
    EXPECT_EQ(stored("file"), "kept");
}

TEST_P(Open_Modes, AnEmptyFileIsAFile)
{
    ASSERT_TRUE(io_->open("empty", Client_IO_Base::mode_write, 0, 0));
    EXPECT_EQ(io_->size(), 0U);
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored_size("empty"), size_shown("empty", 0));
    EXPECT_EQ(names(""), std::vector<std::string>{"empty"});
    EXPECT_EQ(stored("empty"), "");
}

TEST_P(Open_Modes, WritingNoBytesChangesNothing)
{
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    EXPECT_TRUE(io_->write("ab", 2));
    EXPECT_TRUE(io_->write("cd", 0));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored("a"), "ab");
}

TEST_P(Open_Modes, OpenWithUnknownExtraSettingsOpensFromTheStart)
{
    store("a", "contents");
    const json_spirit::Value extra;
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, extra)) << io_->error();
    EXPECT_EQ(read_rest(), "contents");
    EXPECT_TRUE(io_->close());
    ASSERT_TRUE(io_->open("b", Client_IO_Base::mode_write, extra)) << io_->error();
    EXPECT_TRUE(io_->write("x", 1));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored("b"), "x");
}

TEST_P(Open_Modes, OriginalAndStorageSizeOfAFileToReadAreItsSize)
{
    store("a", "12345");
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0));
    const std::uint64_t size = size_shown("a", 5);
    EXPECT_EQ(io_->size(), size);
    EXPECT_EQ(io_->original_size(), size);
    EXPECT_EQ(io_->storage_size(), size);
}

TEST_P(Open_Modes, FlushOfAFileOpenForWritingSucceedsAndLosesNothing)
{
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    EXPECT_TRUE(io_->write("one", 3));
    EXPECT_TRUE(io_->flush());
    EXPECT_TRUE(io_->write("two", 3));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored("a"), "onetwo");
}

} // namespace
