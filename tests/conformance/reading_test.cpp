#include "tests/conformance/member.h"
#include "tests/support/temp_directory.h"

namespace
{

class Reading : public Conformance
{
protected:
    bool open(const char* path, std::uint64_t offset = 0, std::uint64_t size = 0)
    {
        if (io_->is_open()) {
            EXPECT_TRUE(io_->close()) << io_->error();
        }
        const bool result = io_->open(path, Client_IO_Base::mode_read, offset, size);
        EXPECT_TRUE(result) << io_->error();
        return result;
    }

    /// Reads to the end without copying.
    std::string read_blocks()
    {
        std::string data;
        for (;;) {
            const void* block = nullptr;
            std::uint64_t size = 0;
            EXPECT_TRUE(io_->read(block, size)) << io_->error();
            if (size == 0 || HasFailure())
                return data;
            data.append(static_cast<const char*>(block), size);
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Of, Reading, testing::ValuesIn(members()), member_name);

TEST_P(Reading, ReturnsTheWholeFileWhateverTheSizeOfTheReads)
{
    const std::string data = sample_bytes(3 * 65536 + 1234);
    store("a", data);
    for (const std::size_t block :
         {1000U, 65535U, 65536U, 65537U, 2 * 65536U, 3 * 65536U, 4 * 65536U}) {
        ASSERT_TRUE(open("a"));
        EXPECT_TRUE(read_rest(block) == data) << "blocks of " << block;
    }
}

TEST_P(Reading, FillsTheBufferUnlessTheFileEnds)
{
    store("a", "0123456789");
    ASSERT_TRUE(open("a"));
    char buffer[8] = {};
    EXPECT_EQ(io_->read(buffer, 8), 8);
    EXPECT_EQ(std::string(buffer, 8), "01234567");
    EXPECT_EQ(io_->read(buffer, 8), 2);
    EXPECT_EQ(std::string(buffer, 2), "89");
}

TEST_P(Reading, StaysAtTheEndOnceItIsReached)
{
    store("a", "ab");
    ASSERT_TRUE(open("a"));
    char buffer[8];
    EXPECT_EQ(io_->read(buffer, 8), 2);
    EXPECT_EQ(io_->read(buffer, 8), 0);
    EXPECT_EQ(io_->read(buffer, 8), 0);
    EXPECT_TRUE(io_->close());
}

TEST_P(Reading, OfAnEmptyFileEndsAtOnceInBothForms)
{
    store("a", "");
    char byte = 'x';
    ASSERT_TRUE(open("a"));
    EXPECT_EQ(io_->read(&byte, 1), 0);
    EXPECT_EQ(byte, 'x');
    ASSERT_TRUE(open("a"));
    EXPECT_EQ(read_blocks(), "");
}

TEST_P(Reading, StartsAtTheOffset)
{
    const std::string data = sample_bytes(200000);
    store("a", data);
    for (const std::uint64_t offset : {1U, 4095U, 65536U, 65537U, 199999U}) {
        ASSERT_TRUE(open("a", offset));
        EXPECT_TRUE(read_rest() == data.substr(offset)) << "from " << offset;
        ASSERT_TRUE(open("a", offset));
        EXPECT_TRUE(read_blocks() == data.substr(offset)) << "blocks from " << offset;
    }
}

TEST_P(Reading, FromTheEndOrBehindItFindsNothing)
{
    store("a", "0123456789");
    for (const std::uint64_t offset : {10U, 11U, 1000000U}) {
        char byte = 'x';
        const void* block = nullptr;
        std::uint64_t size = 0;
        if (deviates(Deviation::reading_starts_within_the_file)) {
            EXPECT_FALSE(io_->open("a", Client_IO_Base::mode_read, offset, 0)) << offset;
            EXPECT_EQ(io_->error(), "Invalid offset") << offset;
            EXPECT_FALSE(io_->is_open()) << offset;
            continue;
        }
        ASSERT_TRUE(open("a", offset));
        if (offset > 10 && deviates(Deviation::one_stream)) {
            EXPECT_EQ(io_->read(&byte, 1), -1) << offset;
            EXPECT_EQ(io_->error(), "Invalid offset") << offset;
            EXPECT_EQ(io_->read(&byte, 1), -1) << offset;
            ASSERT_TRUE(open("a", offset));
            EXPECT_FALSE(io_->read(block, size)) << offset;
            EXPECT_EQ(io_->error(), "Invalid offset") << offset;
            continue;
        }
        EXPECT_EQ(read_rest(), "") << offset;
        ASSERT_TRUE(open("a", offset));
        EXPECT_EQ(read_blocks(), "") << offset;
    }
}

TEST_P(Reading, EndsAfterTheSizeGivenToOpen)
{
    const std::string data = sample_bytes(300000);
    store("a", data);
    for (const std::uint64_t size : {1U, 65535U, 65536U, 65537U, 131072U, 200000U}) {
        ASSERT_TRUE(open("a", 7, size));
        EXPECT_TRUE(read_rest(1000) == data.substr(7, size)) << size;
        ASSERT_TRUE(open("a", 7, size));
        EXPECT_TRUE(read_rest(131072) == data.substr(7, size)) << size;
        ASSERT_TRUE(open("a", 7, size));
        EXPECT_TRUE(read_blocks() == data.substr(7, size)) << "blocks, " << size;
    }
}

TEST_P(Reading, WithALimitBehindTheEndOfTheFileEndsWithTheFile)
{
    store("a", "0123456789");
    ASSERT_TRUE(open("a", 6, 100));
    EXPECT_EQ(read_rest(), "6789");
    ASSERT_TRUE(open("a", 6, 100));
    EXPECT_EQ(read_blocks(), "6789");
}

TEST_P(Reading, WithoutCopyingGivesTheSameBytes)
{
    const std::string data = sample_bytes(5 * 65536 + 17);
    store("a", data);
    ASSERT_TRUE(open("a"));
    EXPECT_TRUE(read_blocks() == data);
    const void* block = nullptr;
    std::uint64_t size = 1;
    EXPECT_TRUE(io_->read(block, size));
    EXPECT_EQ(size, 0U);
}

TEST_P(Reading, FollowsSeeksForwardsAndBackwards)
{
    const std::string data = sample_bytes(200000);
    store("a", data);
    ASSERT_TRUE(open("a"));
    if (refuses_to_seek(150000, 0)) {
        EXPECT_TRUE(read_rest() == data);
        return;
    }
    std::string buffer(1000, '\0');
    for (const std::uint64_t offset : {150000U, 3U, 65536U, 65535U, 0U, 199000U}) {
        ASSERT_TRUE(io_->seek(offset, 0)) << io_->error();
        ASSERT_EQ(io_->read(buffer.data(), buffer.size()), 1000);
        EXPECT_TRUE(buffer == data.substr(offset, 1000)) << offset;
    }
    EXPECT_EQ(io_->read(buffer.data(), 1), 0);
}

TEST_P(Reading, SeekTakesAwayTheLimitOfTheOpen)
{
    store("a", "0123456789");
    ASSERT_TRUE(open("a", 0, 4));
    EXPECT_EQ(read_rest(), "0123");
    if (refuses_to_seek(2, 0)) {
        EXPECT_EQ(read_rest(), "");
        return;
    }
    ASSERT_TRUE(io_->seek(2, 0));
    EXPECT_EQ(read_rest(), "23456789");
}

TEST_P(Reading, TheLengthGivenToSeekIsAHint)
{
    store("a", "0123456789");
    ASSERT_TRUE(open("a"));
    if (refuses_to_seek(2, 3)) {
        EXPECT_EQ(read_rest(), "0123456789");
        return;
    }
    ASSERT_TRUE(io_->seek(2, 3));
    EXPECT_EQ(read_rest(), deviates(Deviation::seek_length_limits_reading) ? "234" : "23456789");
}

TEST_P(Reading, ReportsTheSizeOfTheWholeFile)
{
    store("a", "0123456789");
    const std::uint64_t size = size_shown("a", 10);
    ASSERT_TRUE(open("a", 6, 2));
    EXPECT_EQ(io_->size(), size);
    EXPECT_EQ(read_rest(), "67");
    EXPECT_EQ(io_->size(), size);
}

TEST_P(Reading, IsRefusedOnAFileOpenForWriting)
{
    misuses({"read of a file that is open for writing"});
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    char byte = 'x';
    EXPECT_EQ(io_->read(&byte, 1), -1);
    EXPECT_EQ(io_->error(), GetParam().reading_refused);
    const void* block = nullptr;
    std::uint64_t size = 0;
    EXPECT_FALSE(io_->read(block, size));
    EXPECT_EQ(io_->error(), GetParam().reading_refused);
    EXPECT_EQ(byte, 'x');
    EXPECT_TRUE(io_->write("still usable", 12));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored("a"), "still usable");
}

TEST_P(Reading, ModeRefusesWritesAndGoesOnReading)
{
    misuses({"write of a file that is open for reading"});
    store("a", "contents");
    ASSERT_TRUE(open("a"));
    EXPECT_FALSE(io_->write("x", 1));
    EXPECT_EQ(io_->error(), GetParam().writing_refused);
    EXPECT_EQ(read_rest(), "contents");
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored("a"), "contents");
}

} // namespace
