#include "tests/conformance/member.h"

namespace
{

constexpr std::uint64_t five_gib = 5ULL << 30U;

/// Files beyond 4 GiB, with holes so that they cost no space.
class Large_Files : public Conformance
{
protected:
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
    write_tail();
    EXPECT_EQ(stored_size("a"), five_gib + 4);
    std::vector<Client_IO_Base::Directory_Entry> entries;
    ASSERT_TRUE(io_->get_dir("", entries));
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].size, five_gib + 4);
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_EQ(io_->size(), five_gib + 4);
}

TEST_P(Large_Files, AreReadAtTheOffsetGivenToOpen)
{
    store("a", "head");
    write_tail();
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, five_gib + 1, 0));
    EXPECT_EQ(read_rest(), "ail");
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, five_gib - 2, 4));
    EXPECT_EQ(read_rest(), std::string("\0\0ta", 4));
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 5));
    EXPECT_EQ(read_rest(), std::string("head\0", 5));
}

TEST_P(Large_Files, AreReadAndWrittenAfterSeeks)
{
    store("a", "head");
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
    ASSERT_TRUE(io_->truncate("a", five_gib)) << io_->error();
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_append, 0, 0));
    EXPECT_TRUE(io_->write("end", 3));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored_size("a"), five_gib + 3);
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, five_gib, 0));
    EXPECT_EQ(read_rest(), "end");
}

TEST_P(Large_Files, AreTruncatedBeyond4GiB)
{
    store("a", "head");
    write_tail();
    EXPECT_TRUE(io_->truncate("a", five_gib + 1)) << io_->error();
    EXPECT_EQ(stored_size("a"), five_gib + 1);
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, five_gib, 0));
    EXPECT_EQ(read_rest(), "t");
}

} // namespace
