#include "platform/runtime/os_error.h"
#include "tests/conformance/member.h"
#include "tests/support/this_system.h"

#include <algorithm>
#include <cerrno>

namespace
{

class Metadata : public Conformance
{
protected:
    /// @pre "a" holds "0123456789"
    void expect_truncate_to_work_on_the_stream()
    {
        const std::string plain = "0123456789";
        const std::uint64_t whole = size_shown("a", plain.size());
        EXPECT_TRUE(truncate("a", whole)) << io_->error();
        EXPECT_EQ(stored("a"), plain);
        EXPECT_TRUE(truncate("a", whole + 5)) << io_->error();
        EXPECT_EQ(stored_size("a"), whole + 5);
        bool failed = false;
        const std::string with_more = read_as_far_as_possible("a", &failed);
        EXPECT_TRUE(failed ? plain.starts_with(with_more) : with_more.starts_with(plain));
        EXPECT_TRUE(truncate("a", whole - 1)) << io_->error();
        EXPECT_EQ(stored_size("a"), whole - 1);
        const bool noticed = deviates(Deviation::stored_size_differs);
        EXPECT_TRUE(noticed ? plain.starts_with(read_damaged("a")) : stored("a") == "012345678");
        EXPECT_TRUE(truncate("a", 0)) << io_->error();
        EXPECT_EQ(stored_size("a"), 0U);
        EXPECT_EQ(noticed ? read_damaged("a") : stored("a"), "");
    }
};

INSTANTIATE_TEST_SUITE_P(Of, Metadata, testing::ValuesIn(members()), member_name);

TEST_P(Metadata, SizeTellsFilesDirectoriesAndMissingPathsApart)
{
    store("file", "12345");
    ASSERT_TRUE(io_->make_dir("dir", 0750));
    EXPECT_EQ(io_->size("file"), size_shown("file", 5));
    EXPECT_EQ(io_->size("dir"), Client_IO_Base::size_of_directory);
    EXPECT_EQ(io_->size("missing"), Client_IO_Base::size_unknown);
    EXPECT_EQ(io_->size("missing/below"), Client_IO_Base::size_unknown);
}

TEST_P(Metadata, ListingGivesNamesKindsAndSizesWithoutPaths)
{
    store("d/file", "12345");
    store("d/empty", "");
    ASSERT_TRUE(io_->make_dir("d/sub/below", 0750));
    std::vector<Client_IO_Base::Directory_Entry> entries;
    ASSERT_TRUE(get_dir("d", entries)) << io_->error();
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].name, "empty");
    EXPECT_FALSE(entries[0].is_dir);
    EXPECT_EQ(entries[0].size, size_shown("d/empty", 0));
    EXPECT_EQ(entries[1].name, "file");
    EXPECT_FALSE(entries[1].is_dir);
    EXPECT_EQ(entries[1].size, size_shown("d/file", 5));
    EXPECT_EQ(entries[2].name, "sub");
    EXPECT_TRUE(entries[2].is_dir);
}

TEST_P(Metadata, ListingAppendsToTheEntriesOfTheCaller)
{
    store("file", "1");
    std::vector<Client_IO_Base::Directory_Entry> entries(1);
    entries[0].name = "the caller's";
    ASSERT_TRUE(get_dir("", entries));
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].name, "the caller's");
    EXPECT_EQ(entries[1].name, "file");
}

TEST_P(Metadata, ListingAnEmptyDirectoryGivesNothing)
{
    ASSERT_TRUE(io_->make_dir("d", 0750));
    EXPECT_TRUE(names("d").empty());
}

TEST_P(Metadata, ListingAMissingDirectoryOrAFileFailsWithAText)
{
    store("file", "1");
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_FALSE(get_dir("missing", entries));
    const int missing = io_->errnum();
    EXPECT_FALSE(io_->error().empty());
    EXPECT_FALSE(get_dir("file", entries));
    EXPECT_TRUE(entries.empty());
    if (!deviates(Deviation::lists_nothing)) {
        EXPECT_EQ(missing, os_error::no_such_directory);
        EXPECT_EQ(io_->errnum(), os_error::not_a_directory);
    }
}

TEST_P(Metadata, ListingManyEntriesLosesNone)
{
    std::vector<std::string> expected;
    for (int i = 0; i < 1000; ++i) {
        expected.push_back("file" + std::to_string(i));
        ASSERT_TRUE(io_->open(expected.back().c_str(), Client_IO_Base::mode_write, 0, 0));
        ASSERT_TRUE(io_->close());
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(names(""), expected);
}

TEST_P(Metadata, MakeDirCreatesMissingParentsAndAcceptsAnExistingDirectory)
{
    EXPECT_TRUE(io_->make_dir("a/b/c", 0750)) << io_->error();
    store("a/b/file", "kept");
    EXPECT_TRUE(io_->make_dir("a/b/c", 0750)) << io_->error();
    EXPECT_TRUE(io_->make_dir("a", 0750)) << io_->error();
    EXPECT_EQ(names("a/b"), (std::vector<std::string>{"c/", "file"}));
    EXPECT_EQ(stored("a/b/file"), "kept");
}

TEST_P(Metadata, MakeDirInPlaceOfAFileOrBelowOneFails)
{
    store("file", "kept");
    EXPECT_FALSE(io_->make_dir("file", 0750));
    EXPECT_FALSE(io_->error().empty());
    EXPECT_FALSE(io_->make_dir("file/below", 0750));
    EXPECT_EQ(stored("file"), "kept");
}

TEST_P(Metadata, TruncateShortensAndLengthens)
{
    store("a", "0123456789");
    if (deviates(Deviation::one_stream)) {
        expect_truncate_to_work_on_the_stream();
        return;
    }
    EXPECT_TRUE(truncate("a", 4)) << io_->error();
    EXPECT_EQ(stored("a"), "0123");
    EXPECT_TRUE(truncate("a", 6)) << io_->error();
    EXPECT_EQ(stored("a"), std::string("0123\0\0", 6));
    EXPECT_TRUE(truncate("a", 0)) << io_->error();
    EXPECT_EQ(stored_size("a"), 0U);
}

TEST_P(Metadata, TruncateOfAMissingFileFailsAndCreatesNothing)
{
    EXPECT_FALSE(truncate("missing", 4));
    if (!deviates(Deviation::truncates_nothing)) {
        EXPECT_EQ(io_->errnum(), os_error::no_such_file);
    }
    EXPECT_FALSE(io_->error().empty());
    EXPECT_TRUE(names("").empty());
}

TEST_P(Metadata, TruncateOfADirectoryFails)
{
    ASSERT_TRUE(io_->make_dir("d", 0750));
    EXPECT_FALSE(truncate("d", 0));
    if (!deviates(Deviation::truncates_nothing)) {
        EXPECT_EQ(io_->errnum(), number_shown(this_system::errors.open_directory));
    }
}

TEST_P(Metadata, RemoveTakesAwayAFileAndNothingElse)
{
    store("a", "1");
    store("b", "2");
    EXPECT_TRUE(io_->remove("a")) << io_->error();
    EXPECT_EQ(names(""), std::vector<std::string>{"b"});
}

TEST_P(Metadata, RemovingAMissingPathSucceeds)
{
    EXPECT_TRUE(io_->remove("missing")) << io_->error();
    EXPECT_TRUE(io_->remove("missing/below")) << io_->error();
}

TEST_P(Metadata, RemovingAnEmptyDirectorySucceeds)
{
    ASSERT_TRUE(io_->make_dir("d", 0750));
    if (deviates(Deviation::removes_no_directories)) {
        EXPECT_FALSE(io_->remove("d"));
        EXPECT_EQ(names(""), std::vector<std::string>{"d/"});
        return;
    }
    EXPECT_TRUE(io_->remove("d")) << io_->error();
    EXPECT_TRUE(names("").empty());
}

TEST_P(Metadata, RemovingANonEmptyDirectoryFailsAndLosesNothing)
{
    store("d/file", "kept");
    store("d/sub/file", "kept too");
    EXPECT_FALSE(io_->remove("d"));
    if (!deviates(Deviation::removes_no_directories)) {
        EXPECT_EQ(io_->errnum(), number_shown(this_system::errors.directory_not_empty));
    }
    EXPECT_FALSE(io_->error().empty());
    EXPECT_EQ(stored("d/file"), "kept");
    EXPECT_EQ(stored("d/sub/file"), "kept too");
}

TEST_P(Metadata, CopyKeepsTheSourceAndMakesAnIndependentFile)
{
    store("a", "contents");
    EXPECT_TRUE(io_->copy("a", "b", false)) << io_->error();
    EXPECT_EQ(stored("b"), "contents");
    store("a", "changed");
    EXPECT_EQ(stored("b"), "contents");
}

TEST_P(Metadata, CopyOntoAnExistingFileNeedsOverwrite)
{
    store("a", "new");
    store("b", "the old one");
    EXPECT_FALSE(io_->copy("a", "b", false));
    EXPECT_EQ(io_->errnum(), EEXIST);
    EXPECT_FALSE(io_->error().empty());
    EXPECT_EQ(stored("b"), "the old one");
    EXPECT_TRUE(io_->copy("a", "b", true)) << io_->error();
    EXPECT_EQ(stored("b"), "new");
    EXPECT_EQ(stored("a"), "new");
    EXPECT_EQ(names(""), (std::vector<std::string>{"a", "b"}));
}

TEST_P(Metadata, CopyOntoItselfWithOverwriteKeepsTheContents)
{
    store("a", "contents");
    io_->copy("a", "a", true);
    EXPECT_EQ(stored("a"), "contents");
    EXPECT_EQ(names(""), std::vector<std::string>{"a"});
}

TEST_P(Metadata, CopyOfAMissingFileFailsAndKeepsTheDestination)
{
    store("b", "kept");
    EXPECT_FALSE(io_->copy("missing", "b", true));
    EXPECT_EQ(io_->errnum(), os_error::no_such_file);
    EXPECT_EQ(stored("b"), "kept");
    EXPECT_FALSE(io_->copy("missing", "c", false));
    EXPECT_EQ(names(""), std::vector<std::string>{"b"});
}

TEST_P(Metadata, RenameMovesFilesBetweenDirectories)
{
    store("a", "contents");
    ASSERT_TRUE(io_->make_dir("d", 0750));
    EXPECT_TRUE(io_->rename("a", "d/b", false)) << io_->error();
    EXPECT_EQ(stored("d/b"), "contents");
    EXPECT_EQ(names(""), std::vector<std::string>{"d/"});
}

TEST_P(Metadata, RenameMovesADirectoryWithItsContents)
{
    store("d/sub/file", "contents");
    if (deviates(Deviation::moves_files_only)) {
        EXPECT_FALSE(io_->rename("d", "e", false));
        EXPECT_EQ(stored("d/sub/file"), "contents");
        EXPECT_EQ(names(""), std::vector<std::string>{"d/"});
        return;
    }
    EXPECT_TRUE(io_->rename("d", "e", false)) << io_->error();
    EXPECT_EQ(stored("e/sub/file"), "contents");
    EXPECT_EQ(names(""), std::vector<std::string>{"e/"});
}

TEST_P(Metadata, RenameOntoAnExistingFileNeedsOverwrite)
{
    store("a", "new");
    store("b", "old");
    EXPECT_FALSE(io_->rename("a", "b", false));
    EXPECT_EQ(io_->errnum(), EEXIST);
    EXPECT_FALSE(io_->error().empty());
    EXPECT_EQ(stored("a"), "new");
    EXPECT_EQ(stored("b"), "old");
    EXPECT_TRUE(io_->rename("a", "b", true)) << io_->error();
    EXPECT_EQ(stored("b"), "new");
    EXPECT_EQ(names(""), std::vector<std::string>{"b"});
}

TEST_P(Metadata, RenameOfAMissingFileFailsAndKeepsTheDestination)
{
    store("b", "kept");
    EXPECT_FALSE(io_->rename("missing", "b", true));
    EXPECT_EQ(io_->errnum(), os_error::no_such_file);
    EXPECT_EQ(stored("b"), "kept");
}

TEST_P(Metadata, RenameOntoItselfWithOverwriteKeepsTheContents)
{
    store("a", "contents");
    io_->rename("a", "a", true);
    EXPECT_EQ(stored("a"), "contents");
}

TEST_P(Metadata, UnknownSettingsAreEmpty)
{
    EXPECT_EQ(io_->get_config("no such setting"), "");
}

} // namespace
