#include "tests/support/virtual_slots.h"
#include "tests/unit/image/image_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

qovr::Image_Superblock superblock(std::uint64_t data_block_size, std::uint64_t desc_block_size)
{
    qovr::Image_Superblock super;
    super.data_blk_size = data_block_size;
    super.desc_blk_size = desc_block_size;
    return super;
}

qovr::Image_Descriptor_Header header(std::uint32_t data_blocks)
{
    qovr::Image_Descriptor_Header result;
    result.data_blocks = data_blocks;
    return result;
}

/// A reader that notes what its hooks are told, and answers as it is told.
class Noting_Reader : public Image_Block_Reader
{
public:
    bool handle_superblock(const qovr::Image_Parser::Superblock& super) override
    {
        notes.push_back("superblock " + std::to_string(super.data_blk_size));
        return answer;
    }
    bool handle_superblock_extra(const void* data, std::uint64_t size) override
    {
        notes.push_back("extra " + std::string(static_cast<const char*>(data), size));
        return answer;
    }
    bool handle_descriptor_header(const qovr::Image_Parser::Descriptor_Header& head) override
    {
        notes.push_back("header " + std::to_string(head.data_blocks));
        return answer;
    }

    std::vector<std::string> notes;
    bool answer = true;
};

/// A callback with blocks of 10 bytes, which no image has but every sum shows.
class Image_Block_Callback : public testing::Test
{
protected:
    void see_superblock() { ASSERT_TRUE(callback_.handle_superblock(superblock(10, 512))); }
    bool give(const std::string& bytes)
    {
        return callback_.handle_data(bytes.data(), bytes.size());
    }
    std::vector<std::string> messages() const { return logged(log_, "image_block_reader"); }

    Noting_Reader reader_;
    std::vector<Piece> pieces_;
    Image_Block_Reader::Handler handler_ = into(pieces_);
    Image_Block_Reader::Callback callback_{&reader_, &handler_};
    Log_Capture log_;
};

TEST_F(Image_Block_Callback, SizesAreUnknownBeforeTheSuperBlock)
{
    EXPECT_EQ(callback_.data_block_bytes(), 0U);
    EXPECT_EQ(callback_.desc_block_bytes(), 0U);
    EXPECT_EQ(callback_.data_blocks(), 0U);
}

TEST_F(Image_Block_Callback, TheSuperBlockGivesTheSizesAndIsPassedOn)
{
    EXPECT_TRUE(callback_.handle_superblock(superblock(4096, 1024)));
    EXPECT_EQ(callback_.data_block_bytes(), 4096U);
    EXPECT_EQ(callback_.desc_block_bytes(), 1024U);
    EXPECT_THAT(reader_.notes, ElementsAre("superblock 4096"));
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(Image_Block_Callback, ASuperBlockWithoutASizeIsRefusedAndNotPassedOn)
{
    EXPECT_FALSE(callback_.handle_superblock(superblock(0, 512)));
    EXPECT_FALSE(callback_.handle_superblock(superblock(512, 0)));
    EXPECT_FALSE(callback_.handle_superblock(superblock(0, 0)));
    EXPECT_THAT(messages(),
                ElementsAre("emergency: Unexpected error in %N:%l, super.data_blk_size=0 <= 0:\n",
                            "emergency: Unexpected error in %N:%l, super.desc_blk_size=0 <= 0:\n",
                            "emergency: Unexpected error in %N:%l, super.data_blk_size=0 <= 0:\n"));
    EXPECT_THAT(reader_.notes, IsEmpty());
    EXPECT_EQ(callback_.data_block_bytes(), 0U);
    EXPECT_EQ(callback_.desc_block_bytes(), 0U);
}

TEST_F(Image_Block_Callback, TheHooksAnswersAreItsOwn)
{
    for (const bool answer : {false, true}) {
        reader_.answer = answer;
        EXPECT_EQ(callback_.handle_superblock(superblock(10, 512)), answer);
        EXPECT_EQ(callback_.handle_superblock_extra("extra", 5), answer);
        EXPECT_EQ(callback_.handle_descriptor_header(header(3)), answer);
        EXPECT_EQ(callback_.data_blocks(), 3U);
    }
    EXPECT_THAT(reader_.notes, ElementsAre("superblock 10", "extra extra", "header 3",
                                           "superblock 10", "extra extra", "header 3"));
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(Image_Block_Callback, TheBaseHooksSayYes)
{
    Image_Block_Reader reader;
    EXPECT_TRUE(reader.handle_superblock(superblock(0, 0)));
    EXPECT_TRUE(reader.handle_superblock_extra(nullptr, 0));
    EXPECT_TRUE(reader.handle_descriptor_header(header(0)));
}

TEST_F(Image_Block_Callback, AHeaderWhileExtentsWaitForDataIsRefused)
{
    see_superblock();
    EXPECT_TRUE(callback_.handle_descriptor_header(header(2)));
    EXPECT_TRUE(callback_.handle_descriptor_record(0, 2));
    EXPECT_TRUE(give("0123456789"));
    reader_.notes.clear();
    EXPECT_FALSE(callback_.handle_descriptor_header(header(7)));
    EXPECT_THAT(messages(), ElementsAre("emergency: Unexpected error in %N:%l, blocks_.empty() is "
                                        "false:\n"));
    EXPECT_EQ(callback_.data_blocks(), 2U);
    EXPECT_THAT(reader_.notes, IsEmpty());
    EXPECT_TRUE(give("0123456789"));
    EXPECT_TRUE(callback_.handle_descriptor_header(header(7)));
    EXPECT_EQ(callback_.data_blocks(), 7U);
}

TEST_F(Image_Block_Callback, ARecordBeforeTheSuperBlockIsRefused)
{
    EXPECT_FALSE(callback_.handle_descriptor_record(0, 1));
    EXPECT_THAT(messages(),
                ElementsAre("emergency: Unexpected error in %N:%l, data_block_bytes_=0 <= 0:\n"));
}

TEST_F(Image_Block_Callback, DataBeforeTheSuperBlockAreRefused)
{
    EXPECT_FALSE(give("x"));
    EXPECT_THAT(messages(),
                ElementsAre("emergency: Unexpected error in %N:%l, data_block_bytes_=0 <= 0:\n"));
    EXPECT_THAT(pieces_, IsEmpty());
}

TEST_F(Image_Block_Callback, DataWithoutARecordAreRefused)
{
    see_superblock();
    EXPECT_FALSE(give("x"));
    EXPECT_THAT(messages(),
                ElementsAre("emergency: Unexpected error in %N:%l, blocks_ is empty:\n"));
    EXPECT_THAT(pieces_, IsEmpty());
}

TEST_F(Image_Block_Callback, DataBeyondTheRecordsAreRefused)
{
    see_superblock();
    EXPECT_TRUE(callback_.handle_descriptor_record(3, 1));
    EXPECT_FALSE(give("0123456789X"));
    EXPECT_THAT(messages(),
                ElementsAre("error: Failed to parse image, data block records run out.\n"));
    EXPECT_THAT(pieces_, ElementsAre(Piece{30, "0123456789"})) << "what was announced is delivered";
}

TEST_F(Image_Block_Callback, RunsThatTouchAreOneExtent)
{
    see_superblock();
    EXPECT_TRUE(callback_.handle_descriptor_record(1, 1));
    EXPECT_TRUE(callback_.handle_descriptor_record(2, 1));
    EXPECT_TRUE(give("0123456789abcdefghij"));
    EXPECT_THAT(pieces_, ElementsAre(Piece{10, "0123456789abcdefghij"}));
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(Image_Block_Callback, PiecesDoNotSpanExtentsThatDoNotTouch)
{
    see_superblock();
    EXPECT_TRUE(callback_.handle_descriptor_record(1, 1));
    EXPECT_TRUE(callback_.handle_descriptor_record(3, 1));
    EXPECT_TRUE(give("01234"));
    EXPECT_TRUE(give("56789abc"));
    EXPECT_TRUE(give("defghij"));
    EXPECT_THAT(pieces_, ElementsAre(Piece{10, "01234"}, Piece{15, "56789"}, Piece{30, "abc"},
                                     Piece{33, "defghij"}));
}

TEST_F(Image_Block_Callback, ARecordThatStartsInsideTheLastExtentIsAbsorbed)
{
    see_superblock();
    EXPECT_TRUE(callback_.handle_descriptor_record(1, 3));
    EXPECT_TRUE(callback_.handle_descriptor_record(2, 1)) << "wholly inside: nothing changes";
    EXPECT_TRUE(callback_.handle_descriptor_record(2, 3)) << "one block further";
    EXPECT_TRUE(callback_.handle_descriptor_record(9, 1));
    const std::string inside(40, 'i');
    EXPECT_TRUE(give(inside + "0123456789"));
    EXPECT_THAT(pieces_, ElementsAre(Piece{10, inside}, Piece{90, "0123456789"}));
}

TEST_F(Image_Block_Callback, ARecordThatStartsBeforeTheLastExtentAndEndsBehindItMakesItLonger)
{
    see_superblock();
    EXPECT_TRUE(callback_.handle_descriptor_record(5, 1));
    EXPECT_TRUE(callback_.handle_descriptor_record(3, 5));
    EXPECT_FALSE(give(std::string(31, 'x')));
    EXPECT_THAT(pieces_, ElementsAre(Piece{50, std::string(30, 'x')}));
}

TEST_F(Image_Block_Callback, ARecordBeforeTheLastExtentChangesNothing)
{
    see_superblock();
    EXPECT_TRUE(callback_.handle_descriptor_record(5, 1));
    EXPECT_TRUE(callback_.handle_descriptor_record(0, 1));
    EXPECT_FALSE(give("0123456789X")) << "there is one block of records";
    EXPECT_THAT(pieces_, ElementsAre(Piece{50, "0123456789"}));
    EXPECT_THAT(messages(),
                ElementsAre("error: Failed to parse image, data block records run out.\n"));
}

TEST_F(Image_Block_Callback, AHandlerThatRefusesStops)
{
    see_superblock();
    EXPECT_TRUE(callback_.handle_descriptor_record(1, 1));
    EXPECT_TRUE(callback_.handle_descriptor_record(3, 1));
    int calls = 0;
    handler_ = [&](const void*, std::uint64_t, std::int64_t) { return ++calls < 1; };
    EXPECT_FALSE(give("0123456789abcdefghij"));
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(messages(), IsEmpty()) << "the parser tells it";
}

TEST_F(Image_Block_Callback, NoDataAreNoFailureOnceThereAreRecords)
{
    see_superblock();
    EXPECT_TRUE(callback_.handle_descriptor_record(1, 1));
    EXPECT_TRUE(callback_.handle_data(nullptr, 0));
    EXPECT_THAT(pieces_, IsEmpty());
}

TEST(Image_Block_Slots, StandInTheirOrder)
{
    using Callback = qovr::Image_Parser::Callback;
    EXPECT_EQ(slot_of(&Image_Block_Reader::handle_superblock), 2);
    EXPECT_EQ(slot_of(&Image_Block_Reader::handle_superblock_extra), 3);
    EXPECT_EQ(slot_of(&Image_Block_Reader::handle_descriptor_header), 4);
    EXPECT_EQ(slot_count<Image_Block_Reader>(), 5);
    EXPECT_EQ(slot_of(&Callback::handle_superblock), 2);
    EXPECT_EQ(slot_of(&Callback::handle_superblock_extra), 3);
    EXPECT_EQ(slot_of(&Callback::handle_descriptor_header), 4);
    EXPECT_EQ(slot_of(&Callback::handle_descriptor_record), 5);
    EXPECT_EQ(slot_of(&Callback::handle_data), 6);
    EXPECT_EQ(slot_of(&Image_Client_IO_Writer::overflow), 2);
}

} // namespace
