#include "platform/lzop/lzop.h"

#include <gtest/gtest.h>

#include "tests/support/temp_directory.h"
#include "tests/unit/lzop/lzop_file.h"
#include "tests/unit/lzop/lzop_pieces.h"

namespace
{

const unsigned char* bytes_of(const std::string& data)
{
    return reinterpret_cast<const unsigned char*>(data.data());
}

/// A stream that compresses at level 3.
class Lzop_Compress : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(lzop_compress_init(stream_, 3, 0), LZOP_OK); }
    void TearDown() override { lzop_end(stream_); }

    /// Compresses with room for everything.
    std::string compress(const std::string& data, bool finish)
    {
        std::string room(data.size() * 2 + 100000, '\0');
        stream_.next_in = bytes_of(data);
        stream_.avail_in = data.size();
        stream_.next_out = reinterpret_cast<unsigned char*>(room.data());
        stream_.avail_out = room.size();
        EXPECT_EQ(lzop_compress(stream_, finish), finish ? LZOP_END : LZOP_OK);
        EXPECT_EQ(stream_.avail_in, 0U);
        room.resize(room.size() - stream_.avail_out);
        return room;
    }

    Lzop_Stream stream_;
};

TEST_F(Lzop_Compress, AMemberHoldsTheFieldsOfTheFormatAndNothingOfTheSystem)
{
    Lzop_File_Header header;
    header.flags = 0x300000d; // Adler-32, from and to a pipe, Unix
    EXPECT_EQ(compress("ab", true), lzop_file_member(header, "ab"));
}

TEST_F(Lzop_Compress, NothingWrittenBecomesOneEmptyMember)
{
    Lzop_File_Header header;
    header.flags = 0x300000d;
    EXPECT_EQ(compress("", false), "");
    EXPECT_EQ(compress("", true), header.bytes() + lzop_file_end);
}

TEST_F(Lzop_Compress, FinishingAgainAddsNothing)
{
    EXPECT_NE(compress("data", true), "");
    EXPECT_EQ(compress("", true), "");
    EXPECT_EQ(compress("", false), "");
    EXPECT_EQ(compress("", true), "");
}

TEST_F(Lzop_Compress, InputBehindTheEndBeginsANewMember)
{
    const std::string first = compress("first", true);
    const std::string second = compress("second", true);
    EXPECT_EQ(second, lzop_compress_whole("second", 3).data);
    const Lzop_Outcome back = lzop_decompress_whole(first + second);
    EXPECT_EQ(back.result, LZOP_END);
    EXPECT_EQ(back.data, "firstsecond");
}

TEST_F(Lzop_Compress, BytesThatDoNotShrinkAreStored)
{
    const std::string data = "0123456789abcdef";
    Lzop_File_Header header;
    header.flags = 0x300000d;
    EXPECT_EQ(compress(data, true), lzop_file_member(header, data));
}

TEST(Lzop_Compress_Levels, DataThatCompressesToItsOwnSizeIsStored)
{
    // lzo1x_1_compress and lzo1x_1_15_compress make 32 bytes of the first one, lzo1x_999_compress
    // makes 14 of the second.
    for (const std::string data : {"abcdefgabcdefghijklmnopqrstuvw!?", "abcdefabcdef!?"}) {
        for (int level = 1; level <= 9; ++level) {
            const std::string file = lzop_compress_whole(data, level).data;
            EXPECT_EQ(lzop_decompress_whole(file).data, data) << level;
        }
    }
}

TEST(Lzop_Compress_Levels, WholeBlocksOfNoiseAreStored)
{
    const std::string noise = sample_bytes(2 * lzop_block_size);
    for (int level = 1; level <= 9; ++level) {
        const std::string file = lzop_compress_whole(noise, level).data;
        EXPECT_EQ(file.size(), lzop_compress_whole("", level).data.size() + 2 * 12 + noise.size());
        EXPECT_TRUE(lzop_decompress_whole(file).data == noise);
    }
}

TEST_F(Lzop_Compress, WithoutRoomNothingIsLost)
{
    const std::string data = lzop_text(1000000);
    stream_.next_in = bytes_of(data);
    stream_.avail_in = data.size();
    stream_.next_out = nullptr;
    stream_.avail_out = 0;
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(lzop_compress(stream_, true), LZOP_OK);
    const std::string rest(data.end() - static_cast<std::ptrdiff_t>(stream_.avail_in), data.end());
    EXPECT_GT(rest.size(), 700000U);
    EXPECT_EQ(compress(rest, true), lzop_compress_whole(data, 3).data);
}

TEST_F(Lzop_Compress, TheOtherDirectionIsRefused)
{
    EXPECT_EQ(lzop_decompress(stream_, false), LZOP_E_STATE);
    EXPECT_EQ(lzop_compress(stream_, false), LZOP_E_STATE) << "an error holds until lzop_end";
}

TEST_F(Lzop_Compress, AStreamIsUsedAgainAfterAnotherInit)
{
    EXPECT_NE(compress("left behind", false), "");
    ASSERT_EQ(lzop_compress_init(stream_, 3, 0), LZOP_OK);
    EXPECT_EQ(compress("data", true), lzop_compress_whole("data", 3).data);
    ASSERT_EQ(lzop_decompress_init(stream_), LZOP_OK);
    EXPECT_EQ(lzop_compress(stream_, true), LZOP_E_STATE);
    ASSERT_EQ(lzop_compress_init(stream_, 9, 0), LZOP_OK);
    EXPECT_EQ(compress("data", true), lzop_compress_whole("data", 9).data);
}

TEST(Lzop_Compress_Init, ArgumentsOutOfRangeAreRefused)
{
    Lzop_Stream stream;
    for (const int level : {-1, 0, 10, 255})
        EXPECT_EQ(lzop_compress_init(stream, level, 0), LZOP_E_LEVEL) << level;
    EXPECT_EQ(lzop_compress_init(stream, 3, 1), LZOP_E_UNSUPPORTED);
    EXPECT_EQ(stream.state, nullptr);
}

TEST(Lzop_Compress_Init, AStreamWithoutInitIsRefused)
{
    Lzop_Stream stream;
    EXPECT_EQ(lzop_compress(stream, true), LZOP_E_STATE);
    EXPECT_EQ(lzop_decompress(stream, true), LZOP_E_STATE);
    lzop_end(stream);
    lzop_end(stream);
    ASSERT_EQ(lzop_compress_init(stream, 1, 0), LZOP_OK);
    lzop_end(stream);
    EXPECT_EQ(lzop_compress(stream, true), LZOP_E_STATE);
    EXPECT_TRUE(lzop_available());
}

TEST(Lzop_Cuts, SmallDataComesOutTheSameHoweverItIsCut)
{
    const std::string data = lzop_text(300);
    for (std::size_t size = 1; size <= data.size(); ++size) {
        const std::string plain = data.substr(0, size);
        const Lzop_Outcome whole = lzop_compress_whole(plain, 3);
        ASSERT_EQ(whole.result, LZOP_END);
        for (const std::size_t in : {std::size_t{1}, std::size_t{7}, size}) {
            for (const std::size_t out : {std::size_t{1}, std::size_t{13}, lzop_all}) {
                const auto cut =
                    lzop_compress_whole(plain, 3, lzop_pieces_of(in), lzop_pieces_of(out));
                ASSERT_EQ(cut.result, LZOP_END);
                ASSERT_EQ(cut.data, whole.data) << size << ' ' << in << ' ' << out;
            }
        }
        for (const bool end_behind : {false, true}) {
            const auto back =
                lzop_decompress_whole(whole.data, lzop_pieces_of(1), lzop_pieces_of(1), end_behind);
            ASSERT_EQ(back.result, LZOP_END);
            ASSERT_EQ(back.data, plain);
        }
    }
}

TEST(Lzop_Cuts, EveryCutOfASmallStreamGivesTheSame)
{
    const std::string data = lzop_text(300);
    const Lzop_Outcome whole = lzop_compress_whole(data, 3);
    for (std::size_t size = 1; size <= 300; ++size) {
        const auto pieces = lzop_pieces_of(size);
        const auto all = lzop_pieces_of(lzop_all);
        ASSERT_EQ(lzop_compress_whole(data, 3, pieces, all).data, whole.data) << size;
        ASSERT_EQ(lzop_compress_whole(data, 3, all, pieces).data, whole.data) << size;
        for (const bool end_behind : {false, true}) {
            const auto cut_in = lzop_decompress_whole(whole.data, pieces, all, end_behind);
            ASSERT_EQ(cut_in.result, LZOP_END) << size;
            ASSERT_EQ(cut_in.data, data) << size;
            const auto cut_out = lzop_decompress_whole(whole.data, all, pieces, end_behind);
            ASSERT_EQ(cut_out.result, LZOP_END) << size;
            ASSERT_EQ(cut_out.data, data) << size;
        }
    }
}

TEST(Lzop_Cuts, DataAroundBlockEdgesComesOutTheSameHoweverItIsCut)
{
    const auto all = lzop_pieces_of(lzop_all);
    const std::string text = lzop_text(600000);
    const std::string noise = Lzop_Random().data(600000);
    for (const std::size_t size : {262143, 262144, 262145, 524288, 524289}) {
        for (const std::string& plain : {text.substr(0, size), noise.substr(0, size)}) {
            const Lzop_Outcome whole = lzop_compress_whole(plain, 3);
            ASSERT_EQ(whole.result, LZOP_END);
            for (const std::size_t piece : {1, 65535, 65536, 65537, 262143, 262144, 262145}) {
                if (piece == 1 && size != lzop_block_size + 1)
                    continue; // takes long
                SCOPED_TRACE(std::to_string(size) + " in pieces of " + std::to_string(piece));
                const auto pieces = lzop_pieces_of(piece);
                ASSERT_TRUE(lzop_compress_whole(plain, 3, pieces, all).data == whole.data);
                ASSERT_TRUE(lzop_compress_whole(plain, 3, all, pieces).data == whole.data);
                ASSERT_TRUE(lzop_decompress_whole(whole.data, pieces, all).data == plain);
                ASSERT_TRUE(lzop_decompress_whole(whole.data, all, pieces).data == plain);
            }
        }
    }
}

TEST(Lzop_Cuts, RandomDataCutAtRandomComesOutTheSame)
{
    Lzop_Random random;
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE("CLIENT_IO_SEED=" + std::to_string(random.seed()) + ", round " +
                     std::to_string(round));
        const int level = 1 + static_cast<int>(random.below(9));
        const std::string plain = random.data(random.below(round % 4 == 0 ? 900000 : 3000));
        const std::size_t largest = 1 + random.below(round % 4 == 0 ? 400000 : 500);
        const Lzop_Pieces pieces = [&] { return 1 + random.below(largest); };
        const Lzop_Outcome whole = lzop_compress_whole(plain, level);
        const Lzop_Outcome cut = lzop_compress_whole(plain, level, pieces, pieces);
        ASSERT_EQ(cut.result, LZOP_END);
        ASSERT_TRUE(cut.data == whole.data);
        const Lzop_Outcome back =
            lzop_decompress_whole(whole.data, pieces, pieces, random.below(2) == 0);
        ASSERT_EQ(back.result, LZOP_END);
        ASSERT_TRUE(back.data == plain);
    }
}

} // namespace
