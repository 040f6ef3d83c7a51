#include "tests/conformance/member.h"

#include <algorithm>

namespace
{

constexpr std::uint64_t five_gib = 5ULL << 30U;

/// Files beyond 4 GiB, with holes so that they cost no space.
class Large_Files : public Conformance
{
protected:
    /// A file that is stored as a stream is not written behind its end.
    bool refuses_tail()
    {
        return refuses_to_write_within("a", Client_IO_Base::mode_random_write, five_gib);
    }

    void write_tail()
    {
        ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_random_write, five_gib, 0)) << io_->error();
        ASSERT_TRUE(io_->write("tail", 4)) << io_->error();
        EXPECT_EQ(io_->size(), five_gib + 4);
        ASSERT_TRUE(io_->close()) << io_->error();
    }
};

INSTANTIATE_TEST_SUITE_P(Of, Large_Files, testing::ValuesIn(members()), member_name);

TEST_P(Large_Files, HaveTheirRightSizeEverywhere)
{
    store("a", "head");
    if (refuses_tail())
        ASSERT_TRUE(truncate("a", five_gib + 4)) << io_->error();
    else
        write_tail();
    EXPECT_EQ(stored_size("a"), five_gib + 4);
    std::vector<Client_IO_Base::Directory_Entry> entries;
    ASSERT_TRUE(get_dir("", entries));
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].size, five_gib + 4);
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_EQ(io_->size(), five_gib + 4);
    EXPECT_EQ(io_->storage_size(), five_gib + 4);
}

TEST_P(Large_Files, AreReadAtTheOffsetGivenToOpen)
{
    store("a", "head");
    if (deviates(Deviation::whole_files_only)) {
        ASSERT_TRUE(truncate("a", five_gib + 4)) << io_->error();
        ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, five_gib + 1, 0)) << io_->error();
        EXPECT_EQ(read_rest(), std::string(3, '\0'));
        return;
    }
    if (refuses_tail()) {
        char byte = 'x';
        ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, five_gib + 1, 0));
        EXPECT_EQ(io_->read(&byte, 1), -1);
        EXPECT_EQ(io_->error(), "Invalid offset");
        return;
    }
    write_tail();
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, five_gib + 1, 0));
    EXPECT_EQ(read_rest(), "ail");
    ASSERT_TRUE(io_->close());
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, five_gib - 2, 4));
    EXPECT_EQ(read_rest(), std::string("\0\0ta", 4));
    ASSERT_TRUE(io_->close());
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 5));
    EXPECT_EQ(read_rest(), std::string("head\0", 5));
}

TEST_P(Large_Files, AreReadAndWrittenAfterSeeks)
{
    store("a", "head");
    if (deviates(Deviation::whole_files_only)) {
        ASSERT_TRUE(truncate("a", five_gib + 5)) << io_->error();
        ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0)) << io_->error();
        ASSERT_TRUE(io_->seek(five_gib, 0)) << io_->error();
        EXPECT_EQ(read_rest(), std::string(5, '\0'));
        return;
    }
    if (refuses_tail()) {
        ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0));
        EXPECT_TRUE(refuses_to_seek(five_gib, 0));
        EXPECT_EQ(read_rest(), "head");
        return;
    }
    write_tail();
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_random_write, 0, 0));
    EXPECT_TRUE(io_->write("H", 1));
    EXPECT_TRUE(io_->seek(five_gib + 2, 0));
    EXPECT_TRUE(io_->write("IL+", 3));
    EXPECT_TRUE(io_->close());

    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0));
    ASSERT_TRUE(io_->seek(five_gib, 0));
    EXPECT_EQ(read_rest(), "taIL+");
    ASSERT_TRUE(io_->seek(0, 0));
    char start[4];
    ASSERT_EQ(io_->read(start, 4), 4);
    EXPECT_EQ(std::string(start, 4), "Head");
}

TEST_P(Large_Files, GrowByAppending)
{
    store("a", "");
    ASSERT_TRUE(truncate("a", five_gib)) << io_->error();
    if (refuses_to_append("a"))
        return;
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_append, 0, 0));
    EXPECT_TRUE(io_->write("end", 3));
    EXPECT_TRUE(io_->close());
    if (deviates(Deviation::one_stream)) {
        // One stream more; a reader does not come across the gap to it.
        EXPECT_GT(stored_size("a"), five_gib + 3);
        return;
    }
    EXPECT_EQ(stored_size("a"), five_gib + 3);
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, five_gib, 0));
    EXPECT_EQ(read_rest(), "end");
}

TEST_P(Large_Files, AreTruncatedBeyond4GiB)
{
    store("a", "head");
    if (refuses_tail()) {
        const std::uint64_t whole = size_shown("a", 4);
        EXPECT_TRUE(truncate("a", five_gib + 1)) << io_->error();
        EXPECT_EQ(stored_size("a"), five_gib + 1);
        EXPECT_TRUE(truncate("a", whole)) << io_->error();
        EXPECT_EQ(stored("a"), "head");
        return;
    }
    write_tail();
    EXPECT_TRUE(truncate("a", five_gib + 1)) << io_->error();
    EXPECT_EQ(stored_size("a"), five_gib + 1);
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, five_gib, 0));
    EXPECT_EQ(read_rest(), "t");
}

/// A plain stream beyond 4 GiB.
class Large_Streams : public Conformance
{};

/// What counts the bytes is common to all members that store streams; one that makes next to
/// nothing of zeros will do.
std::vector<Member> member_for_large_streams()
{
    std::vector<Member> result = members();
    std::erase_if(result, [](const Member& other) { return other.name != "MemoryThroughZSTD"; });
    return result;
}

INSTANTIATE_TEST_SUITE_P(Of, Large_Streams, testing::ValuesIn(member_for_large_streams()),
                         member_name);

TEST_P(Large_Streams, AreReadAtOffsetsBeyond4GiB)
{
    constexpr std::uint64_t four_gib = 4ULL << 30U;
    std::string block(1048576, '\0');
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    for (std::uint64_t done = 0; done < four_gib; done += block.size())
        ASSERT_TRUE(io_->write(block.data(), block.size())) << io_->error();
    ASSERT_TRUE(io_->write("0123456789", 10)) << io_->error();
    ASSERT_TRUE(io_->close()) << io_->error();

    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, four_gib + 2, 5));
    ASSERT_EQ(io_->read(block.data(), block.size()), 5) << io_->error();
    EXPECT_EQ(block.substr(0, 5), "23456");
    ASSERT_TRUE(io_->close());

    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 1, four_gib + 4));
    std::uint64_t total = 0;
    std::string last;
    for (;;) {
        const void* data = nullptr;
        std::uint64_t size = 0;
        ASSERT_TRUE(io_->read(data, size)) << io_->error();
        if (size == 0)
            break;
        total += size;
        const char* const end = static_cast<const char*>(data) + size;
        last.assign(end - std::min<std::uint64_t>(size, 5), end);
    }
    EXPECT_EQ(total, four_gib + 4);
    EXPECT_EQ(last, "01234");
}

} // namespace
