#include "client_io/image_block_writer.h"

#include "tests/support/allocation_count.h"
#include "tests/unit/image/image_bytes.h"
#include "tests/unit/image/image_file.h"

#include <algorithm>
#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/// Records in a descriptor block of 512 bytes.
constexpr std::uint64_t small_capacity = (512 - 64) / 16;

constexpr char no_records[] = "error: Failed to write image descriptor records.\n";
constexpr char misplaced[] = "emergency: Unexpected error in %N:%l, ((blk.offset + end_) % "
                             "data_block_size())=1 != 0:\n";

/// The fault befalls write number @p index, counted from 0.
Fault_Plan failing_write(std::uint64_t index)
{
    return [index, writes = std::uint64_t{0}](const Fault_Point& point) mutable {
        if (point.operation != Fault_Operation::write || writes++ != index)
            return std::optional<Fault>();
        return std::optional<Fault>(Fault{Fault_Kind::nothing_done, 0, false});
    };
}

/// A writer into an open file, with small blocks, and callbacks that note what they were asked.
class Image_Block_Writer_Test : public testing::Test
{
protected:
    explicit Image_Block_Writer_Test(Fault_Plan plan = {}) : file_({}, std::move(plan))
    {
        file_.open_new();
        EXPECT_TRUE(writer_.set_options(small_options()));
    }

    bool write()
    {
        return writer_.write_blocks(
            [this](std::uint64_t n) {
                progress_.push_back(n);
                return true;
            },
            [this](const void*& data, std::uint64_t max_bytes, std::int64_t offset) {
                requests_.push_back({static_cast<std::uint64_t>(offset), max_bytes});
                return read_(data, max_bytes, offset);
            });
    }
    std::vector<std::string> messages() const { return logged(log_, "image_block_writer"); }
    /// What the image holds, read back.
    std::vector<Piece> pieces()
    {
        if (file_.io.is_open())
            file_.close();
        std::vector<Piece> result;
        file_.open();
        EXPECT_TRUE(read_image(Reading::aligned, file_.io, joined_into(result)));
        file_.close();
        return result;
    }
    void add_gapped(std::uint64_t first, std::uint64_t count)
    {
        for (std::uint64_t i = first; i < first + count; ++i)
            writer_.add_block(1024 * i, 512);
    }

    Log_Capture log_;
    Image_File file_;
    Image_Block_Writer writer_{&file_.io};
    Test_Source source_;
    Image_Block_Writer::Reader read_ = source_.reader();
    std::vector<Range> requests_; ///< offset and most bytes
    std::vector<std::uint64_t> progress_;
};

TEST(Image_Client_IO_Writer_Test, WithoutAClientIOIsLoggedAndStillAnObject)
{
    const Log_Capture log;
    Image_Client_IO_Writer writer(nullptr);
    EXPECT_THAT(logged(log, "image_client_io_writer"),
                ElementsAre("emergency: Unexpected error in %N:%l, io_ is NULL:\n"));
    EXPECT_EQ(writer.state(), 1);
    EXPECT_FALSE(writer.overflow("x", 1));
    EXPECT_EQ(log.messages().size(), 2U);
    EXPECT_EQ(logged(log, "image_client_io_writer")[0], logged(log, "image_client_io_writer")[1]);
    EXPECT_FALSE(writer.write_descriptor_header(0, "SDD1"));
    EXPECT_EQ(writer.state(), 8);
}

TEST(Image_Client_IO_Writer_Test, OverflowIsTheWriteOfTheOpenFile)
{
    Recorded_Facade facade;
    facade.log->open = true;
    Image_Client_IO_Writer writer(&facade.io);
    EXPECT_FALSE(writer.overflow("x", 1)) << "not open for writing";
    EXPECT_EQ(facade.io.error(), "Operation not permitted in read mode");
    facade.io.write_mode_ = true;
    EXPECT_TRUE(writer.overflow("abc", 3));
    EXPECT_TRUE(writer.overflow("abc", 0));
    EXPECT_EQ(facade.log->written, "abc");
    facade.log->failing = {"write"};
    EXPECT_FALSE(writer.overflow("abc", 3));
}

TEST(Image_Client_IO_Writer_Test, LeavesTheFileOpen)
{
    Recorded_Facade facade;
    facade.log->open = true;
    facade.io.write_mode_ = true;
    {
        Image_Block_Writer writer(&facade.io);
    }
    EXPECT_EQ(facade.log->count("close"), 0U);
    EXPECT_EQ(facade.log->count("flush"), 0U);
    EXPECT_EQ(facade.log->count("disconnect"), 0U);
}

TEST(Image_Block_Writer_Null, FailsAtTheHeader)
{
    const Log_Capture log;
    Image_Block_Writer writer(nullptr);
    writer.add_block(0, 65536);
    const Test_Source source;
    EXPECT_FALSE(writer.write_blocks(go_on, source.reader()));
    EXPECT_THAT(logged(log, "image_client_io_writer"),
                ElementsAre("emergency: Unexpected error in %N:%l, io_ is NULL:\n",
                            "emergency: Unexpected error in %N:%l, io_ is NULL:\n",
                            "error: Failed to write image descriptor header.\n"));
}

TEST_F(Image_Block_Writer_Test, AnEmptyListFailsBeforeAnythingIsWritten)
{
    EXPECT_TRUE(writer_.empty());
    EXPECT_FALSE(write());
    EXPECT_THAT(messages(),
                ElementsAre("emergency: Unexpected error in %N:%l, blocks_ is empty:\n"));
    EXPECT_EQ(file_.bytes(), "");
    EXPECT_EQ(writer_.state(), 1);
}

TEST_F(Image_Block_Writer_Test, AnEmptyListIsToldBeforeABlockSizeOf0)
{
    qovr::Image_Options options;
    options.data_block_size = 1;
    EXPECT_FALSE(writer_.set_options(options));
    EXPECT_FALSE(write());
    writer_.add_block(0, 512);
    EXPECT_FALSE(write());
    EXPECT_THAT(messages(),
                ElementsAre("emergency: Unexpected error in %N:%l, blocks_ is empty:\n",
                            "emergency: Unexpected error in %N:%l, data_block_size() != 0 is "
                            "false:\n"));
    EXPECT_EQ(file_.bytes(), "");
}

TEST_F(Image_Block_Writer_Test, RecordsOfABlockSizeOf0AreRefused)
{
    qovr::Image_Options options;
    options.data_block_size = 1;
    EXPECT_FALSE(writer_.set_options(options));
    writer_.add_block(0, 512);
    EXPECT_FALSE(writer_.write_records());
    EXPECT_THAT(messages(), ElementsAre("emergency: Unexpected error in %N:%l, data_block_size() "
                                        "!= 0 is false:\n"));
    EXPECT_EQ(file_.bytes(), "");
}

TEST_F(Image_Block_Writer_Test, StoresExtentsInTheirOrder)
{
    writer_.add_block(4096, 1024);
    writer_.add_block(512, 512);
    EXPECT_FALSE(writer_.empty());
    EXPECT_TRUE(write());
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ(writer_.state(), 4);
    EXPECT_TRUE(file_.io.is_open()) << "the caller closes the file";
    EXPECT_THAT(requests_, ElementsAre(Range{4096, 1024}, Range{512, 512}));
    EXPECT_THAT(progress_, ElementsAre(1024, 512));
    EXPECT_THAT(pieces(), ElementsAre(Piece{4096, source_.read(4096, 1024)},
                                      Piece{512, source_.read(512, 512)}));
}

TEST_F(Image_Block_Writer_Test, TheImageHoldsHeaderRecordsAndDataAsTheListHadThem)
{
    writer_.add_block(1024, 512);
    writer_.add_block(1536, 512); // touches: not merged
    writer_.add_block(8192, 1024);
    ASSERT_TRUE(write());
    file_.close();
    Parse_Log parsed;
    EXPECT_TRUE(parse_image(file_.bytes(), parsed).whole);
    EXPECT_THAT(parsed.events, ElementsAre("superblock", "header 4", "record 2 1", "record 3 1",
                                           "record 16 2", "data"));
    EXPECT_EQ(parsed.superblock.data_blocks, 4U) << "announced";
    EXPECT_EQ(parsed.headers[0].continuation, qovr::Image_Continuation::last);
    EXPECT_EQ(parsed.data, source_.read(1024, 1024) + source_.read(8192, 1024));
}

TEST_F(Image_Block_Writer_Test, AnOffsetThatIsNoMultipleFailsWhenItsRecordIsDue)
{
    writer_.add_block(0, 512);
    writer_.add_block(1025, 512);
    EXPECT_FALSE(write());
    EXPECT_THAT(messages(), ElementsAre(misplaced));
    EXPECT_THAT(requests_, IsEmpty());
    EXPECT_EQ(file_.bytes().size(), 512U) << "the super block only";
}

TEST_F(Image_Block_Writer_Test, ALengthThatIsNoMultipleFailsWhenItsRecordIsDue)
{
    writer_.add_block(512, 700);
    EXPECT_FALSE(write());
    EXPECT_THAT(messages(),
                ElementsAre("emergency: Unexpected error in %N:%l, ((blk.length - end_) "
                            "% data_block_size())=188 != 0:\n"));
    EXPECT_THAT(requests_, IsEmpty());
}

TEST_F(Image_Block_Writer_Test, AMisplacedExtentFailsAfterEarlierBatchesWereWritten)
{
    add_gapped(0, small_capacity);
    writer_.add_block(100001, 512);
    EXPECT_FALSE(write());
    EXPECT_EQ(messages().size(), 1U);
    EXPECT_EQ(progress_.size(), small_capacity);
    EXPECT_EQ(file_.bytes().size(), 512 + 512 + 512 * small_capacity);
    file_.close();
    EXPECT_EQ(refusal(file_.bytes()), "incomplete") << "what was left is no image";
}

TEST_F(Image_Block_Writer_Test, AnExtentOfNoLengthFails)
{
    writer_.add_block(512, 0);
    EXPECT_FALSE(write());
    EXPECT_THAT(messages(), ElementsAre(no_records));
    EXPECT_THAT(requests_, IsEmpty());
}

TEST_F(Image_Block_Writer_Test, AnExtentOfNoLengthAtTheStartOfTheSourceFails)
{
    // Its record would be (0, 0), which ends the list.
    writer_.add_block(0, 0);
    writer_.add_block(512, 512);
    EXPECT_FALSE(write());
    EXPECT_THAT(messages(), ElementsAre(no_records));
    EXPECT_THAT(requests_, IsEmpty());
}

TEST_F(Image_Block_Writer_Test, AnExtentOfNoLengthAtTheStartFailsBehindOthersToo)
{
    writer_.add_block(512, 512);
    writer_.add_block(0, 0);
    EXPECT_FALSE(write());
    EXPECT_THAT(messages(), ElementsAre(no_records));
    EXPECT_THAT(requests_, IsEmpty());
}

TEST_F(Image_Block_Writer_Test, AnExtentBeyondWhatOffsetsCanTellFails)
{
    constexpr std::uint64_t top = std::uint64_t{1} << 63U;
    for (const auto& [offset, length] : {std::pair{top, std::uint64_t{512}},
                                         {top - 512, std::uint64_t{1024}},
                                         {~std::uint64_t{0} - 511, std::uint64_t{512}},
                                         {std::uint64_t{512}, top},
                                         {std::uint64_t{0}, ~std::uint64_t{0} - 511}})
    {
        Image_File file;
        file.open_new();
        Image_Block_Writer writer(&file.io);
        ASSERT_TRUE(writer.set_options(small_options()));
        writer.add_block(offset, length);
        log_.clear();
        EXPECT_FALSE(writer.write_blocks(go_on, read_));
        EXPECT_THAT(messages(), ElementsAre(no_records)) << offset;
    }
}

TEST_F(Image_Block_Writer_Test, LengthsWhoseSumIsBeyondAllNumbersFail)
{
    for (int i = 0; i < 520; ++i)
        writer_.add_block(0, ~std::uint64_t{0} - 511);
    EXPECT_FALSE(write());
    EXPECT_THAT(messages(), ElementsAre(no_records));
}

TEST_F(Image_Block_Writer_Test, TheLastBlockThatOffsetsCanTellIsStored)
{
    constexpr std::uint64_t last = (std::uint64_t{1} << 63U) - 512;
    writer_.add_block(last, 512);
    EXPECT_TRUE(write());
    EXPECT_THAT(pieces(),
                ElementsAre(Piece{static_cast<std::int64_t>(last), source_.read(last, 512)}));
}

TEST_F(Image_Block_Writer_Test, AFullLastDescriptorBlockHasNoTerminator)
{
    add_gapped(0, small_capacity);
    EXPECT_TRUE(write());
    file_.close();
    const std::string image = file_.bytes();
    ASSERT_EQ(image.size(), 512 + 512 + 512 * small_capacity);
    EXPECT_EQ(number_at(image, 512 + descriptor_field::records, 4), small_capacity);
    EXPECT_EQ(number_at(image, 512 + descriptor_field::continuation, 2), 2U);
    EXPECT_EQ(number_at(image, 512 + 512 - 8, 8), 1U) << "the last record fills the block";
    EXPECT_EQ(pieces().size(), small_capacity);
}

TEST_F(Image_Block_Writer_Test, OneMoreExtentMakesAnotherDescriptorBlock)
{
    add_gapped(0, small_capacity + 1);
    EXPECT_TRUE(write());
    file_.close();
    const auto places = descriptor_places(file_.bytes());
    ASSERT_EQ(places.size(), 2U);
    EXPECT_EQ(number_at(file_.bytes(), places[1].at + descriptor_field::records, 4), 1U);
    EXPECT_EQ(number_at(file_.bytes(), places[1].at + descriptor_field::continuation, 2), 1U);
    EXPECT_EQ(pieces().size(), small_capacity + 1);
}

TEST_F(Image_Block_Writer_Test, AReaderThatGivesLessIsAskedAgainFurtherOn)
{
    read_ = source_.reader(300);
    writer_.add_block(1024, 1024);
    EXPECT_TRUE(write());
    EXPECT_THAT(requests_, ElementsAre(Range{1024, 1024}, Range{1324, 724}, Range{1624, 424},
                                       Range{1924, 124}));
    EXPECT_THAT(progress_, ElementsAre(300, 300, 300, 124));
    EXPECT_THAT(pieces(), ElementsAre(Piece{1024, source_.read(1024, 1024)}));
}

TEST_F(Image_Block_Writer_Test, AReaderThatGivesNothingStopsSilently)
{
    for (const std::int64_t given : {0, -1, -1000}) {
        Image_File file;
        file.open_new();
        Image_Block_Writer writer(&file.io);
        ASSERT_TRUE(writer.set_options(small_options()));
        writer.add_block(0, 512);
        int calls = 0;
        EXPECT_FALSE(writer.write_blocks(
            go_on, [&](const void*&, std::uint64_t, std::int64_t) { return ++calls, given; }));
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(file.bytes().size(), 512U);
    }
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(Image_Block_Writer_Test, AReaderThatGivesMoreThanAskedIsRefused)
{
    const std::string data(1024, 'x');
    read_ = [&](const void*& given, std::uint64_t max_bytes, std::int64_t) {
        given = data.data();
        return static_cast<std::int64_t>(max_bytes) + 1;
    };
    writer_.add_block(0, 512);
    writer_.add_block(1024, 512);
    EXPECT_FALSE(write());
    EXPECT_EQ(requests_.size(), 1U);
    EXPECT_THAT(progress_, IsEmpty());
    EXPECT_EQ(messages().size(), 1U);
    EXPECT_EQ(file_.bytes().size(), 512U) << "nothing of it is written";
}

TEST_F(Image_Block_Writer_Test, AProgressThatSaysStopStopsSilentlyBehindItsPiece)
{
    writer_.add_block(0, 1024);
    read_ = source_.reader(512);
    int calls = 0;
    EXPECT_FALSE(writer_.write_blocks([&](std::uint64_t) { return ++calls < 1; }, read_));
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ(file_.bytes().size(), 512U + 512 + 512);
}

TEST_F(Image_Block_Writer_Test, CallbacksThatThrowStopLikeThoseThatSayStop)
{
    for (const bool in_reader : {false, true}) {
        Image_File file;
        file.open_new();
        Image_Block_Writer writer(&file.io);
        ASSERT_TRUE(writer.set_options(small_options()));
        writer.add_block(0, 512);
        const auto progress = [](std::uint64_t) -> bool { throw std::runtime_error("progress"); };
        const auto reader = [&](const void*& data, std::uint64_t n, std::int64_t offset) {
            if (in_reader)
                throw std::bad_alloc();
            return read_(data, n, offset);
        };
        bool ok = true;
        EXPECT_NO_THROW(ok = writer.write_blocks(progress, reader));
        EXPECT_FALSE(ok);
    }
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(Image_Block_Writer_Test, CursorsBeginAgainAndSoDoNotHideThatTheImageIsWritten)
{
    writer_.add_block(0, 512);
    EXPECT_TRUE(write());
    const std::string image = file_.bytes();
    EXPECT_FALSE(write());
    EXPECT_THAT(messages(), ElementsAre("error: Unexpected image writer state 4.\n"));
    EXPECT_EQ(file_.bytes(), image);
}

TEST_F(Image_Block_Writer_Test, AWriteThatIsTriedAgainWhileDataAreDueFailsAndReadsNothing)
{
    writer_.add_block(0, 512);
    EXPECT_FALSE(writer_.write_blocks(
        go_on, [](const void*&, std::uint64_t, std::int64_t) { return std::int64_t{0}; }));
    EXPECT_FALSE(write());
    EXPECT_THAT(requests_, IsEmpty());
    EXPECT_EQ(file_.bytes().size(), 512U);
    EXPECT_THAT(messages(), ElementsAre("error: Unexpected image writer state 8.\n"));
}

TEST_F(Image_Block_Writer_Test, TheDataOfABatchWithoutRecordsAreRefused)
{
    writer_.add_block(0, 512);
    EXPECT_EQ(writer_.write_blocks_i(go_on,
                                     [this](const void*&, std::uint64_t, std::int64_t) {
                                         requests_.emplace_back();
                                         return std::int64_t{0};
                                     }),
              -1);
    EXPECT_THAT(requests_, IsEmpty());
    EXPECT_EQ(file_.bytes(), "");
}

TEST_F(Image_Block_Writer_Test, ResetEmptiesTheListAndNotTheImage)
{
    writer_.add_block(100, 7);
    writer_.reset();
    EXPECT_TRUE(writer_.empty());
    EXPECT_FALSE(write());
    writer_.add_block(0, 512);
    EXPECT_TRUE(write());
    writer_.reset();
    EXPECT_TRUE(writer_.empty());
    EXPECT_EQ(writer_.state(), 4);
    writer_.add_block(0, 512);
    log_.clear();
    EXPECT_FALSE(write()) << "another image takes another object";
    EXPECT_THAT(messages(), ElementsAre("error: Unexpected image writer state 4.\n"));
}

TEST_F(Image_Block_Writer_Test, AnExtentForWhichThereIsNoMemoryIsNotForgotten)
{
    writer_.add_block(0, 512);
    {
        const Allocation_Failure failure(0);
        writer_.add_block(1024, 512);
    }
    errno = 0;
    EXPECT_FALSE(write());
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(file_.bytes(), "") << "an image without it would pass for a whole one";
    writer_.reset();
    writer_.add_block(0, 512);
    EXPECT_TRUE(write());
}

TEST_F(Image_Block_Writer_Test, AReservationThatIsTooLargeFailsNothing)
{
    writer_.reserve(~std::uint64_t{0});
    {
        const Allocation_Failure failure(0);
        writer_.reserve(1000);
    }
    writer_.add_block(0, 512);
    EXPECT_TRUE(write());
}

TEST_F(Image_Block_Writer_Test, TheStepsWriteAnImageToo)
{
    writer_.add_block(1024, 512);
    ASSERT_TRUE(writer_.write_descriptor_header(0, "SDD1"));
    EXPECT_TRUE(writer_.write_records());
    EXPECT_EQ(writer_.state(), 3);
    EXPECT_EQ(writer_.write_blocks_i(go_on, read_), 0);
    EXPECT_EQ(writer_.state(), 4);
    EXPECT_THAT(pieces(), ElementsAre(Piece{1024, source_.read(1024, 512)}));
}

TEST_F(Image_Block_Writer_Test, StepsTellThatMoreBatchesFollow)
{
    add_gapped(0, small_capacity + 1);
    ASSERT_TRUE(writer_.write_descriptor_header(0, "SDD1"));
    EXPECT_TRUE(writer_.write_records());
    EXPECT_EQ(writer_.write_blocks_i(go_on, read_), 1);
    EXPECT_EQ(writer_.state(), 2);
    EXPECT_TRUE(writer_.write_records());
    EXPECT_EQ(writer_.write_blocks_i(go_on, read_), 0);
    EXPECT_EQ(writer_.write_blocks_i(go_on, read_), -1);
    const std::string end = std::to_string(small_capacity + 1);
    EXPECT_THAT(messages(), ElementsAre("emergency: Unexpected error in %N:%l, block_start_=" +
                                        end + " >= blocks_.size()=" + end + ":\n"));
}

TEST_F(Image_Block_Writer_Test, TheDataOfAnEmptyListAreRefused)
{
    EXPECT_EQ(writer_.write_blocks_i(go_on, read_), -1);
    EXPECT_THAT(messages(), ElementsAre("emergency: Unexpected error in %N:%l, block_start_=0 >= "
                                        "blocks_.size()=0:\n"));
}

TEST_F(Image_Block_Writer_Test, RecordsOutOfTurnFail)
{
    EXPECT_FALSE(writer_.write_records());
    EXPECT_THAT(messages(), ElementsAre("error: Unexpected image writer state 1 after writing "
                                        "records.\n"));
    log_.clear();
    writer_.add_block(0, 512);
    EXPECT_FALSE(writer_.write_records());
    EXPECT_THAT(messages(), ElementsAre(no_records));
    EXPECT_EQ(file_.bytes(), "");
}

TEST_F(Image_Block_Writer_Test, ARangeOfNoLengthCallsNeitherCallback)
{
    EXPECT_EQ(writer_.write_range(
                  5, 0, [](std::uint64_t) -> bool { throw std::logic_error("asked"); },
                  [](const void*&, std::uint64_t, std::int64_t) -> std::int64_t {
                      throw std::logic_error("asked");
                  }),
              1);
    EXPECT_THAT(messages(), IsEmpty());
}

/// Keeps what is not longer than the blocks of small_options(), and forgets the rest.
class Small_Writes_IO : public Recording_IO
{
public:
    explicit Small_Writes_IO(std::string& kept)
        : Recording_IO(std::make_shared<Recording>()), kept_(kept)
    {}

    bool connect(const URI&, const Options&) override { return true; }
    bool is_connected() const override { return true; }
    bool is_open() const override { return true; }
    bool write(const void* buf, std::uint64_t size) override
    {
        if (size <= 512)
            kept_.append(static_cast<const char*>(buf), size);
        return true;
    }

private:
    std::string& kept_;
};

TEST(Image_Block_Writer_Batches, AnExtentThatABatchCannotHoldIsDividedBetweenTwo)
{
    // Two terabytes, of which nothing but the descriptor blocks is kept.
    constexpr std::uint64_t most = 0xFFFFFFFF;
    std::string image;
    Open_Facade io;
    ASSERT_TRUE(io.connect_plain(std::make_unique<Small_Writes_IO>(image)));
    io.write_mode_ = true;
    Image_Block_Writer writer(&io);
    ASSERT_TRUE(writer.set_options(small_options()));
    writer.add_block(512 * 10, 512 * 2);
    writer.add_block(512 * 100, 512 * (most + 5));
    writer.add_block(512 * 20, 512 * 2);

    constexpr std::uint64_t buffer_size = 1U << 28U;
    const auto buffer = std::make_unique_for_overwrite<char[]>(buffer_size);
    std::vector<Range> asked; // the first request of each range
    std::uint64_t next = 0;
    EXPECT_TRUE(writer.write_blocks(
        go_on, [&](const void*& data, std::uint64_t max_bytes, std::int64_t offset) {
            const auto at = static_cast<std::uint64_t>(offset);
            const std::uint64_t n = std::min(max_bytes, buffer_size);
            if (asked.empty() || asked.back().offset + asked.back().count != at + max_bytes)
                asked.push_back({at, max_bytes});
            else
                EXPECT_EQ(at, next) << "a range is read without gaps";
            next = at + n;
            data = buffer.get();
            return static_cast<std::int64_t>(n);
        }));
    EXPECT_THAT(asked, ElementsAre(Range{512 * 10, 512 * 2}, Range{512 * 100, 512 * (most - 2)},
                                   Range{512 * (100 + most - 2), 512 * 7}, Range{512 * 20, 1024}));

    Parse_Log log;
    EXPECT_TRUE(parse_image(image, log, 512, true).whole);
    const auto text = [](std::uint64_t offset, std::uint64_t count) {
        return "record " + std::to_string(offset) + ' ' + std::to_string(count);
    };
    EXPECT_THAT(log.events, ElementsAre("superblock", "header " + std::to_string(most), text(10, 2),
                                        text(100, most - 2), "header 7", text(100 + most - 2, 7),
                                        "header 2", text(20, 2)));
}

TEST(Image_Block_Writer_Faults, AShortWriteIsToldWithTheStoragesText)
{
    // Writes: super block, descriptor block, then two pieces of data.
    for (std::uint64_t write = 0; write < 4; ++write) {
        SCOPED_TRACE(write);
        const Log_Capture log;
        Image_File file({}, failing_write(write));
        file.open_new();
        Image_Block_Writer writer(&file.io);
        ASSERT_TRUE(writer.set_options(small_options()));
        writer.add_block(0, 1024);
        std::uint64_t progress = 0;
        const Test_Source source;
        EXPECT_FALSE(writer.write_blocks(
            [&](std::uint64_t n) {
                progress += n;
                return true;
            },
            source.reader(512)));
        EXPECT_EQ(file.io.error().substr(0, 9), "injected ");
        EXPECT_THAT(logged(log, ""),
                    ElementsAre(write == 0 ? "error: Failed to write image descriptor header.\n"
                                           : "error: Failed to write to backup storage, " +
                                                 file.io.error() + ".\n"));
        EXPECT_EQ(progress, write == 3 ? 512U : 0U);
        EXPECT_EQ(file.bytes().size(), 512 * write);
        EXPECT_EQ(writer.state(), 8);

        // It stays failed.
        const std::string text = file.io.error();
        EXPECT_FALSE(writer.write_blocks(go_on, source.reader()));
        EXPECT_EQ(logged(log, "").back(), "error: Unexpected image writer state 8.\n");
        EXPECT_EQ(log.messages().size(), 2U);
        EXPECT_EQ(file.io.error(), text);
        EXPECT_EQ(file.bytes().size(), 512 * write);
    }
}

TEST(Image_Block_Writer_Faults, AnImageOfAWriteThatFailedIsRefused)
{
    for (std::uint64_t write = 1; write < 60; ++write) {
        Image_File file({}, failing_write(write));
        file.open_new();
        Image_Block_Writer writer(&file.io);
        ASSERT_TRUE(writer.set_options(small_options()));
        for (std::uint64_t i = 0; i < 2 * small_capacity; ++i)
            writer.add_block(1024 * i, 512);
        const Test_Source source;
        bool ok = false;
        {
            const Log_Capture log;
            ok = writer.write_blocks(go_on, source.reader());
        }
        EXPECT_EQ(ok, write == 3 + 2 * small_capacity) << write;
        EXPECT_EQ(refusal(file.bytes()).empty(), ok) << write;
    }
}

} // namespace
