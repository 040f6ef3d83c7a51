#include "platform/image/image_parser.h"

#include "tests/support/allocation_count.h"
#include "tests/support/log_capture.h"
#include "tests/unit/image/image_bytes.h"

#include <ace/Log_Priority.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using qovr::Image_Parser;
using testing::ElementsAre;

constexpr std::uint64_t two_to_63 = std::uint64_t{1} << 63U;

/// The reason for which the two-descriptor image is refused when a number of its super block is
/// another one.
std::string refusal_of_superblock(std::size_t at, std::size_t width, std::uint64_t number)
{
    std::string image = two_descriptor_image();
    put_number(image, at, width, number);
    seal_superblock(image);
    return refusal(image);
}

/// The same for a number of descriptor block @p which.
std::string refusal_of_descriptor(std::size_t which, std::size_t at, std::size_t width,
                                  std::uint64_t number)
{
    std::string image = two_descriptor_image();
    const Descriptor_Place place = descriptor_places(image).at(which);
    put_number(image, place.at + at, width, number);
    seal_descriptor(image, place);
    return refusal(image);
}

TEST(Image_Parser, ReportsWhatTheImageHoldsInItsOrder)
{
    qovr::Image_Options options = small_options();
    options.extra = "extra";
    const std::string image = written_image(options, {{{10, 1}, {12, 2}}, {{0, 1}}}, 4, true);
    for (const std::uint64_t piece : {std::uint64_t{1}, std::uint64_t{511}, std::uint64_t{512},
                                      std::uint64_t{513}, std::uint64_t{1000}, ~std::uint64_t{0}})
    {
        Parse_Log log;
        const Parse_Result result = parse_image(image, log, piece);
        EXPECT_TRUE(result.whole) << piece;
        EXPECT_EQ(result.state, 4);
        EXPECT_EQ(result.error, "");
        EXPECT_THAT(log.events,
                    ElementsAre("superblock", "extra extra", "header 3", "record 10 1",
                                "record 12 2", "data", "header 1", "record 0 1", "data"));
        EXPECT_EQ(log.data, std::string(512, 'a') + std::string(512, 'b') + std::string(512, 'c') +
                                std::string(512, 'd'));
        ASSERT_EQ(log.headers.size(), 2U);
        EXPECT_EQ(log.headers[0].records, 2U);
        EXPECT_EQ(log.headers[0].sequence, 0U);
        EXPECT_EQ(log.headers[0].continuation, qovr::Image_Continuation::more);
        EXPECT_EQ(log.headers[1].records, 1U);
        EXPECT_EQ(log.headers[1].sequence, 1U);
        EXPECT_EQ(log.headers[1].continuation, qovr::Image_Continuation::last);
        EXPECT_EQ(log.headers[1].id, options.id);
    }
}

TEST(Image_Parser, StatesTellWhatIsDue)
{
    const std::string image = two_descriptor_image();
    Parse_Log log;
    Image_Parser parser(&log, false, 0);
    std::uint64_t parsed = 0;
    const char* next = image.data();
    const auto parse = [&](std::uint64_t size) {
        EXPECT_TRUE(parser.parse(next, size, parsed));
        EXPECT_EQ(parsed, size);
        next += size;
        return parser.state();
    };
    EXPECT_EQ(parser.state(), 1);
    EXPECT_EQ(parse(0), 1);
    EXPECT_EQ(parse(511), 1);
    EXPECT_EQ(parse(1), 4);
    EXPECT_FALSE(parser.complete()) << "there is a descriptor block in every image";
    EXPECT_EQ(parse(0), 4);
    EXPECT_EQ(parse(1), 0x10);
    EXPECT_EQ(parse(510), 0x10);
    EXPECT_EQ(parse(1), 0x20);
    EXPECT_EQ(parse(511), 0x20);
    EXPECT_EQ(parse(1), 4);
    EXPECT_FALSE(parser.complete());
    EXPECT_EQ(parse(512), 0x20);
    EXPECT_EQ(parse(1023), 0x20);
    EXPECT_FALSE(parser.complete());
    EXPECT_EQ(parse(1), 4);
    EXPECT_TRUE(parser.complete());
    EXPECT_EQ(parse(0), 4);
    EXPECT_EQ(next, image.data() + image.size());
    EXPECT_FALSE(parser.parse("x", 1, parsed));
    EXPECT_EQ(parsed, 0U);
    EXPECT_EQ(parser.state(), 0x40);
    EXPECT_STREQ(parser.error(), "data behind the end of the image");
    EXPECT_FALSE(parser.complete());
}

TEST(Image_Parser, AfterAFailureEveryParseFailsAndReportsNothing)
{
    std::string image = two_descriptor_image();
    image[600] ^= 1;
    Parse_Log log;
    Image_Parser parser(&log, false, 0);
    std::uint64_t parsed = 0;
    EXPECT_FALSE(parser.parse(image.data(), image.size(), parsed));
    EXPECT_EQ(parsed, 512U);
    EXPECT_EQ(parser.state(), 0x40);
    const auto events = log.events;
    const std::string good = two_descriptor_image();
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{1}, good.size()}) {
        parsed = 7;
        EXPECT_FALSE(parser.parse(good.data(), size, parsed));
        EXPECT_EQ(parsed, 0U);
    }
    EXPECT_STREQ(parser.error(), "wrong checksum of a descriptor block");
    EXPECT_EQ(log.events, events);
}

TEST(Image_Parser, ACallbackThatRefusesStopsTheParseWithoutAReason)
{
    qovr::Image_Options options = small_options();
    options.extra = "x";
    const std::string image = written_image(options, {{{10, 1}}, {{20, 2}}}, 3, true);
    for (const char* event :
         {"superblock", "extra x", "header 1", "record 10 1", "data", "header 2", "record 20 2"})
    {
        for (const std::uint64_t piece : {std::uint64_t{7}, ~std::uint64_t{0}}) {
            SCOPED_TRACE(event);
            Parse_Log log;
            log.refused = event;
            const Parse_Result result = parse_image(image, log, piece);
            EXPECT_FALSE(result.whole);
            EXPECT_EQ(result.state, 0x40);
            EXPECT_EQ(result.error, "");
            EXPECT_EQ(log.events.back(), event) << "nothing is reported behind it";
        }
    }
}

TEST(Image_Parser, DumpTellsStateOffsetAndReason)
{
    std::string image = two_descriptor_image();
    image[600] ^= 1;
    Parse_Log events;
    Image_Parser parser(&events, false, 0);
    Log_Capture log;
    parser.dump(LM_NOTICE, "before % anything");
    std::uint64_t parsed = 0;
    EXPECT_TRUE(parser.parse(image.data(), 600, parsed));
    parser.dump(LM_WARNING, "in the middle");
    EXPECT_FALSE(parser.parse(image.data() + 600, 1000, parsed));
    parser.dump(LM_ERROR, "behind it");
    ASSERT_EQ(log.messages().size(), 3U);
    EXPECT_EQ(log.messages()[0].text, "before % anything, state=0x1, offset=0\n");
    EXPECT_EQ(log.messages()[0].priority, static_cast<unsigned long>(LM_NOTICE));
    EXPECT_EQ(log.messages()[1].text, "in the middle, state=0x10, offset=600\n");
    EXPECT_EQ(log.messages()[1].priority, static_cast<unsigned long>(LM_WARNING));
    EXPECT_EQ(log.messages()[2].text,
              "behind it, state=0x40, offset=600: wrong checksum of a descriptor block\n");
    EXPECT_EQ(log.messages()[2].priority, static_cast<unsigned long>(LM_ERROR));
}

TEST(Image_Parser_Refusals, OfTheSuperBlock)
{
    using namespace image_field;
    EXPECT_EQ(refusal_of_superblock(room, 4, 0), "") << "the image itself is right";

    std::string image = two_descriptor_image();
    image[0] = 'X';
    seal_superblock(image);
    EXPECT_EQ(refusal(image), "not a block image");
    EXPECT_EQ(refusal(std::string(512, '\0')), "not a block image");
    image = two_descriptor_image();
    image[checksum] ^= 1;
    EXPECT_EQ(refusal(image), "wrong checksum of the super block");

    for (const std::uint64_t number : {0, 2, 0x0101})
        EXPECT_EQ(refusal_of_superblock(version, 2, number), "unknown version of the format");
    const std::string foreign = "fields in the super block that this version does not have";
    EXPECT_EQ(refusal_of_superblock(after_version, 2, 1), foreign);
    EXPECT_EQ(refusal_of_superblock(superblock_size, 4, 1024), foreign);
    EXPECT_EQ(refusal_of_superblock(superblock_size, 4, 0), foreign);
    EXPECT_EQ(refusal_of_superblock(room, 1, 1), foreign);
    EXPECT_EQ(refusal_of_superblock(checksum - 1, 1, 1), foreign);

    const std::string bad_size = "a size of blocks that the format does not have";
    for (const std::uint64_t size :
         {0ULL, 1ULL, 256ULL, 511ULL, 513ULL, 1000ULL, 1ULL << 25U, 1ULL << 31U, 0xFFFFFFFFULL})
    {
        EXPECT_EQ(refusal_of_superblock(data_block_size, 4, size), bad_size) << size;
        EXPECT_EQ(refusal_of_superblock(descriptor_block_size, 4, size), bad_size) << size;
    }

    const std::string no_image = "a size in the super block that no image has";
    EXPECT_EQ(refusal_of_superblock(source_size, 8, two_to_63), no_image);
    EXPECT_EQ(refusal_of_superblock(source_size, 8, ~std::uint64_t{0}), no_image);
    EXPECT_EQ(refusal_of_superblock(data_blocks, 8, 0), no_image);
    EXPECT_EQ(refusal_of_superblock(source_size, 8, two_to_63 - 1), "");
}

TEST(Image_Parser_Refusals, OfTheExtraArea)
{
    qovr::Image_Options options = small_options();
    options.extra = "extra";
    std::string image = written_image(options, {{{10, 1}}}, 1, true);
    EXPECT_EQ(refusal(image), "");
    image[514] ^= 1;
    EXPECT_EQ(refusal(image), "wrong checksum of the extra area");
    for (const std::uint64_t size : {433ULL, 512ULL, 0xFFFFFFFFULL}) {
        std::string larger = written_image(options, {{{10, 1}}}, 1, true);
        put_number(larger, image_field::extra_size, 4, size);
        put_number(larger, image_field::checksum, 4,
                   slow_crc32c(std::string_view(larger).substr(0, image_field::checksum)));
        EXPECT_EQ(refusal(larger), "an extra area that is too large") << size;
    }
}

TEST(Image_Parser_Refusals, OfAChecksumOfNoExtraArea)
{
    std::string image = two_descriptor_image();
    put_number(image, image_field::extra_checksum, 4, 1);
    put_number(image, image_field::checksum, 4,
               slow_crc32c(std::string_view(image).substr(0, image_field::checksum)));
    EXPECT_EQ(refusal(image), "a checksum of an extra area that is not there");
}

TEST(Image_Parser_Refusals, OfADescriptorBlock)
{
    using namespace descriptor_field;
    EXPECT_EQ(refusal_of_descriptor(1, room, 1, 0), "") << "the image itself is right";
    for (const std::size_t which : {0, 1}) {
        SCOPED_TRACE(which);
        EXPECT_EQ(refusal_of_descriptor(which, 0, 1, 'X'), "no descriptor block where one is due");
        EXPECT_EQ(refusal_of_descriptor(which, version, 2, 1),
                  "unknown version of a descriptor block");
        const std::string foreign = "fields in a descriptor block that this version does not have";
        EXPECT_EQ(refusal_of_descriptor(which, continuation, 2, 3), foreign);
        EXPECT_EQ(refusal_of_descriptor(which, continuation, 2, 0x100), foreign);
        EXPECT_EQ(refusal_of_descriptor(which, room, 1, 1), foreign);
        EXPECT_EQ(refusal_of_descriptor(which, checksum - 1, 1, 0x80), foreign);
        const std::string misfit = "a count of records that does not fit the descriptor block";
        EXPECT_EQ(refusal_of_descriptor(which, records, 4, 0), misfit);
        EXPECT_EQ(refusal_of_descriptor(which, records, 4, 29), misfit);
        EXPECT_EQ(refusal_of_descriptor(which, records, 4, 0xFFFFFFFF), misfit);
        EXPECT_EQ(refusal_of_descriptor(which, id, 1, 0), "a descriptor block of another image");
        EXPECT_EQ(refusal_of_descriptor(which, sequence, 8, 1 - which),
                  "a descriptor block out of its turn");
        EXPECT_EQ(refusal_of_descriptor(which, sequence, 8, ~std::uint64_t{0}),
                  "a descriptor block out of its turn");
        EXPECT_EQ(refusal_of_descriptor(which, data_blocks, 4, 4),
                  "more data blocks than the super block announces");
        EXPECT_EQ(refusal_of_descriptor(which, data_blocks, 4, 0xFFFFFFFF),
                  "more data blocks than the super block announces");
        EXPECT_EQ(refusal_of_descriptor(which, data_blocks, 4, 0),
                  "records that do not agree with the count of data blocks");
    }
    EXPECT_EQ(refusal_of_descriptor(1, data_blocks, 4, 1),
              "records that do not agree with the count of data blocks");

    std::string image = two_descriptor_image();
    image[512 + checksum] ^= 1;
    EXPECT_EQ(refusal(image), "wrong checksum of a descriptor block");
}

TEST(Image_Parser_Refusals, OfRecords)
{
    const std::string misplaced =
        "a record that does not lie behind the one before it, or within the source";
    const auto refusal_of = [](const std::vector<Range>& runs, std::uint64_t source_size) {
        // As many blocks as the runs have, that the counts agree.
        std::string image = written_image(small_options(), {{{10, 1}}}, 1, true);
        image.resize(512 + 512);
        put_number(image, image_field::source_size, 8, source_size);
        put_number(image, image_field::data_blocks, 8, ~std::uint64_t{0});
        seal_superblock(image);
        const Descriptor_Place place{512, 512, 1024};
        std::uint64_t blocks = 0;
        std::size_t at = place.at + descriptor_field::first_record;
        for (const Range& run : runs) {
            put_number(image, at, 8, run.offset);
            put_number(image, at + 8, 8, run.count);
            blocks += run.count;
            at += 16;
        }
        put_number(image, place.at + descriptor_field::records, 4, runs.size());
        put_number(image, place.at + descriptor_field::data_blocks, 4, blocks);
        seal_descriptor(image, place);
        return refusal(image);
    };
    constexpr std::uint64_t most = two_to_63 / 512;
    // "incomplete": the block is taken, its data are missing.
    EXPECT_EQ(refusal_of({{0, 1}, {1, 1}, {2, 5}}, 0), "incomplete") << "runs may touch";
    EXPECT_EQ(refusal_of({{most - 1, 1}}, 0), "incomplete");
    EXPECT_EQ(refusal_of({{0, 4}}, 1537), "incomplete") << "the last block may be filled up";

    EXPECT_EQ(refusal_of({{5, 2}, {6, 1}}, 0), misplaced);
    EXPECT_EQ(refusal_of({{5, 1}, {5, 1}}, 0), misplaced);
    EXPECT_EQ(refusal_of({{5, 1}, {4, 1}}, 0), misplaced);
    EXPECT_EQ(refusal_of({{5, 1}, {6, 0}}, 0), misplaced);
    EXPECT_EQ(refusal_of({{0, 0}, {6, 1}}, 0), misplaced);
    EXPECT_EQ(refusal_of({{most, 1}}, 0), misplaced);
    EXPECT_EQ(refusal_of({{most - 1, 2}}, 0), misplaced);
    EXPECT_EQ(refusal_of({{~std::uint64_t{0}, 1}}, 0), misplaced);
    EXPECT_EQ(refusal_of({{1, ~std::uint64_t{0}}}, 0), misplaced) << "their sum wraps to 0";
    EXPECT_EQ(refusal_of({{1, ~std::uint64_t{0}}, {0, 2}}, 0), misplaced);
    EXPECT_EQ(refusal_of({{0, 5}}, 2048), misplaced);
    EXPECT_EQ(refusal_of({{4, 1}}, 2048), misplaced);
    EXPECT_EQ(refusal_of({{1, 1}}, 1), misplaced);
    EXPECT_EQ(refusal_of({{0, (std::uint64_t{1} << 32U) + 1}}, 0),
              "records that do not agree with the count of data blocks")
        << "a count of more than 32 bits";
}

TEST(Image_Parser_Refusals, OfAnEndThatIsNotWhereItWasAnnounced)
{
    using namespace descriptor_field;
    const std::string early = "an end of the image that the super block does not announce";
    EXPECT_EQ(refusal_of_descriptor(0, continuation, 2, 1), early);
    EXPECT_EQ(refusal_of_descriptor(1, continuation, 2, 0), early);
    EXPECT_EQ(refusal_of_descriptor(0, continuation, 2, 2), "") << "it was not known yet";
    EXPECT_EQ(refusal_of_descriptor(1, continuation, 2, 2), "");
    EXPECT_EQ(refusal_of_superblock(image_field::data_blocks, 8, 4), early);
    EXPECT_EQ(refusal_of_superblock(image_field::data_blocks, 8, 2),
              "more data blocks than the super block announces");
    EXPECT_EQ(refusal_of_superblock(image_field::data_blocks, 8, 1),
              "an end of the image that the super block does not announce");
}

TEST(Image_Parser_Refusals, OfWhatStandsBehindTheEnd)
{
    const std::string behind = "data behind the end of the image";
    const std::string image = two_descriptor_image();
    EXPECT_EQ(refusal(image + '\0'), behind);
    EXPECT_EQ(refusal(image + image), behind);
    EXPECT_EQ(refusal(image + image.substr(512)), behind);
    // Not announced: the last descriptor block tells.
    const std::string unknown =
        written_image(small_options(), {{{10, 1}}}, qovr::unknown_block_count, true);
    EXPECT_EQ(refusal(unknown), "");
    EXPECT_EQ(refusal(unknown + '\0'), behind);
}

TEST(Image_Parser_Order, DescriptorBlocksThatAreForeignRepeatedMissingOrSwappedAreRefused)
{
    // Each descriptor block with its data takes 1024 bytes.
    const std::vector<std::vector<Range>> runs = {{{10, 1}}, {{20, 1}}, {{30, 1}}};
    const std::string image = written_image(small_options(), runs, 3, true);
    qovr::Image_Options options = small_options();
    options.id[15] ^= 1;
    const std::string other = written_image(options, runs, 3, true);
    const auto part = [](const std::string& from, std::size_t number) {
        return from.substr(512 + 1024 * number, 1024);
    };
    const std::string super = image.substr(0, 512);
    const std::string turn = "a descriptor block out of its turn";
    EXPECT_EQ(refusal(super + part(image, 0) + part(image, 1) + part(image, 2)), "");
    EXPECT_EQ(refusal(super + part(image, 0) + part(other, 1) + part(image, 2)),
              "a descriptor block of another image");
    EXPECT_EQ(refusal(super + part(image, 0) + part(image, 0) + part(image, 1)), turn);
    EXPECT_EQ(refusal(super + part(image, 0) + part(image, 2)), turn);
    EXPECT_EQ(refusal(super + part(image, 1) + part(image, 0) + part(image, 2)), turn);
    EXPECT_EQ(refusal(super + part(image, 0) + part(image, 2) + part(image, 1)), turn);
    EXPECT_EQ(refusal(other.substr(0, 512) + image.substr(512)),
              "a descriptor block of another image");
    EXPECT_EQ(refusal(super + image), "no descriptor block where one is due");
}

TEST(Image_Parser_Unannounced, AnImageEndsBehindALastOrAFullDescriptorBlock)
{
    std::vector<Range> full;
    for (std::uint64_t i = 0; i < 28; ++i)
        full.push_back({2 * i, 1});
    const std::uint64_t unknown = qovr::unknown_block_count;
    EXPECT_EQ(refusal(written_image(small_options(), {full}, unknown, false)), "");
    const std::string image = written_image(small_options(), {full, {{100, 1}}}, unknown, true);
    EXPECT_EQ(refusal(image), "");
    EXPECT_EQ(refusal(image.substr(0, image.size() - 1024)), "")
        << "a cut that cannot be told from an end";
    const std::string more = written_image(small_options(), {{{0, 1}}, {{100, 1}}}, unknown, true);
    EXPECT_EQ(refusal(more.substr(0, more.size() - 1024)), "incomplete");
}

TEST(Image_Parser_Limits, BlocksLargerThanTheCallerAllowsAreRefused)
{
    qovr::Image_Options options = small_options();
    options.data_block_size = 1024;
    options.descriptor_block_size = 2048;
    const std::string image = written_image(options, {{{1, 1}}}, 1, true);
    const auto refused = [&](std::uint64_t largest) {
        Parse_Log log;
        const Parse_Result result = parse_image(image, log, 100, false, largest);
        EXPECT_EQ(result.whole, result.error.empty());
        EXPECT_EQ(log.events.empty(), !result.whole) << "nothing is reported of it";
        return result.error;
    };
    const std::string reason = "blocks that are larger than the reader allows";
    EXPECT_EQ(refused(0), "");
    EXPECT_EQ(refused(2048), "");
    EXPECT_EQ(refused(2047), reason);
    EXPECT_EQ(refused(1024), reason);
    options.data_block_size = 4096;
    options.descriptor_block_size = 512;
    const std::string other = written_image(options, {{{1, 1}}}, 1, true);
    Parse_Log log;
    EXPECT_EQ(parse_image(other, log, 100, false, 2048).error, reason);
}

/// Answers yes, and needs no memory.
class Silent_Callback : public Image_Parser::Callback
{
public:
    bool handle_superblock(const Image_Parser::Superblock&) override { return true; }
    bool handle_superblock_extra(const void*, std::uint64_t) override { return true; }
    bool handle_descriptor_header(const Image_Parser::Descriptor_Header&) override { return true; }
    bool handle_descriptor_record(std::uint64_t, std::uint64_t) override { return true; }
    bool handle_data(const void*, std::uint64_t) override { return true; }
};

TEST(Image_Parser_Limits, AreCheckedBeforeMemoryIsTaken)
{
    std::string image = two_descriptor_image();
    put_number(image, image_field::descriptor_block_size, 4, 1U << 24U);
    seal_superblock(image);
    Silent_Callback callback;
    for (const std::uint64_t largest : {std::uint64_t{65536}, std::uint64_t{0}}) {
        Image_Parser parser(&callback, false, largest);
        const Allocation_Count count;
        std::uint64_t parsed = 0;
        const bool ok = parser.parse(image.data(), image.size(), parsed);
        const std::size_t bytes = count.bytes();
        EXPECT_EQ(ok, largest == 0);
        EXPECT_EQ(bytes, ok ? 1U << 24U : 0U) << "one descriptor block, as the image says";
    }
}

TEST(Image_Parser_Limits, OneDescriptorBlockIsAllTheMemory)
{
    std::vector<std::vector<Range>> batches;
    for (std::uint64_t i = 0; i < 100; ++i)
        batches.push_back({{i, 1}});
    const std::string image = written_image(small_options(), batches, 100, true);
    Silent_Callback callback;
    Image_Parser parser(&callback, false, 0);
    const Allocation_Count count;
    bool ok = true;
    for (const char& byte : image) {
        std::uint64_t parsed = 0;
        ok = parser.parse(&byte, 1, parsed) && ok;
    }
    const std::size_t bytes = count.bytes();
    EXPECT_TRUE(ok && parser.complete());
    EXPECT_LE(bytes, 512U);

    Image_Parser whole(&callback, false, 0);
    const Allocation_Count none;
    std::uint64_t parsed = 0;
    ok = whole.parse(image.data(), image.size(), parsed);
    const std::size_t allocations = none.allocations();
    EXPECT_TRUE(ok && whole.complete());
    EXPECT_EQ(allocations, 0U) << "blocks that come whole are read in place";
}

TEST(Image_Parser_Limits, WithoutMemoryTheParseFails)
{
    const std::string image = two_descriptor_image();
    Silent_Callback callback;
    Image_Parser parser(&callback, false, 0);
    std::uint64_t parsed = 0;
    bool ok = false;
    {
        const Allocation_Failure failure(0);
        ok = parser.parse(image.data(), 100, parsed);
    }
    EXPECT_FALSE(ok);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(parser.state(), 0x40);
    EXPECT_STREQ(parser.error(), "out of memory");
}

TEST(Image_Parser_Without_Data, DescriptorBlocksFollowOneAnother)
{
    qovr::Image_Options options = small_options();
    options.extra = "extra";
    const std::string image = written_image(options, {{{10, 1}, {12, 2}}, {{0, 1}}}, 4, true);
    const auto places = descriptor_places(image);
    ASSERT_EQ(places.size(), 2U);
    const std::string without = image.substr(0, places[0].data) + image.substr(places[1].at, 512);
    for (const std::uint64_t piece : {std::uint64_t{1}, std::uint64_t{700}, ~std::uint64_t{0}}) {
        Parse_Log log;
        const Parse_Result result = parse_image(without, log, piece, true);
        EXPECT_TRUE(result.whole);
        EXPECT_EQ(result.state, 4);
        EXPECT_THAT(log.events, ElementsAre("superblock", "extra extra", "header 3", "record 10 1",
                                            "record 12 2", "header 1", "record 0 1"));
    }
    Parse_Log log;
    EXPECT_FALSE(parse_image(without.substr(0, without.size() - 512), log, 512, true).whole);
    Parse_Log with_data;
    EXPECT_EQ(parse_image(image, with_data, 512, true).error,
              "no descriptor block where one is due");
}

TEST(Image_Parser_Without_Data, TheLargestCountsAreAddedUp)
{
    // Three descriptor blocks of 2^32 - 1 blocks each, whose data no test could hold.
    constexpr std::uint64_t most = 0xFFFFFFFF;
    std::string image = written_image(small_options(), {{{0, 1}}, {{0, 1}}, {{0, 1}}}, 3, true);
    const auto places = descriptor_places(image);
    put_number(image, image_field::data_blocks, 8, 3 * most);
    seal_superblock(image);
    std::string without = image.substr(0, 512);
    for (const Descriptor_Place& place : places) {
        put_number(image, place.at + descriptor_field::data_blocks, 4, most);
        put_number(image, place.at + descriptor_field::first_record + 8, 8, most);
        seal_descriptor(image, place);
        without += image.substr(place.at, place.size);
    }
    Parse_Log log;
    EXPECT_TRUE(parse_image(without, log, 512, true).whole);
    EXPECT_EQ(log.headers.at(2).data_blocks, most);
}

} // namespace
