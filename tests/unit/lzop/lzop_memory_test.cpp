#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

#include "platform/lzop/lzop.h"
#include "tests/support/allocation_count.h"
#include "tests/unit/lzop/lzop_file.h"
#include "tests/unit/lzop/lzop_pieces.h"

namespace
{

/// Gives @p data in pieces of one size, with room of another, without allocating anything itself.
int feed(Lzop_Stream& stream, const std::string& data, std::size_t piece,
         std::vector<unsigned char>& room, int operation(Lzop_Stream&, bool))
{
    int result = LZOP_OK;
    for (std::size_t at = 0; at < data.size() && result == LZOP_OK;) {
        const std::size_t size = std::min(piece, data.size() - at);
        stream.next_in = reinterpret_cast<const unsigned char*>(data.data()) + at;
        stream.avail_in = size;
        at += size;
        do {
            stream.next_out = room.data();
            stream.avail_out = room.size();
            result = operation(stream, false);
        } while (result == LZOP_OK && (stream.avail_in > 0 || stream.avail_out == 0));
    }
    return result;
}

TEST(Lzop_Memory, NothingIsAllocatedOnceAStreamIsInUse)
{
    const std::string plain = lzop_text(2000000) + Lzop_Random().data(600000);
    const std::string compressed = lzop_compress_whole(plain, 3).data;
    std::vector<unsigned char> small(10000);
    std::vector<unsigned char> large(1000000);
    for (const int level : {1, 3, 9}) {
        Lzop_Stream stream;
        ASSERT_EQ(lzop_compress_init(stream, level, 0), LZOP_OK);
        const Allocation_Count count;
        EXPECT_EQ(feed(stream, plain, 100000, small, lzop_compress), LZOP_OK);
        EXPECT_EQ(feed(stream, plain, 700000, large, lzop_compress), LZOP_OK);
        EXPECT_EQ(count.allocations(), 0U);
        lzop_end(stream);
    }
    Lzop_Stream stream;
    ASSERT_EQ(lzop_decompress_init(stream), LZOP_OK);
    EXPECT_EQ(feed(stream, compressed, 10000, small, lzop_decompress), LZOP_OK);
    const Allocation_Count count;
    EXPECT_EQ(feed(stream, compressed, 10000, small, lzop_decompress), LZOP_OK);
    EXPECT_EQ(feed(stream, compressed, 700000, large, lzop_decompress), LZOP_OK);
    EXPECT_EQ(count.allocations(), 0U);
    lzop_end(stream);
}

TEST(Lzop_Memory, WholeBlocksBothWaysNeedNoBuffer)
{
    const std::string compressed = lzop_compress_whole(lzop_text(2000000), 3).data;
    std::vector<unsigned char> room(2000000);
    Lzop_Stream stream;
    ASSERT_EQ(lzop_decompress_init(stream), LZOP_OK);
    const Allocation_Count count;
    EXPECT_EQ(feed(stream, compressed, compressed.size(), room, lzop_decompress), LZOP_OK);
    EXPECT_EQ(count.allocations(), 0U);
    lzop_end(stream);
}

TEST(Lzop_Memory, WhatAHeaderClaimsIsNotAllocatedBeforeItComes)
{
    Lzop_File_Header header;
    header.flags |= 0x40;
    header.extra = "x";
    std::string extra = header.bytes();
    extra.replace(extra.size() - 9, 4, "\xff\xff\xff\xff");
    std::vector<unsigned char> room(1000);
    const auto bytes_for = [&](const std::string& file, int result) {
        Lzop_Stream stream;
        const Allocation_Count count;
        EXPECT_EQ(lzop_decompress_init(stream), LZOP_OK);
        EXPECT_EQ(feed(stream, file, 100, room, lzop_decompress), result);
        const std::size_t bytes = count.bytes();
        lzop_end(stream);
        return bytes;
    };
    const auto block = [](std::uint32_t plain, std::uint32_t compressed, std::size_t come) {
        return Lzop_File_Header{}.bytes() + big_endian(plain, 4) + big_endian(compressed, 4) +
               std::string(come, 'x');
    };
    constexpr std::uint32_t largest = lzop_max_block_size;
    constexpr std::size_t usual = lzop_block_size + 2000;
    EXPECT_LT(bytes_for(extra + std::string(100000, 'x'), LZOP_OK), 2000U);
    EXPECT_LT(bytes_for(block(largest, largest, 4), LZOP_OK), 2000U);
    EXPECT_LT(bytes_for(block(largest, largest, 5000), LZOP_OK), usual);
    EXPECT_LT(bytes_for(block(largest, largest - 1, 300000), LZOP_OK), 3 * usual);
    EXPECT_LT(bytes_for(block(largest, 1, 5000), LZOP_E_BLOCK_SIZE), 2000U);
    EXPECT_LT(bytes_for(block(largest + 1, largest, 5000), LZOP_E_BLOCK_SIZE), 2000U);
}

TEST(Lzop_Memory, NoMemoryIsAnErrorAndLeavesNothingBehind)
{
    Lzop_Stream stream;
    for (int level : {3, 9}) {
        int allowed = 0;
        for (;; ++allowed) {
            int result = LZOP_OK;
            {
                const Allocation_Failure failure(static_cast<std::size_t>(allowed));
                result = lzop_compress_init(stream, level, 0);
            }
            if (result == LZOP_OK)
                break;
            ASSERT_EQ(result, LZOP_E_NO_MEMORY);
            ASSERT_EQ(stream.state, nullptr);
        }
        EXPECT_GE(allowed, 4) << "level " << level;
        lzop_end(stream);
    }

    const std::string compressed = lzop_compress_whole(lzop_text(100000), 3).data;
    std::vector<unsigned char> room(1000);
    for (std::size_t allowed = 0; allowed < 4; ++allowed) {
        int started = LZOP_OK;
        int result = LZOP_OK;
        {
            const Allocation_Failure failure(allowed);
            started = lzop_decompress_init(stream);
            if (started == LZOP_OK)
                result = feed(stream, compressed, 1000, room, lzop_decompress);
        }
        EXPECT_EQ(started, allowed < 1 ? LZOP_E_NO_MEMORY : LZOP_OK);
        EXPECT_EQ(result, allowed == 1 || allowed == 2 ? LZOP_E_NO_MEMORY : LZOP_OK) << allowed;
        lzop_end(stream);
    }
}

} // namespace
