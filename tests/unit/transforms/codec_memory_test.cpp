#include "tests/unit/transforms/transform_kinds.h"

#include <array>
#include <gtest/gtest.h>
#include <limits>
#include <new>

// Memory that runs out below in the midst of an operation fails it and all that follow: it neither
// ends a stream early nor loses a piece of it.

namespace
{

constexpr std::int64_t always = std::numeric_limits<std::int64_t>::max();

class Codec_Memory : public testing::TestWithParam<Kind>
{
protected:
    void let_memory_run_out_after(std::int64_t good)
    {
        store_.throws = true;
        store_.reads_left = store_.writes_left = good;
    }

    void have_memory_again()
    {
        store_.throws = false;
        store_.reads_left = store_.writes_left = always;
    }

    /// Reads in this form until memory runs out. @return false when it did not
    bool read_until_out_of_memory(Form form)
    {
        std::array<char, 4096> buffer{};
        const void* data = nullptr;
        std::uint64_t size = 1;
        try {
            while (size != 0)
                if (form == Form::zero_copy)
                    EXPECT_TRUE(io_.read(data, size)) << io_.error();
                else
                    size = static_cast<std::uint64_t>(io_.read(buffer.data(), buffer.size()));
        } catch (const std::bad_alloc&) {
            return true;
        }
        return false;
    }

    Stacked stacked_{GetParam()};
    Store& store_ = *stacked_.store;
    Codec_IO& io_ = *stacked_.io;
    const std::string plain_ = sample_text(300000);
};

INSTANTIATE_TEST_SUITE_P(Of, Codec_Memory, testing::ValuesIn(main_kinds()), kind_name);

TEST_P(Codec_Memory, AReadThatRanOutOfItIsFollowedByNoCleanEnd)
{
    const std::string stored = encoded(GetParam(), plain_);
    for (const Form form : {Form::copying, Form::zero_copy})
        for (const std::uint64_t offset : {0, 150000})
            for (const std::int64_t good : {0, 1, 2, 5}) {
                have_memory_again();
                store_.data = stored;
                store_.piece = stored.size() / 7;
                ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, offset, 0)) << io_.error();
                let_memory_run_out_after(good);
                EXPECT_TRUE(read_until_out_of_memory(form)) << good;
                have_memory_again();
                char byte = 0;
                const void* data = nullptr;
                std::uint64_t size = 0;
                EXPECT_EQ(io_.read(&byte, 1), -1) << good;
                EXPECT_FALSE(io_.read(data, size)) << good;
                EXPECT_EQ(size, 0U);
            }
}

TEST_P(Codec_Memory, AWriteThatRanOutOfItIsFollowedByNoSuccessfulClose)
{
    for (const std::int64_t good : {0, 1}) {
        have_memory_again();
        store_.data.clear();
        ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_write, 0, 0)) << io_.error();
        let_memory_run_out_after(good);
        const auto write_and_flush = [&] {
            while (io_.write(plain_.data(), plain_.size()) && io_.flush()) {
            }
        };
        EXPECT_THROW(write_and_flush(), std::bad_alloc) << good;
        have_memory_again();
        EXPECT_FALSE(io_.write("x", 1)) << good;
        EXPECT_FALSE(io_.flush()) << good;
        EXPECT_FALSE(io_.close()) << good;
    }
}

} // namespace
