#include "client_io/image_block_reader.h"

#include "tests/support/allocation_count.h"
#include "tests/unit/image/image_bytes.h"
#include "tests/unit/image/image_file.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

bool ignore(const void*, std::uint64_t, std::int64_t)
{
    return true;
}

/// The fault befalls read number @p index of either form, counted from 0.
Fault_Plan fault_of_read(std::uint64_t index, Fault fault)
{
    return [=, reads = std::uint64_t{0}](const Fault_Point& point) mutable {
        const bool read = point.operation == Fault_Operation::read ||
                          point.operation == Fault_Operation::read_block;
        return read && reads++ == index ? std::optional(fault) : std::nullopt;
    };
}

/// One read of an image: what it returns, delivers and logs.
struct Outcome
{
    bool ok = false;
    std::vector<Piece> pieces;
    std::vector<std::string> messages;
    std::string error; ///< of the Client_IO
};

Outcome outcome_of(const std::string& image, Reading reading, std::uint64_t buffer_size = 0,
                   Fault_Plan plan = {})
{
    Outcome outcome;
    Image_File file(image, std::move(plan));
    file.open();
    const Log_Capture log;
    outcome.ok = read_image(reading, file.io, into(outcome.pieces), buffer_size);
    outcome.messages = logged(log, "image_block_reader");
    outcome.error = file.io.error();
    EXPECT_TRUE(file.io.is_open()) << "the caller closes the file";
    EXPECT_EQ(outcome.messages.size(), outcome.ok ? 0U : 1U) << "one line for each failure";
    return outcome;
}

std::string image_with_blocks(std::uint64_t data_block_size, std::uint64_t descriptor_block_size)
{
    qovr::Image_Options options = small_options();
    options.data_block_size = data_block_size;
    options.descriptor_block_size = descriptor_block_size;
    return written_image(options, {{{1, 2}, {4, 1}}}, 3, true);
}

class Every_Reading : public testing::TestWithParam<Reading>
{};

INSTANTIATE_TEST_SUITE_P(Of, Every_Reading, testing::ValuesIn(every_reading),
                         [](const auto& reading) {
                             switch (reading.param) {
                             case Reading::zero_copy:
                                 return "ZeroCopy";
                             case Reading::buffered:
                                 return "Buffered";
                             default:
                                 return "Aligned";
                             }
                         });

TEST_P(Every_Reading, DeliversEveryByteWhereItBelongs)
{
    const Outcome outcome = outcome_of(two_descriptor_image(), GetParam());
    EXPECT_TRUE(outcome.ok);
    const std::string second = std::string(512, 'b') + std::string(512, 'c');
    EXPECT_THAT(outcome.pieces,
                ElementsAre(Piece{5120, std::string(512, 'a')}, Piece{10240, second}));
}

TEST_P(Every_Reading, JoinsRunsThatTouch)
{
    const std::string image = written_image(small_options(), {{{2, 1}, {3, 1}, {5, 1}}}, 3, true);
    const Outcome outcome = outcome_of(image, GetParam());
    EXPECT_TRUE(outcome.ok);
    EXPECT_THAT(outcome.pieces,
                ElementsAre(Piece{1024, std::string(512, 'a') + std::string(512, 'b')},
                            Piece{2560, std::string(512, 'c')}));
}

TEST_P(Every_Reading, JoinsNothingAcrossDescriptorBlocks)
{
    const std::string image = written_image(small_options(), {{{2, 1}}, {{3, 1}}}, 2, true);
    const Outcome outcome = outcome_of(image, GetParam());
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.pieces.size(), 2U);
}

TEST_P(Every_Reading, BeginsAtThePresentPosition)
{
    Image_File file("in front" + two_descriptor_image());
    ASSERT_TRUE(file.io.open("image", Client_IO_Base::mode_read, 8, 0));
    EXPECT_TRUE(read_image(GetParam(), file.io, ignore));
}

TEST_P(Every_Reading, OneReaderServesManyReads)
{
    Image_File good(two_descriptor_image());
    Image_File bad("nothing of the kind");
    Image_Block_Reader reader;
    const Log_Capture log;
    for (int time = 0; time < 3; ++time) {
        bad.open();
        EXPECT_FALSE(read_image(reader, GetParam(), bad.io, ignore));
        bad.close();
        good.open();
        EXPECT_TRUE(read_image(reader, GetParam(), good.io, ignore));
        good.close();
    }
}

TEST_P(Every_Reading, ReadsWhatAFullDescriptorBlockEnds)
{
    std::vector<Range> full;
    for (std::uint64_t i = 0; i < 28; ++i)
        full.push_back({2 * i, 1});
    for (const std::uint64_t announced : {std::uint64_t{28}, qovr::unknown_block_count}) {
        const std::string image = written_image(small_options(), {full}, announced, false);
        const Outcome outcome = outcome_of(image, GetParam());
        EXPECT_TRUE(outcome.ok);
        EXPECT_EQ(outcome.pieces.size(), 28U);
    }
}

TEST_P(Every_Reading, HooksSeeTheImageInItsOrderAndMayRefuseIt)
{
    class Hooked : public Image_Block_Reader
    {
    public:
        bool handle_superblock(const qovr::Image_Parser::Superblock& super) override
        {
            return note("superblock " + std::to_string(super.data_blk_size));
        }
        bool handle_superblock_extra(const void* data, std::uint64_t size) override
        {
            return note("extra " + std::string(static_cast<const char*>(data), size));
        }
        bool handle_descriptor_header(const qovr::Image_Parser::Descriptor_Header& head) override
        {
            return note("header " + std::to_string(head.data_blocks));
        }
        bool note(const std::string& text)
        {
            notes.push_back(text);
            return notes.size() != refused;
        }

        std::vector<std::string> notes;
        std::size_t refused = 0; ///< the hook of this number says no, from 1
    };
    qovr::Image_Options options = small_options();
    options.extra = "more";
    const std::string image = written_image(options, {{{1, 1}}, {{0, 2}}}, 3, true);
    const std::vector<std::string> expected = {"superblock 512", "extra more", "header 1",
                                               "header 2"};
    for (std::size_t refused = 0; refused <= expected.size(); ++refused) {
        Image_File file(image);
        file.open();
        Hooked reader;
        reader.refused = refused;
        const Log_Capture log;
        EXPECT_EQ(read_image(reader, GetParam(), file.io, ignore), refused == 0);
        EXPECT_EQ(log.messages().size(), refused == 0 ? 0U : 1U);
        const auto seen = refused == 0 ? expected.size() : refused;
        EXPECT_EQ(reader.notes,
                  std::vector<std::string>(expected.begin(),
                                           expected.begin() + static_cast<std::ptrdiff_t>(seen)));
    }
}

TEST_P(Every_Reading, AHandlerThatRefusesFailsTheRead)
{
    Image_File file(two_descriptor_image());
    file.open();
    const Log_Capture log;
    int calls = 0;
    EXPECT_FALSE(read_image(GetParam(), file.io, [&](const void*, std::uint64_t, std::int64_t) {
        ++calls;
        return false;
    }));
    EXPECT_EQ(calls, 1);
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_THAT(log.messages()[0].text, testing::StartsWith("Failed to parse image"));
}

TEST_P(Every_Reading, AHandlerThatThrowsFailsTheRead)
{
    Image_File file(two_descriptor_image());
    for (const bool memory : {true, false}) {
        file.open();
        int calls = 0;
        bool ok = true;
        errno = 0;
        EXPECT_NO_THROW(ok = read_image(GetParam(), file.io,
                                        [&](const void*, std::uint64_t, std::int64_t) -> bool {
                                            ++calls;
                                            if (memory)
                                                throw std::bad_alloc();
                                            throw std::runtime_error("handler");
                                        }));
        EXPECT_FALSE(ok);
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(errno == ENOMEM, memory);
        file.close();
    }
}

TEST_P(Every_Reading, WithoutMemoryTheReadFails)
{
    const std::string image = two_descriptor_image();
    for (std::size_t allowed = 0;; ++allowed) {
        Image_File file(image);
        file.open();
        bool ok = false;
        const Log_Capture log;
        {
            Image_Block_Reader reader;
            const Image_Block_Reader::Handler handler = ignore;
            const Allocation_Failure failure(allowed);
            EXPECT_NO_THROW(ok = read_image(reader, GetParam(), file.io, handler));
        }
        if (ok)
            break;
        ASSERT_LT(allowed, 1000U) << "it never succeeds";
    }
}

TEST_P(Every_Reading, AnImageThatIsCutOffBehindADescriptorBlockIsRefused)
{
    const std::string image = two_descriptor_image();
    const Outcome outcome = outcome_of(image.substr(0, 512 + 1024), GetParam());
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.messages, ElementsAre("error: Unexpected image parser state after handling "
                                              "data, state=0x4, offset=1536\n"));
    EXPECT_EQ(outcome.pieces.size(), 1U) << "what was there was delivered";
}

TEST_P(Every_Reading, AnImageOfTheSuperBlockAloneIsRefused)
{
    const Outcome outcome = outcome_of(two_descriptor_image().substr(0, 512), GetParam());
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.messages, ElementsAre("error: Unexpected image parser state after handling "
                                              "data, state=0x4, offset=512\n"));
}

TEST_P(Every_Reading, BytesBehindTheEndAreRefused)
{
    EXPECT_FALSE(outcome_of(two_descriptor_image() + '\0', GetParam()).ok);
    EXPECT_FALSE(outcome_of(two_descriptor_image() + two_descriptor_image(), GetParam()).ok);
}

TEST_P(Every_Reading, AFailedReadIsToldWithTheClientIOsText)
{
    // The first read, and one in the middle: the aligned reader's third is of data.
    for (const std::uint64_t read : {0, GetParam() == Reading::aligned ? 2 : 0}) {
        const Outcome outcome =
            outcome_of(two_descriptor_image(), GetParam(), 0,
                       fault_of_read(read, {Fault_Kind::nothing_done, 0, false}));
        EXPECT_FALSE(outcome.ok);
        EXPECT_EQ(outcome.error.substr(0, 9), "injected ");
        ASSERT_EQ(outcome.messages.size(), 1U);
        if (GetParam() == Reading::aligned) {
            EXPECT_EQ(outcome.messages[0],
                      "error: Failed to read from Client_IO, " + outcome.error + "\n");
        } else if (GetParam() == Reading::buffered) {
            EXPECT_EQ(outcome.messages[0],
                      "error: Failed to read from Client_IO, " + outcome.error + ".\n");
        }
    }
}

TEST_P(Every_Reading, AFailureBehindTheLastByteIsAFailure)
{
    // The streams read the whole image at once; the aligned reader takes five reads of its parts.
    const std::uint64_t end = GetParam() == Reading::aligned ? 5 : 1;
    const Outcome outcome = outcome_of(two_descriptor_image(), GetParam(), 0,
                                       fault_of_read(end, {Fault_Kind::nothing_done, 0, false}));
    EXPECT_FALSE(outcome.ok) << "a codec or a cipher may find the end wrong";
    EXPECT_EQ(outcome.pieces.size(), 2U);
    EXPECT_THAT(outcome.messages[0], testing::StartsWith("error: Failed to read from Client_IO, "
                                                         "injected "));
}

TEST_P(Every_Reading, BuffersOfEverySizeGiveTheSame)
{
    const std::string image = image_with_blocks(512, 65536);
    const Outcome whole = outcome_of(image, Reading::zero_copy);
    ASSERT_TRUE(whole.ok);
    for (const std::uint64_t size : {0, 1, 65535, 65536, 66048, 131072, 1 << 20}) {
        SCOPED_TRACE(size);
        std::vector<Piece> pieces;
        Image_File file(image);
        file.open();
        EXPECT_TRUE(read_image(GetParam(), file.io, joined_into(pieces), size));
        EXPECT_EQ(pieces.size(), 2U);
        EXPECT_EQ(pieces.back(), whole.pieces.back());
    }
}

TEST(Image_Streams, AnInputWithoutAByteIsRefused)
{
    for (const Reading reading : {Reading::zero_copy, Reading::buffered}) {
        const Outcome outcome = outcome_of("", reading);
        EXPECT_FALSE(outcome.ok);
        EXPECT_THAT(outcome.messages,
                    ElementsAre("error: Unexpected image parser state after handling data, "
                                "state=0x1, offset=0\n"));
    }
    const Outcome outcome = outcome_of("", Reading::aligned);
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.messages,
                ElementsAre("error: Failed to read from Client_IO, expect 512 bytes, got 0.\n"));
}

TEST(Image_Streams, AReadThatFailsBeforeTheImageIsWholeIsTheEndOfTheInput)
{
    // The zero-copy read that brings nothing: what is missing of the image is told.
    const Outcome outcome = outcome_of(two_descriptor_image(), Reading::zero_copy, 0,
                                       fault_of_read(0, {Fault_Kind::nothing_done, 0, false}));
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.messages.size(), 1U);
}

TEST(Image_Streams, PiecesOfAnyLengthGiveTheSame)
{
    const std::string image = two_descriptor_image();
    for (const Reading reading : {Reading::zero_copy, Reading::buffered}) {
        for (const std::uint64_t piece : {1, 3, 500, 512, 513, 1100}) {
            Image_File file(image, [piece](const Fault_Point&) {
                return std::optional(Fault{Fault_Kind::short_read, piece, false});
            });
            file.open();
            std::vector<Piece> pieces;
            EXPECT_TRUE(read_image(reading, file.io, joined_into(pieces)));
            EXPECT_THAT(pieces,
                        ElementsAre(Piece{5120, std::string(512, 'a')},
                                    Piece{10240, std::string(512, 'b') + std::string(512, 'c')}));
        }
    }
}

TEST(Image_Streams, AParseThatFailsTellsWhatWasReadAndParsed)
{
    std::string image = two_descriptor_image();
    image[700] ^= 1;
    for (const Reading reading : {Reading::zero_copy, Reading::buffered}) {
        const Outcome outcome = outcome_of(image, reading);
        EXPECT_FALSE(outcome.ok);
        EXPECT_THAT(outcome.messages,
                    ElementsAre("error: Failed to parse image, n_read=3072, n_parsed=512, "
                                "state=0x40, offset=512: wrong checksum of a descriptor block\n"));
    }
}

TEST(Image_Aligned, EachPartIsOneReadOfItsSize)
{
    Recorded_Facade facade;
    facade.log->open = true;
    const std::string image = two_descriptor_image();
    for (const auto& [at, size] :
         {std::pair{0, 512}, {512, 512}, {1024, 512}, {1536, 512}, {2048, 1024}})
        facade.log->blocks.push_back(
            image.substr(static_cast<std::size_t>(at), static_cast<std::size_t>(size)));
    Image_Block_Reader reader;
    EXPECT_TRUE(reader.read_blocks_align(facade.io, ignore, 0));
    std::vector<std::string> sizes;
    for (const std::string& call : facade.log->actions()) {
        EXPECT_EQ(call.substr(0, 5), "read(");
        sizes.push_back(call.substr(call.find(", ") + 2));
    }
    EXPECT_THAT(sizes, ElementsAre("512)", "512)", "512)", "512)", "1024)", "512)"));
}

TEST(Image_Aligned, DataAreReadInWholeBuffers)
{
    qovr::Image_Options options = small_options();
    options.data_block_size = 16384;
    const std::string image = written_image(options, {{{0, 10}}}, 10, true);
    Image_File file(image);
    file.open();
    std::vector<std::uint64_t> sizes;
    Image_Block_Reader reader;
    EXPECT_TRUE(reader.read_blocks_align(
        file.io,
        [&](const void*, std::uint64_t size, std::int64_t) {
            sizes.push_back(size);
            return true;
        },
        0));
    EXPECT_THAT(sizes, ElementsAre(65536, 65536, 32768));
}

TEST(Image_Aligned, AShortSuperBlockIsTold)
{
    const Outcome outcome = outcome_of(two_descriptor_image().substr(0, 511), Reading::aligned);
    EXPECT_THAT(outcome.messages,
                ElementsAre("error: Failed to read from Client_IO, expect 512 bytes, got 511.\n"));
}

TEST(Image_Aligned, AWrongSuperBlockIsTold)
{
    std::string image = two_descriptor_image();
    image[100] ^= 1;
    const Outcome outcome = outcome_of(image, Reading::aligned);
    EXPECT_THAT(outcome.messages,
                ElementsAre("error: Failed to parse image super block, n_read=512, n_parsed=0, "
                            "state=0x40, offset=0: wrong checksum of the super block\n"));
}

TEST(Image_Aligned, AWrongDescriptorBlockIsTold)
{
    std::string image = two_descriptor_image();
    image[700] ^= 1;
    const Outcome outcome = outcome_of(image, Reading::aligned);
    EXPECT_THAT(outcome.messages,
                ElementsAre("error: Failed to parse image descriptor block, n_read=512, "
                            "n_parsed=0, state=0x40, offset=512: wrong checksum of a descriptor "
                            "block\n"));
}

TEST(Image_Aligned, ShortDataAreTold)
{
    const std::string image = two_descriptor_image();
    const Outcome outcome = outcome_of(image.substr(0, image.size() - 1), Reading::aligned);
    EXPECT_THAT(outcome.messages, ElementsAre("error: Failed to read from Client_IO, expect 1024 "
                                              "bytes, got 1023.\n"));
    EXPECT_EQ(outcome.pieces.size(), 1U);
}

TEST(Image_Aligned, AShortDescriptorBlockIsLeftToItsChecksum)
{
    const std::string image = two_descriptor_image();
    // Cut within its header.
    EXPECT_THAT(outcome_of(image.substr(0, 600), Reading::aligned).messages,
                ElementsAre("error: Failed to parse image descriptor block, n_read=88, n_parsed=0, "
                            "state=0x40, offset=512: wrong checksum of a descriptor block\n"));
    // Cut in its zeros, which a fresh buffer has as well: its data are missing then.
    EXPECT_THAT(outcome_of(image_with_blocks(512, 1024).substr(0, 1400), Reading::aligned).messages,
                ElementsAre("error: Failed to read from Client_IO, expect 1536 bytes, got 0.\n"));
}

TEST(Image_Aligned, AHandlerThatRefusesIsAFailureOfItsData)
{
    Image_File file(two_descriptor_image());
    file.open();
    const Log_Capture log;
    Image_Block_Reader reader;
    EXPECT_FALSE(reader.read_blocks_align(
        file.io, [](const void*, std::uint64_t, std::int64_t) { return false; }, 0));
    EXPECT_THAT(logged(log, ""),
                ElementsAre("error: Failed to parse image data blocks, n_read=512, "
                            "n_parsed=0, state=0x40, offset=1024\n"));
}

TEST(Image_Aligned, ABufferSmallerThanADescriptorBlockIsRefusedBeforeAnythingElse)
{
    const Outcome outcome = outcome_of(image_with_blocks(512, 131072), Reading::aligned, 70000);
    EXPECT_THAT(outcome.messages,
                ElementsAre("emergency: Unexpected error in %N:%l, buffer_size=70000 < "
                            "cb.desc_block_bytes()=131072:\n"));
    EXPECT_THAT(outcome.pieces, IsEmpty());
}

TEST(Image_Aligned, ABufferSmallerThanADataBlockIsRefused)
{
    const Outcome outcome = outcome_of(image_with_blocks(131072, 512), Reading::aligned, 1);
    EXPECT_THAT(outcome.messages,
                ElementsAre("emergency: Unexpected error in %N:%l, buffer_size=65536 < "
                            "cb.data_block_bytes()=131072:\n"));
    EXPECT_THAT(outcome.pieces, IsEmpty());
}

TEST(Image_Aligned, ABufferThatIsNoMultipleOfADataBlockIsRefused)
{
    const Outcome outcome = outcome_of(image_with_blocks(4096, 512), Reading::aligned, 65537);
    EXPECT_THAT(outcome.messages, ElementsAre("emergency: Unexpected error in %N:%l, buffer_size % "
                                              "cb.data_block_bytes()=1 != 0:\n"));
    EXPECT_THAT(outcome.pieces, IsEmpty());
    EXPECT_TRUE(outcome_of(image_with_blocks(4096, 512), Reading::aligned, 65536 + 4096).ok);
}

TEST(Image_Aligned, ABufferThatIsLargeEnoughReadsLargeBlocks)
{
    EXPECT_TRUE(outcome_of(image_with_blocks(131072, 262144), Reading::aligned, 262144).ok);
    EXPECT_TRUE(outcome_of(image_with_blocks(131072, 262144), Reading::buffered, 1).ok);
    EXPECT_TRUE(outcome_of(image_with_blocks(131072, 262144), Reading::zero_copy).ok);
}

TEST(Image_Aligned, ABufferOfNoConceivableSizeFailsWithENOMEM)
{
    for (const Reading reading : {Reading::buffered, Reading::aligned}) {
        Image_File file(two_descriptor_image());
        file.open();
        errno = 0;
        EXPECT_FALSE(read_image(reading, file.io, ignore, ~std::uint64_t{0}));
        EXPECT_EQ(errno, ENOMEM);
    }
}

} // namespace
