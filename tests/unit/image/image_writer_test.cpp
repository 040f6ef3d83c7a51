#include "platform/image/image_writer.h"

#include "platform/image/image_format.h"
#include "tests/support/allocation_count.h"
#include "tests/support/fake_clock.h"
#include "tests/unit/image/image_bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

namespace
{

using qovr::Image_Options;
using qovr::Image_Writer;
using testing::ElementsAre;

constexpr std::uint64_t two_to_32 = std::uint64_t{1} << 32U;
constexpr std::uint64_t two_to_63 = std::uint64_t{1} << 63U;
/// Records in a descriptor block of 512 bytes.
constexpr std::uint64_t small_capacity = (512 - 64) / 16;

std::int64_t write_text(Image_Writer& writer, const std::string& text)
{
    return writer.write_data(text.data(), text.size());
}

/// A writer of small_options() behind its header.
class Image_Writer_Test : public testing::Test
{
protected:
    Image_Writer_Test() { begin(small_options()); }

    void begin(const Image_Options& options)
    {
        EXPECT_TRUE(writer_.set_options(options));
        EXPECT_TRUE(writer_.write_descriptor_header(0, "SDD1"));
    }
    std::int64_t record(std::uint64_t offset, std::uint64_t count)
    {
        return writer_.write_descriptor_record(offset, count);
    }
    /// The records of the image so far, by descriptor block.
    std::vector<std::vector<Range>> descriptors() const
    {
        std::vector<std::vector<Range>> result;
        for (const Descriptor_Place& place : descriptor_places(writer_.image)) {
            result.emplace_back();
            const auto records = number_at(writer_.image, place.at + descriptor_field::records, 4);
            for (std::size_t i = 0; i < records; ++i) {
                const std::size_t at = place.at + descriptor_field::first_record + 16 * i;
                result.back().push_back(
                    {number_at(writer_.image, at, 8), number_at(writer_.image, at + 8, 8)});
            }
        }
        return result;
    }

    String_Image_Writer writer_;
};

TEST(Image_Writer_Options, DefaultsAreBlocksOf64KiBAndNoExtraArea)
{
    String_Image_Writer writer;
    EXPECT_EQ(writer.state(), 1);
    EXPECT_EQ(writer.data_block_size(), 65536U);
    ASSERT_TRUE(writer.write_descriptor_header(0, "SDD1"));
    EXPECT_EQ(writer.state(), 2);
    ASSERT_EQ(writer.image.size(), 512U);
    EXPECT_EQ(writer.image.substr(0, 8), "CIOIMAGE");
    EXPECT_EQ(number_at(writer.image, image_field::data_block_size, 4), 65536U);
    EXPECT_EQ(number_at(writer.image, image_field::descriptor_block_size, 4), 65536U);
    EXPECT_EQ(number_at(writer.image, image_field::source_size, 8), 0U);
    EXPECT_EQ(number_at(writer.image, image_field::data_blocks, 8), qovr::unknown_block_count);
    EXPECT_EQ(number_at(writer.image, image_field::extra_size, 4), 0U);
    EXPECT_EQ(number_at(writer.image, image_field::extra_checksum, 4), 0U);
}

TEST(Image_Writer_Options, EachImageHasAnIdOfItsOwn)
{
    String_Image_Writer a;
    String_Image_Writer b;
    ASSERT_TRUE(a.write_descriptor_header(0, "SDD1"));
    ASSERT_TRUE(b.write_descriptor_header(0, "SDD1"));
    EXPECT_NE(a.id(), qovr::Image_Id{});
    EXPECT_NE(a.id(), b.id());
    EXPECT_EQ(a.image.substr(image_field::id, 16), std::string(a.id().begin(), a.id().end()));
}

TEST(Image_Writer_Options, WhatIsGivenStandsInTheSuperBlock)
{
    Image_Options options = small_options();
    options.data_block_size = 4096;
    options.descriptor_block_size = 1024;
    options.source_size = 123456789;
    options.creation_time = -5;
    options.extra = std::string("extra\0\xFF", 7);
    String_Image_Writer writer;
    ASSERT_TRUE(writer.set_options(options));
    EXPECT_EQ(writer.data_block_size(), 4096U);
    EXPECT_EQ(writer.id(), options.id);
    writer.announce_data_blocks(7);
    ASSERT_TRUE(writer.write_descriptor_header(0, "SDD1"));
    ASSERT_EQ(writer.write_descriptor_record(0, 7), 7);
    ASSERT_EQ(writer.write_descriptor_record(0, 0), 0);
    ASSERT_TRUE(writer.write_data_due(7));

    Parse_Log log;
    EXPECT_TRUE(parse_image(writer.image, log).whole);
    EXPECT_EQ(log.superblock.id, options.id);
    EXPECT_EQ(log.superblock.data_blk_size, 4096U);
    EXPECT_EQ(log.superblock.desc_blk_size, 1024U);
    EXPECT_EQ(log.superblock.source_size, 123456789U);
    EXPECT_EQ(log.superblock.creation_time, -5);
    EXPECT_EQ(log.superblock.data_blocks, 7U);
    EXPECT_EQ(log.superblock.extra_size, 7U);
    EXPECT_THAT(log.events, ElementsAre("superblock", "extra " + options.extra, "header 7",
                                        "record 0 7", "data"));
}

TEST(Image_Writer_Options, WithoutACreationTimeTheClockGivesIt)
{
    Fake_Clock clock;
    clock.wall_start = Clock::Wall_Time(std::chrono::seconds(1700000000));
    String_Image_Writer writer;
    ASSERT_TRUE(writer.write_descriptor_header(0, "SDD1"));
    EXPECT_EQ(number_at(writer.image, 56, 8), 1700000000U);
}

TEST(Image_Writer_Options, BlockSizesArePowersOfTwoFrom512To16MiB)
{
    for (std::uint64_t size = 512; size <= 1U << 24U; size *= 2) {
        Image_Options options;
        options.data_block_size = size;
        EXPECT_TRUE(String_Image_Writer().set_options(options)) << size;
        options = {};
        options.descriptor_block_size = size;
        EXPECT_TRUE(String_Image_Writer().set_options(options)) << size;
    }
    for (const std::uint64_t size :
         {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{256}, std::uint64_t{511},
          std::uint64_t{513}, std::uint64_t{65535}, std::uint64_t{768}, std::uint64_t{1} << 25U,
          two_to_32, two_to_32 + 512, two_to_63, ~std::uint64_t{0}})
    {
        for (const auto member :
             {&Image_Options::data_block_size, &Image_Options::descriptor_block_size}) {
            Image_Options options;
            options.*member = size;
            String_Image_Writer writer;
            EXPECT_FALSE(writer.set_options(options)) << size;
            EXPECT_EQ(writer.data_block_size(), 0U);
            EXPECT_FALSE(writer.write_descriptor_header(0, "SDD1"));
            EXPECT_TRUE(writer.pieces.empty());
        }
    }
}

TEST(Image_Writer_Options, RefusedOptionsMayBeReplacedByGoodOnes)
{
    String_Image_Writer writer;
    Image_Options options = small_options();
    options.data_block_size = 1000;
    EXPECT_FALSE(writer.set_options(options));
    EXPECT_TRUE(writer.set_options(small_options()));
    EXPECT_EQ(writer.data_block_size(), 512U);
    EXPECT_TRUE(writer.write_descriptor_header(0, "SDD1"));
}

TEST(Image_Writer_Options, ASourceIsSmallerThanTwoTo63Bytes)
{
    Image_Options options = small_options();
    options.source_size = two_to_63 - 1;
    EXPECT_TRUE(String_Image_Writer().set_options(options));
    options.source_size = two_to_63;
    EXPECT_FALSE(String_Image_Writer().set_options(options));
}

TEST(Image_Writer_Options, AnExtraAreaLeavesRoomForOneRecord)
{
    Image_Options options = small_options();
    options.extra = std::string(512 - 64 - 16, 'e');
    EXPECT_EQ(qovr::largest_image_extra(512), options.extra.size());
    const std::string image = written_image(options, {{{3, 1}}}, 1, false);
    EXPECT_EQ(image.size(), 512U + 512 + 512);
    Parse_Log log;
    EXPECT_TRUE(parse_image(image, log).whole);
    EXPECT_THAT(log.events, ElementsAre("superblock", "extra " + options.extra, "header 1",
                                        "record 3 1", "data"));
    options.extra += 'e';
    String_Image_Writer writer;
    EXPECT_FALSE(writer.set_options(options));
    EXPECT_EQ(writer.data_block_size(), 0U);
}

TEST_F(Image_Writer_Test, OptionsAreRefusedBehindTheHeaderAndChangeNothing)
{
    Image_Options options;
    options.data_block_size = 4096;
    EXPECT_FALSE(writer_.set_options(options));
    EXPECT_EQ(writer_.data_block_size(), 512U);
    EXPECT_EQ(record(0, 1), 1);
}

TEST(Image_Writer_Header, OnlyTheOneMagicAndVersionAreWritten)
{
    String_Image_Writer writer;
    EXPECT_FALSE(writer.write_descriptor_header(1, "SDD1"));
    EXPECT_FALSE(writer.write_descriptor_header(0, "SDD2"));
    EXPECT_FALSE(writer.write_descriptor_header(0, "SDD"));
    EXPECT_FALSE(writer.write_descriptor_header(0, "SDD1 "));
    EXPECT_FALSE(writer.write_descriptor_header(0, ""));
    EXPECT_FALSE(writer.write_descriptor_header(0, nullptr));
    EXPECT_TRUE(writer.pieces.empty());
    EXPECT_EQ(writer.state(), 1);
    EXPECT_TRUE(writer.write_descriptor_header(0, "SDD1"));
    EXPECT_FALSE(writer.write_descriptor_header(0, "SDD1")) << "there is one header";
    EXPECT_EQ(writer.image.size(), 512U);
}

TEST(Image_Writer_Header, WithoutMemoryFailsAndWritesNothing)
{
    for (std::size_t allowed = 0; allowed < 2; ++allowed) {
        String_Image_Writer writer;
        {
            const Allocation_Failure failure(allowed);
            EXPECT_FALSE(writer.write_descriptor_header(0, "SDD1"));
        }
        EXPECT_TRUE(writer.pieces.empty());
        EXPECT_TRUE(writer.write_descriptor_header(0, "SDD1")) << "memory may come back";
    }
}

TEST(Image_Writer_Order, NothingIsWrittenBeforeTheHeader)
{
    String_Image_Writer writer;
    EXPECT_EQ(writer.write_descriptor_record(0, 1), -1);
    EXPECT_EQ(writer.write_descriptor_record(0, 0), -1);
    EXPECT_FALSE(writer.end_batch());
    EXPECT_EQ(write_text(writer, "x"), -1);
    EXPECT_EQ(writer.state(), 1);
    EXPECT_TRUE(writer.pieces.empty());
}

TEST_F(Image_Writer_Test, DataAreRefusedWhileRecordsAreDue)
{
    EXPECT_EQ(record(5, 1), 1);
    EXPECT_EQ(write_text(writer_, std::string(512, 'x')), -1);
    EXPECT_EQ(writer_.state(), 2);
    EXPECT_EQ(writer_.image.size(), 512U);
}

TEST_F(Image_Writer_Test, RecordsAreRefusedWhileDataAreDue)
{
    EXPECT_EQ(record(5, 1), 1);
    EXPECT_EQ(record(0, 0), 0);
    EXPECT_EQ(writer_.state(), 3);
    EXPECT_EQ(record(6, 1), -1);
    EXPECT_EQ(record(0, 0), -1);
    EXPECT_FALSE(writer_.end_batch());
    EXPECT_FALSE(writer_.write_descriptor_header(0, "SDD1"));
    EXPECT_EQ(writer_.state(), 3);
    EXPECT_TRUE(writer_.write_data_due(1));
    EXPECT_EQ(writer_.state(), 4);
    EXPECT_EQ(descriptors(), (std::vector<std::vector<Range>>{{{5, 1}}}));
}

TEST_F(Image_Writer_Test, NothingStandsBehindTheEnd)
{
    EXPECT_EQ(record(5, 1), 1);
    EXPECT_EQ(record(0, 0), 0);
    EXPECT_TRUE(writer_.write_data_due(1));
    EXPECT_EQ(record(6, 1), -1);
    EXPECT_EQ(record(0, 0), -1);
    EXPECT_FALSE(writer_.end_batch());
    EXPECT_EQ(write_text(writer_, "x"), -1);
    EXPECT_FALSE(writer_.write_descriptor_header(0, "SDD1"));
    EXPECT_FALSE(writer_.set_options(small_options()));
    EXPECT_EQ(writer_.state(), 4);
    EXPECT_EQ(writer_.image.size(), 3U * 512);
}

TEST_F(Image_Writer_Test, AnImageHoldsADataBlock)
{
    EXPECT_EQ(record(0, 0), -1);
    EXPECT_FALSE(writer_.end_batch());
    EXPECT_EQ(writer_.state(), 2);
}

TEST_F(Image_Writer_Test, ARecordOfNoBlocksIsRefusedAndNothingIsRecorded)
{
    EXPECT_EQ(record(5, 0), -1);
    EXPECT_EQ(writer_.state(), 2);
    EXPECT_EQ(record(6, 1), 1);
    EXPECT_EQ(record(0, 0), 0);
    EXPECT_TRUE(writer_.write_data_due(1));
    EXPECT_EQ(descriptors(), (std::vector<std::vector<Range>>{{{6, 1}}}));
}

TEST_F(Image_Writer_Test, ARunEndsWithinWhatOffsetsCanTell)
{
    constexpr std::uint64_t blocks = two_to_63 / 512;
    EXPECT_EQ(record(blocks, 1), -1);
    EXPECT_EQ(record(blocks - 1, 2), -1);
    EXPECT_EQ(record(~std::uint64_t{0}, 1), -1);
    EXPECT_EQ(record(1, ~std::uint64_t{0}), -1);
    EXPECT_EQ(record(0, ~std::uint64_t{0}), -1);
    EXPECT_EQ(record(1, blocks), -1);
    EXPECT_EQ(writer_.state(), 2);
    EXPECT_EQ(record(blocks - 1, 1), 1) << "the last byte's offset is 2^63 - 1";
}

TEST(Image_Writer_Source, ARunEndsWithinTheSourceWhoseLastBlockMayBeFilledUp)
{
    Image_Options options = small_options();
    options.source_size = 1025;
    String_Image_Writer writer;
    ASSERT_TRUE(writer.set_options(options));
    ASSERT_TRUE(writer.write_descriptor_header(0, "SDD1"));
    EXPECT_EQ(writer.write_descriptor_record(3, 1), -1);
    EXPECT_EQ(writer.write_descriptor_record(2, 2), -1);
    EXPECT_EQ(writer.write_descriptor_record(0, 4), -1);
    EXPECT_EQ(writer.write_descriptor_record(2, 1), 1);
    EXPECT_EQ(writer.write_descriptor_record(0, 3), 3);
}

TEST(Image_Writer_Announced, NoMoreAndNoFewerBlocksThanWereAnnounced)
{
    String_Image_Writer writer;
    ASSERT_TRUE(writer.set_options(small_options()));
    writer.announce_data_blocks(3);
    ASSERT_TRUE(writer.write_descriptor_header(0, "SDD1"));
    EXPECT_EQ(number_at(writer.image, image_field::data_blocks, 8), 3U);
    EXPECT_EQ(writer.write_descriptor_record(0, 4), -1);
    EXPECT_EQ(writer.write_descriptor_record(0, 2), 2);
    EXPECT_EQ(writer.write_descriptor_record(9, 2), -1);
    EXPECT_EQ(writer.write_descriptor_record(0, 0), -1);
    EXPECT_EQ(writer.state(), 2);
    EXPECT_EQ(writer.write_descriptor_record(9, 1), 1);
    EXPECT_EQ(writer.write_descriptor_record(10, 1), -1);
    EXPECT_EQ(writer.write_descriptor_record(0, 0), 0);
    EXPECT_TRUE(writer.write_data_due(3));
    EXPECT_EQ(refusal(writer.image), "");
}

TEST(Image_Writer_Announced, BehindTheHeaderItIsTooLate)
{
    String_Image_Writer writer;
    ASSERT_TRUE(writer.set_options(small_options()));
    writer.announce_data_blocks(3);
    ASSERT_TRUE(writer.write_descriptor_header(0, "SDD1"));
    writer.announce_data_blocks(2);
    ASSERT_EQ(writer.write_descriptor_record(0, 2), 2);
    EXPECT_EQ(writer.write_descriptor_record(0, 0), -1)
        << "the super block says that there are three";
}

TEST_F(Image_Writer_Test, TheSequenceOfAFullListIsRecordsThenDataThenRecords)
{
    for (std::uint64_t i = 0; i + 1 < small_capacity; ++i)
        ASSERT_EQ(record(2 * i, 1), 1);
    EXPECT_EQ(writer_.state(), 2);
    ASSERT_EQ(record(1000, 1), 1);
    EXPECT_EQ(writer_.state(), 3) << "full";
    EXPECT_EQ(writer_.image.size(), 512U) << "its descriptor block comes with the data";
    ASSERT_TRUE(writer_.write_data_due(small_capacity - 1));
    EXPECT_EQ(writer_.state(), 3);
    ASSERT_TRUE(writer_.write_data_due(1));
    EXPECT_EQ(writer_.state(), 2);
    EXPECT_EQ(number_at(writer_.image, 512 + descriptor_field::continuation, 2), 2U);
    EXPECT_EQ(refusal(writer_.image), "") << "it may stop here";
    EXPECT_EQ(record(2000, 1), 1);
    EXPECT_EQ(record(0, 0), 0);
    ASSERT_TRUE(writer_.write_data_due(1));
    EXPECT_EQ(writer_.state(), 4);
    EXPECT_EQ(refusal(writer_.image), "");
    EXPECT_EQ(descriptors().size(), 2U);
}

TEST_F(Image_Writer_Test, AListThatWasFullMayBeEndedBehindItsData)
{
    for (std::uint64_t i = 0; i < small_capacity; ++i)
        ASSERT_EQ(record(2 * i, 1), 1);
    ASSERT_TRUE(writer_.write_data_due(small_capacity));
    EXPECT_EQ(record(0, 0), 0);
    EXPECT_EQ(writer_.state(), 3);
    EXPECT_EQ(write_text(writer_, "x"), -1);
    EXPECT_EQ(writer_.write_data(nullptr, 0), 0);
    EXPECT_EQ(writer_.state(), 4);
    EXPECT_EQ(refusal(writer_.image), "");
}

TEST_F(Image_Writer_Test, BatchesMayBeEndedEarly)
{
    EXPECT_EQ(record(0, 1), 1);
    EXPECT_TRUE(writer_.end_batch());
    EXPECT_EQ(writer_.state(), 3);
    EXPECT_TRUE(writer_.write_data_due(1));
    EXPECT_EQ(writer_.state(), 2);
    EXPECT_EQ(number_at(writer_.image, 512 + descriptor_field::continuation, 2), 0U);
    EXPECT_EQ(refusal(writer_.image), "incomplete") << "more was to follow";
    EXPECT_FALSE(writer_.end_batch()) << "there is nothing in it";
    EXPECT_EQ(record(0, 1), 1);
    EXPECT_EQ(record(0, 0), 0);
    EXPECT_TRUE(writer_.write_data_due(1));
    EXPECT_EQ(refusal(writer_.image), "");
}

TEST_F(Image_Writer_Test, AListIsNotEndedBehindABatchThatSaysMoreFollows)
{
    EXPECT_EQ(record(0, 1), 1);
    EXPECT_TRUE(writer_.end_batch());
    EXPECT_TRUE(writer_.write_data_due(1));
    EXPECT_EQ(record(0, 0), -1) << "the image would be refused by every reader";
}

TEST(Image_Writer_Announced, ABatchIsNotEndedEarlyWhenAllBlocksAreRecorded)
{
    String_Image_Writer writer;
    ASSERT_TRUE(writer.set_options(small_options()));
    writer.announce_data_blocks(1);
    ASSERT_TRUE(writer.write_descriptor_header(0, "SDD1"));
    ASSERT_EQ(writer.write_descriptor_record(0, 1), 1);
    EXPECT_FALSE(writer.end_batch()) << "nothing can follow";
    EXPECT_EQ(writer.write_descriptor_record(0, 0), 0);
}

TEST_F(Image_Writer_Test, RecordsOutOfOrderBecomeSeveralDescriptorBlocks)
{
    EXPECT_EQ(record(10, 2), 2);
    EXPECT_EQ(record(12, 1), 1); // touches
    EXPECT_EQ(record(12, 1), 1); // the same again
    EXPECT_EQ(record(20, 1), 1);
    EXPECT_EQ(record(5, 3), 3);
    EXPECT_EQ(record(7, 1), 1); // overlaps
    EXPECT_EQ(record(0, 0), 0);
    // In pieces that end nowhere in particular.
    const std::string data(9 * 512, 'd');
    EXPECT_EQ(writer_.write_data(data.data(), 700), 700);
    EXPECT_EQ(writer_.state(), 3);
    EXPECT_EQ(writer_.write_data(data.data(), data.size() - 700), 9 * 512 - 700);
    EXPECT_EQ(writer_.state(), 4);
    EXPECT_EQ(descriptors(), (std::vector<std::vector<Range>>{
                                 {{10, 2}, {12, 1}}, {{12, 1}, {20, 1}}, {{5, 3}}, {{7, 1}}}));
    EXPECT_EQ(refusal(writer_.image), "");
    std::vector<std::uint64_t> continuations;
    for (const Descriptor_Place& place : descriptor_places(writer_.image))
        continuations.push_back(
            number_at(writer_.image, place.at + descriptor_field::continuation, 2));
    EXPECT_THAT(continuations, ElementsAre(0, 0, 0, 1));
}

TEST_F(Image_Writer_Test, AFullListOutOfOrderMayStopInItsLastDescriptorBlockOnly)
{
    for (std::uint64_t i = 0; i < small_capacity; ++i)
        ASSERT_EQ(record(100 - i, 1), 1);
    ASSERT_TRUE(writer_.write_data_due(small_capacity));
    const auto places = descriptor_places(writer_.image);
    ASSERT_EQ(places.size(), small_capacity);
    for (std::size_t i = 0; i < places.size(); ++i) {
        const auto number = [&](std::size_t field, std::size_t width) {
            return number_at(writer_.image, places[i].at + field, width);
        };
        EXPECT_EQ(number(descriptor_field::sequence, 8), i);
        EXPECT_EQ(number(descriptor_field::continuation, 2), i + 1 == places.size() ? 2U : 0U);
        EXPECT_EQ(writer_.image.substr(places[i].at + descriptor_field::id, 16),
                  std::string(16, '\xA5'));
    }
}

TEST_F(Image_Writer_Test, MoreDataThanAreDueAreRefusedWhole)
{
    EXPECT_EQ(record(0, 2), 2);
    EXPECT_EQ(record(0, 0), 0);
    const std::string data(1025, 'd');
    EXPECT_EQ(writer_.write_data(data.data(), 1025), -1);
    EXPECT_EQ(writer_.image.size(), 512U) << "nothing of it is written";
    EXPECT_EQ(writer_.write_data(data.data(), ~std::uint64_t{0}), -1);
    EXPECT_EQ(writer_.write_data(data.data(), 1000), 1000);
    EXPECT_EQ(writer_.write_data(data.data(), 25), -1);
    EXPECT_EQ(writer_.write_data(data.data(), 24), 24);
    EXPECT_EQ(writer_.state(), 4);
    EXPECT_EQ(refusal(writer_.image), "");
}

TEST_F(Image_Writer_Test, APieceOfNoBytesChangesNothing)
{
    EXPECT_EQ(record(0, 1), 1);
    EXPECT_EQ(record(0, 0), 0);
    EXPECT_EQ(writer_.write_data(nullptr, 0), 0);
    EXPECT_EQ(writer_.state(), 3);
    EXPECT_EQ(writer_.image.size(), 512U);
}

TEST_F(Image_Writer_Test, DataAreHandedOnFromTheCallersBuffer)
{
    EXPECT_EQ(record(0, 2), 2);
    EXPECT_EQ(record(0, 0), 0);
    const std::string data(1024, 'd');
    EXPECT_EQ(writer_.write_data(data.data(), 1024), 1024);
    ASSERT_EQ(writer_.pieces.size(), 3U) << "super block, descriptor block, data";
    EXPECT_EQ(writer_.pieces[2].first, data.data());
    EXPECT_EQ(writer_.pieces[2].second, 1024U);
}

TEST_F(Image_Writer_Test, ABatchTakesNoMoreBlocksThanItsHeaderCanCount)
{
    EXPECT_EQ(record(0, two_to_32), static_cast<std::int64_t>(two_to_32 - 1));
    EXPECT_EQ(writer_.state(), 3) << "full";
    EXPECT_EQ(record(two_to_32 - 1, 1), -1);
    EXPECT_EQ(write_text(writer_, std::string(512, 'd')), 512);
    EXPECT_EQ(number_at(writer_.image, 512 + descriptor_field::data_blocks, 4), two_to_32 - 1);
    EXPECT_EQ(number_at(writer_.image, 512 + descriptor_field::records, 4), 1U);
    EXPECT_EQ(number_at(writer_.image, 512 + descriptor_field::first_record + 8, 8), two_to_32 - 1);
    EXPECT_EQ(number_at(writer_.image, 512 + descriptor_field::continuation, 2), 2U);
}

TEST_F(Image_Writer_Test, SeveralRecordsReachTheBoundOfABatch)
{
    EXPECT_EQ(record(0, two_to_32 - 3), static_cast<std::int64_t>(two_to_32 - 3));
    EXPECT_EQ(writer_.state(), 2);
    EXPECT_EQ(record(two_to_32, 1), 1);
    EXPECT_EQ(writer_.state(), 2);
    EXPECT_EQ(record(two_to_32 + 5, 100), 1);
    EXPECT_EQ(writer_.state(), 3);
}

TEST_F(Image_Writer_Test, AnOutputThatFailsLeavesTheWriterFailed)
{
    // Super block, descriptor block, two data blocks: the output ends in each of them.
    for (const std::uint64_t room : {0, 511, 512, 1000, 1024, 1500}) {
        SCOPED_TRACE(room);
        String_Image_Writer writer;
        ASSERT_TRUE(writer.set_options(small_options()));
        writer.room = room;
        const bool header = writer.write_descriptor_header(0, "SDD1");
        EXPECT_EQ(header, room >= 512);
        if (header) {
            EXPECT_EQ(writer.write_descriptor_record(0, 2), 2);
            EXPECT_EQ(writer.write_descriptor_record(0, 0), 0);
            EXPECT_EQ(write_text(writer, std::string(1024, 'd')), -1);
        }
        EXPECT_EQ(writer.state(), 8);
        writer.room = ~std::uint64_t{0};
        writer.pieces.clear();
        EXPECT_FALSE(writer.set_options(small_options()));
        EXPECT_FALSE(writer.write_descriptor_header(0, "SDD1"));
        EXPECT_EQ(writer.write_descriptor_record(0, 1), -1);
        EXPECT_EQ(writer.write_descriptor_record(0, 0), -1);
        EXPECT_FALSE(writer.end_batch());
        EXPECT_EQ(write_text(writer, "d"), -1);
        EXPECT_EQ(writer.write_data(nullptr, 0), -1);
        EXPECT_EQ(writer.state(), 8);
        EXPECT_TRUE(writer.pieces.empty());
    }
}

TEST(Image_Checksum, IsCRC32C)
{
    const auto checksum = [](const std::string& text) {
        return qovr::image_checksum(
            {reinterpret_cast<const unsigned char*>(text.data()), text.size()});
    };
    EXPECT_EQ(checksum("123456789"), 0xE3069283U);
    EXPECT_EQ(checksum(""), 0U);
    // RFC 3720, appendix B.4.
    EXPECT_EQ(checksum(std::string(32, '\0')), 0x8A9136AAU);
    EXPECT_EQ(checksum(std::string(32, '\xFF')), 0x62A8AB43U);
    std::string ascending;
    for (char c = 0; c < 32; ++c)
        ascending += c;
    EXPECT_EQ(checksum(ascending), 0x46DD794EU);
    EXPECT_EQ(slow_crc32c(ascending), 0x46DD794EU);
}

} // namespace
