#include "tests/support/log_capture.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <gtest/gtest.h>

// However writes and reads are cut, the bytes are the same.

namespace
{

/// Lengths at the edges of the transforms' buffers.
constexpr std::size_t edges[] = {65535,  65536,  65537,  131071, 131072, 131073, 262143, 262144,
                                 262145, 262175, 262176, 262177, 524287, 524288, 524289};

class Codec_Cuts : public testing::TestWithParam<Kind>
{
protected:
    /// Holds @p cut parts against the one piece.
    void expect_same(std::size_t cut)
    {
        const std::string again = encoded(GetParam(), plain_, cut);
        EXPECT_TRUE(again == stored_) << "written in parts of " << cut;
        for (const Form form : {Form::copying, Form::zero_copy})
            EXPECT_EQ(decoded(GetParam(), stored_, form, cut), plain_)
                << "read in parts of " << cut;
    }

    void use(std::size_t size)
    {
        plain_ = sample_text(size);
        stored_ = encoded(GetParam(), plain_);
    }

    Log_Capture log_;
    std::string plain_;
    std::string stored_;
};

INSTANTIATE_TEST_SUITE_P(Of, Codec_Cuts, testing::ValuesIn(all_kinds()), kind_name);

TEST_P(Codec_Cuts, PartsOf1To300BytesGiveTheSameAsOnePiece)
{
    use(20011);
    for (std::size_t cut = 1; cut <= 300; ++cut)
        expect_same(cut);
}

TEST_P(Codec_Cuts, SmallPartsOfALongFileGiveTheSameAsOnePiece)
{
    use(550001);
    for (const std::size_t cut : {1U, 17U, 300U, 4095U})
        expect_same(cut);
}

TEST_P(Codec_Cuts, PartsAtTheEdgesOfBuffersGiveTheSameAsOnePiece)
{
    use(600000);
    for (const std::size_t cut : edges)
        expect_same(cut);
}

TEST_P(Codec_Cuts, FilesOfEveryLengthAreReadBack)
{
    for (std::size_t size = 0; size <= 300; ++size) {
        use(size);
        EXPECT_EQ(decoded(GetParam(), stored_, Form::copying), plain_) << size;
        EXPECT_EQ(decoded(GetParam(), stored_, Form::zero_copy, 1), plain_) << size;
    }
    for (const std::size_t size : edges) {
        use(size);
        EXPECT_EQ(decoded(GetParam(), stored_, Form::copying), plain_) << size;
        EXPECT_EQ(decoded(GetParam(), stored_, Form::zero_copy), plain_) << size;
    }
}

TEST_P(Codec_Cuts, EveryOffsetOfAFileIsReached)
{
    use(1000);
    Stacked stacked(GetParam());
    stacked.store->data = stored_;
    for (const std::size_t piece : {100000U, 7U}) {
        stacked.store->piece = piece;
        for (std::size_t offset = 0; offset <= plain_.size(); ++offset)
            for (const Form form : {Form::copying, Form::zero_copy}) {
                ASSERT_TRUE(stacked.io->open("a", Client_IO_Base::mode_read, offset, 0));
                EXPECT_EQ(read_to_end(*stacked.io, form), plain_.substr(offset)) << offset;
                ASSERT_TRUE(stacked.io->close());
            }
    }
}

} // namespace
