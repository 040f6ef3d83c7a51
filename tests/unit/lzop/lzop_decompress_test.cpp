#include <gtest/gtest.h>
#include <set>

#include "platform/lzop/lzop.h"
#include "tests/unit/lzop/lzop_file.h"
#include "tests/unit/lzop/lzop_pieces.h"

namespace
{

// In a member: behind magic, header, and a block's sizes and checksum.
constexpr std::size_t compressed_data_at = 9 + 29 + 12;

std::string member(const std::string& plain, int level = 3)
{
    return lzop_compress_whole(plain, level).data;
}

void expect(const std::string& file, int result, const std::string& data)
{
    for (const std::size_t in : {std::size_t{1}, std::size_t{100}, lzop_all}) {
        for (const bool end_behind : {false, true}) {
            const auto outcome = lzop_decompress_whole(file, lzop_pieces_of(in),
                                                       lzop_pieces_of(lzop_all), end_behind);
            EXPECT_EQ(outcome.result, result) << lzop_result_text(outcome.result);
            EXPECT_TRUE(outcome.data == data);
        }
    }
}

TEST(Lzop_Decompress, MembersOneBehindTheOtherAreOneStream)
{
    const std::string text = lzop_text(300000);
    expect(member(""), LZOP_END, "");
    expect(member("") + member(""), LZOP_END, "");
    expect(member("one", 1) + member("") + member(text, 9) + member("four", 7), LZOP_END,
           "one" + text + "four");
}

TEST(Lzop_Decompress, NoInputIsTruncated)
{
    expect("", LZOP_E_TRUNCATED, "");
}

TEST(Lzop_Decompress, BytesThatAreNoMemberAreRefused)
{
    expect("neither this", LZOP_E_MAGIC, "");
    expect("x", LZOP_E_MAGIC, "");
    expect(std::string("\x89LZP"), LZOP_E_MAGIC, "");
    expect(std::string("\x89LZO"), LZOP_E_TRUNCATED, "");
    expect(member("data") + "x", LZOP_E_MAGIC, "data");
    expect(member("data") + std::string(512, '\0'), LZOP_E_MAGIC, "data");
    expect(member("data") + "\x89L", LZOP_E_TRUNCATED, "data");
}

TEST(Lzop_Decompress, EveryTruncationIsFound)
{
    Lzop_File_Header with_extra;
    with_extra.name = "name";
    with_extra.flags |= 0x40;
    with_extra.extra = "extra field";
    const std::string compressed = member(lzop_text(200)) + lzop_file_member(with_extra, "stored");
    const std::string plain = lzop_text(200) + "stored";
    const std::size_t first = member(lzop_text(200)).size();
    for (std::size_t size = 0; size < compressed.size(); ++size) {
        for (const std::size_t piece : {std::size_t{1}, lzop_all}) {
            const auto outcome =
                lzop_decompress_whole(compressed.substr(0, size), lzop_pieces_of(piece));
            // A cut between two members leaves a whole file.
            ASSERT_EQ(outcome.result, size == first ? LZOP_END : LZOP_E_TRUNCATED) << size;
            ASSERT_EQ(plain.substr(0, outcome.data.size()), outcome.data) << size;
        }
    }
    expect(compressed, LZOP_END, plain);
}

TEST(Lzop_Decompress, NoDamagedByteGivesWrongData)
{
    const std::string plain = lzop_text(500) + Lzop_Random().data(40);
    for (const int level : {1, 3, 9}) {
        const std::string first = member(plain, level);
        const std::string good = first + member("stored");
        for (std::size_t at = 0; at < good.size(); ++at) {
            for (int value = 1; value < 256; ++value) {
                std::string damaged = good;
                damaged[at] = static_cast<char>(damaged[at] ^ value);
                const auto outcome =
                    lzop_decompress_whole(damaged, lzop_pieces_of(lzop_all), lzop_pieces_of(4096));
                const std::string& given = outcome.data;
                SCOPED_TRACE("byte " + std::to_string(at) + " xor " + std::to_string(value));
                if (outcome.result != LZOP_END) {
                    ASSERT_TRUE(given.empty() || given == plain || given == plain + "stored");
                    continue;
                }
                // Compressed data may be another encoding of the same bytes; nothing else may go
                // unnoticed.
                ASSERT_TRUE(given == plain + "stored");
                ASSERT_GE(at, compressed_data_at);
                ASSERT_LT(at, first.size() - lzop_file_end.size());
            }
        }
    }
}

TEST(Lzop_Decompress, WithoutChecksumsDamageStaysWithinMemory)
{
    Lzop_Random random;
    Lzop_File_Header header;
    header.flags = 0x3000000;
    const std::string plain = lzop_text(3000);
    const std::string whole = member(plain, 9);
    const std::string data =
        whole.substr(compressed_data_at, whole.size() - compressed_data_at - 4);
    const std::string good = header.bytes() + lzop_file_block(header, plain, data) + lzop_file_end;
    expect(good, LZOP_END, plain);
    for (int round = 0; round < 5000; ++round) {
        std::string damaged = good;
        for (std::size_t i = 0; i <= random.below(3); ++i)
            damaged[random.below(damaged.size())] ^= static_cast<char>(1 + random.below(255));
        const auto outcome = lzop_decompress_whole(damaged);
        ASSERT_LE(outcome.data.size(), 256 * damaged.size());
    }
}

TEST(Lzop_Decompress, AnErrorHoldsUntilTheStreamIsEnded)
{
    Lzop_Stream stream;
    ASSERT_EQ(lzop_decompress_init(stream), LZOP_OK);
    const std::string wrong = "wrong";
    const auto give = [&](const std::string& data) {
        stream.next_in = reinterpret_cast<const unsigned char*>(data.data());
        stream.avail_in = data.size();
        return lzop_decompress(stream, true);
    };
    EXPECT_EQ(give(wrong), LZOP_E_MAGIC);
    EXPECT_EQ(give(member("")), LZOP_E_STATE);
    ASSERT_EQ(lzop_decompress_init(stream), LZOP_OK);
    EXPECT_EQ(give(member("")), LZOP_END);
    EXPECT_EQ(lzop_decompress(stream, true), LZOP_END);
    EXPECT_EQ(lzop_compress(stream, true), LZOP_E_STATE);
    lzop_end(stream);
}

TEST(Lzop_Decompress, GoodBytesComeOutBeforeTheDamageBehindThem)
{
    Lzop_Stream stream;
    ASSERT_EQ(lzop_decompress_init(stream), LZOP_OK);
    const std::string plain = lzop_text(lzop_block_size) + "second block";
    std::string file = member(plain);
    file[file.size() - 8] ^= 1;
    std::string room(lzop_block_size, '\0');
    stream.next_in = reinterpret_cast<const unsigned char*>(file.data());
    stream.avail_in = file.size();
    stream.next_out = reinterpret_cast<unsigned char*>(room.data());
    stream.avail_out = room.size();
    EXPECT_EQ(lzop_decompress(stream, true), LZOP_OK);
    EXPECT_EQ(stream.avail_out, 0U);
    EXPECT_TRUE(room == plain.substr(0, lzop_block_size));
    stream.next_out = reinterpret_cast<unsigned char*>(room.data());
    stream.avail_out = room.size();
    EXPECT_EQ(lzop_decompress(stream, true), LZOP_E_BLOCK_CHECKSUM);
    EXPECT_EQ(stream.avail_out, room.size());
    lzop_end(stream);
}

TEST(Lzop_Decompress, TheEndIsSeenWithoutRoomForOutput)
{
    Lzop_Stream stream;
    ASSERT_EQ(lzop_decompress_init(stream), LZOP_OK);
    const std::string file = member("1234");
    unsigned char room[4];
    stream.next_in = reinterpret_cast<const unsigned char*>(file.data());
    stream.avail_in = file.size();
    EXPECT_EQ(lzop_decompress(stream, true), LZOP_OK);
    stream.next_out = room;
    stream.avail_out = sizeof room;
    EXPECT_EQ(lzop_decompress(stream, true), LZOP_END);
    EXPECT_EQ(stream.avail_out, 0U);
    lzop_end(stream);
}

TEST(Lzop_Result_Text, EveryResultHasATextOfItsOwn)
{
    std::set<std::string> texts;
    for (int result = 0; result >= LZOP_E_TRUNCATED; --result)
        texts.insert(lzop_result_text(result));
    texts.insert(lzop_result_text(LZOP_END));
    EXPECT_EQ(texts.size(), 14U);
    EXPECT_FALSE(texts.contains(""));
    EXPECT_EQ(texts.count(lzop_result_text(-13)), 0U);
    EXPECT_STREQ(lzop_result_text(5), lzop_result_text(-13));
}

} // namespace
