#include "client_io/pipe_io.h"
#include "tests/support/recording_io.h"

#include <cstring>
#include <gtest/gtest.h>

namespace
{

/// Hands out blocks of its own memory, which skip() may change.
class Block_IO : public Pipe_IO
{
public:
    explicit Block_IO(std::vector<std::string> blocks)
        : Pipe_IO(nullptr), blocks_(std::move(blocks))
    {}

    bool read(const void*& data, std::uint64_t& size) override
    {
        ++reads;
        if (next_ == fail_at)
            return false;
        size = 0;
        data = nullptr;
        if (next_ < blocks_.size()) {
            data = block().data();
            size = block().size();
            ++next_;
        }
        return true;
    }

    std::int64_t read(void* buf, std::uint64_t size) override
    {
        // A loop that makes no progress is ended, so that its test fails instead of hanging.
        if (++reads > most_reads || next_ == fail_at)
            return -1;
        if (next_ >= blocks_.size())
            return 0;
        const std::uint64_t n = std::min<std::uint64_t>(size, block().size());
        std::memcpy(buf, block().data(), n);
        block().erase(0, n);
        if (block().empty())
            ++next_;
        return static_cast<std::int64_t>(n);
    }

    /// The block handed out last.
    const std::string& last() const { return blocks_[next_ - 1]; }

    static constexpr int most_reads = 100;
    int reads = 0;
    std::size_t fail_at = ~std::size_t{0};

private:
    std::string& block() { return blocks_[next_]; }

    std::vector<std::string> blocks_;
    std::size_t next_ = 0;
};

TEST(Skip, Of10BytesOverBlocksOf4And8Returns2AndMovesThemToTheStart)
{
    Block_IO io({"0123", "456789AB"});
    EXPECT_EQ(io.skip(10), 2);
    EXPECT_EQ(io.last(), "AB6789AB");
    EXPECT_EQ(io.reads, 2);
}

TEST(Skip, Of10BytesOverBlocksOf4And6Returns0)
{
    Block_IO io({"0123", "456789", "next"});
    EXPECT_EQ(io.skip(10), 0);
    EXPECT_EQ(io.reads, 2);
}

TEST(Skip, OfNothingReadsNothing)
{
    Block_IO io({"0123"});
    EXPECT_EQ(io.skip(0), 0);
    EXPECT_EQ(io.reads, 0);
}

TEST(Skip, MovesOverlappingBytesCorrectly)
{
    Block_IO io({"0123456789"});
    EXPECT_EQ(io.skip(3), 7);
    EXPECT_EQ(io.last().substr(0, 7), "3456789");
}

TEST(Skip, PastTheEndOfTheInputFails)
{
    Block_IO io({"0123", "456"});
    EXPECT_EQ(io.skip(8), -1);
    Block_IO empty({});
    EXPECT_EQ(empty.skip(1), -1);
}

TEST(Skip, FailsWhenAReadFails)
{
    Block_IO io({"0123", "4567"});
    io.fail_at = 1;
    EXPECT_EQ(io.skip(6), -1);
}

TEST(Skip, ThroughTheLowerLayerLeavesTheRestAtTheBlocksStart)
{
    const auto log = std::make_shared<Recording>();
    log->blocks = {"0123", "456789AB"};
    Pipe_IO io(std::make_unique<Recording_IO>(log));
    EXPECT_EQ(io.skip(10), 2);
    EXPECT_EQ(log->block.substr(0, 2), "AB");
    EXPECT_EQ(log->count("read_block()"), 2U);
}

TEST(Skip_Into_A_Buffer, ReadsAtMostTheBuffersSizeAtOnce)
{
    char buffer[4];
    Block_IO io({"0123456789"});
    EXPECT_TRUE(io.skip(10, buffer, sizeof buffer));
    EXPECT_EQ(io.reads, 3);
    EXPECT_EQ(std::string(buffer, 2), "89");
}

TEST(Skip_Into_A_Buffer, StopsExactlyBehindTheSkippedBytes)
{
    char buffer[64];
    Block_IO io({"0123456789"});
    EXPECT_TRUE(io.skip(3, buffer, sizeof buffer));
    EXPECT_EQ(io.read(buffer, 64), 7);
    EXPECT_EQ(std::string(buffer, 7), "3456789");
}

TEST(Skip_Into_A_Buffer, OfNothingSucceedsWithoutReading)
{
    Block_IO io({});
    EXPECT_TRUE(io.skip(0, nullptr, 0));
    EXPECT_EQ(io.reads, 0);
}

TEST(Skip_Into_A_Buffer, FailsWhenAReadBringsLessThanAskedFor)
{
    char buffer[8];
    Block_IO short_block({"01234", "56789"});
    EXPECT_FALSE(short_block.skip(8, buffer, 8));
    EXPECT_EQ(short_block.reads, 1);
    Block_IO ended({"0123"});
    EXPECT_FALSE(ended.skip(8, buffer, 4));
}

TEST(Skip_Into_A_Buffer, FailsWhenAReadFails)
{
    char buffer[8];
    Block_IO io({"0123", "4567"});
    io.fail_at = 1;
    EXPECT_FALSE(io.skip(8, buffer, 4));
}

TEST(Skip_Into_A_Buffer, OfNoSizeFailsInsteadOfLoopingForEver)
{
    char buffer[1];
    Block_IO io({"0123"});
    EXPECT_FALSE(io.skip(4, buffer, 0));
    EXPECT_LE(io.reads, 1);
}

} // namespace
