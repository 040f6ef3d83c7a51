#include "platform/http/chunked_decoder.h"

#include <gtest/gtest.h>
#include <random>

namespace
{

/// What a decoder made of a body.
struct Decoded
{
    bool whole = false;
    std::string data;
    std::string rest; ///< what was not taken
    std::string error;

    bool operator==(const Decoded&) const = default;
};

/// Feeds a decoder pieces whose sizes @p next_size tells.
template <class Size>
Decoded decode(std::string_view body, Size next_size)
{
    Chunked_Decoder decoder;
    Decoded result;
    std::string_view offered = body.substr(0, 0);
    while (!decoder.done()) {
        if (offered.empty()) {
            if (body.empty())
                break;
            offered = body.substr(0, next_size());
            body.remove_prefix(offered.size());
        }
        std::string_view data;
        if (!decoder.next(offered, data)) {
            result.error = decoder.error();
            EXPECT_FALSE(decoder.done());
            return result;
        }
        result.data += data;
    }
    result.whole = decoder.done();
    result.rest = std::string(offered) + std::string(body);
    return result;
}

Decoded decode_whole(std::string_view body)
{
    return decode(body, [&] { return body.size(); });
}

Decoded decode_bytes(std::string_view body)
{
    return decode(body, [] { return std::size_t{1}; });
}

TEST(Chunked_Decoder_Test, AnySplitOfTheInputGivesTheSame)
{
    const std::string body = "5\r\nhello\r\n"
                             "1;name=value;other=\"a;b\"\r\n,\r\n"
                             "00A \t; x\r\n\r\n0\r\n\r\n345\r\n"
                             "c\r\nABCDEFGHIJKL\r\n"
                             "000\r\nTrailer: one\r\nOther: two\r\n\r\nHTTP/1.1 200";
    const Decoded expected{true, "hello,\r\n0\r\n\r\n345ABCDEFGHIJKL", "HTTP/1.1 200", ""};
    EXPECT_EQ(decode_whole(body), expected);
    for (std::size_t size = 1; size < body.size(); ++size)
        EXPECT_EQ(decode(body, [&] { return size; }), expected) << size;
    for (std::size_t cut = 1; cut < body.size(); ++cut) {
        bool first = true;
        EXPECT_EQ(
            decode(body, [&] { return std::exchange(first, false) ? cut : body.size() - cut; }),
            expected)
            << cut;
    }
    std::mt19937 random(7);
    for (int round = 0; round < 1000; ++round)
        EXPECT_EQ(decode(body, [&] { return 1 + random() % 9; }), expected) << round;
}

TEST(Chunked_Decoder_Test, ABodyOfNoDataIsOneLastChunk)
{
    EXPECT_EQ(decode_whole("0\r\n\r\n"), (Decoded{true, "", "", ""}));
    EXPECT_EQ(decode_bytes("0\r\n\r\n"), (Decoded{true, "", "", ""}));
}

TEST(Chunked_Decoder_Test, ABodyThatStopsAnywhereIsNotWhole)
{
    const std::string body = "3;e\r\nabc\r\n0\r\nT: x\r\n\r\n";
    for (std::size_t size = 0; size < body.size(); ++size) {
        const Decoded part = decode_bytes(body.substr(0, size));
        EXPECT_FALSE(part.whole) << size;
        EXPECT_EQ(part.error, "") << size;
    }
}

TEST(Chunked_Decoder_Test, WhatTheGrammarDoesNotAllowIsRefused)
{
    const std::vector<std::string> bodies = {
        "\r\n",                // no size
        "\r\n0\r\n\r\n",       //
        ";x\r\n",              //
        " 1\r\na\r\n",         //
        "-1\r\na\r\n",         //
        "+1\r\na\r\n",         //
        "0x1\r\na\r\n",        //
        "1g\r\na\r\n",         //
        "1\na\r\n",            // LF alone
        "1;x\na\r\n",          //
        "1\r\na\n",            //
        "0\r\n\n",             //
        "0\r\nT: x\n\r\n",     //
        "1\rXa\r\n",           // CR alone
        "1;x\ry\r\na\r\n",     //
        "0\r\nT: \rx\r\n\r\n", //
        "1\r\nab\r\n",         // longer than its size
        "1\r\na0\r\n\r\n",     //
        "2\r\na\r\n0\r\n\r\n", // shorter: its CR is data, the LF is not
        std::string("1\0\r\na\r\n", 7),
    };
    for (const std::string& body : bodies) {
        SCOPED_TRACE(testing::PrintToString(body));
        const Decoded whole = decode_whole(body);
        EXPECT_FALSE(whole.whole);
        EXPECT_NE(whole.error, "");
        EXPECT_EQ(decode_bytes(body).error, whole.error);
    }
}

TEST(Chunked_Decoder_Test, ARefusedBodyStaysRefused)
{
    Chunked_Decoder decoder;
    std::string_view input = "x";
    std::string_view data;
    EXPECT_FALSE(decoder.next(input, data));
    const std::string error = decoder.error();
    input = "0\r\n\r\n";
    EXPECT_FALSE(decoder.next(input, data));
    EXPECT_FALSE(decoder.done());
    EXPECT_EQ(data, "");
    EXPECT_EQ(decoder.error(), error);
}

TEST(Chunked_Decoder_Test, SizesFit64Bits)
{
    Chunked_Decoder decoder;
    std::string_view input = "FFFFFFFFFFFFFFFF\r\n";
    std::string_view data;
    ASSERT_TRUE(decoder.next(input, data));
    EXPECT_EQ(decoder.chunk_left(), ~std::uint64_t{0});
    EXPECT_NE(decode_whole("10000000000000000\r\n").error, "");
    EXPECT_NE(decode_whole("00000000000000001\r\na\r\n").error, "");
}

TEST(Chunked_Decoder_Test, ExtensionsAreLimited)
{
    const auto body = [](std::size_t size) {
        return "1;" + std::string(size, 'x') + "\r\na\r\n0\r\n\r\n";
    };
    const Decoded expected{true, "a", "", ""};
    EXPECT_EQ(decode_bytes(body(Chunked_Decoder::max_line - 1)), expected);
    EXPECT_NE(decode_bytes(body(Chunked_Decoder::max_line)).error, "");
    // The limit is one chunk's.
    EXPECT_EQ(decode_whole("1;" + std::string(4000, 'x') + "\r\na\r\n" + body(4000)).data, "aa");
}

TEST(Chunked_Decoder_Test, TheTrailerIsLimitedAsAWhole)
{
    const auto body = [](std::size_t lines) {
        std::string text = "0\r\n";
        for (std::size_t line = 0; line < lines; ++line)
            text += "Name: " + std::string(1024 - 6, 'x') + "\r\n";
        return text + "\r\n";
    };
    EXPECT_TRUE(decode_bytes(body(16)).whole);
    EXPECT_NE(decode_bytes(body(17)).error, "");
    EXPECT_NE(decode_whole("0\r\n" + std::string(Chunked_Decoder::max_trailer + 1, 'x')).error, "");
}

TEST(Chunked_Decoder_Test, DataMayBeReadPastItAndSkipped)
{
    Chunked_Decoder decoder;
    std::string_view data;
    EXPECT_EQ(decoder.chunk_left(), 0U);
    std::string_view input = "a\r\n01";
    ASSERT_TRUE(decoder.next(input, data));
    EXPECT_EQ(data, "01");
    EXPECT_EQ(decoder.chunk_left(), 8U);
    decoder.skip(5);
    EXPECT_EQ(decoder.chunk_left(), 3U);
    input = "789\r\n0\r\n\r\nrest";
    ASSERT_TRUE(decoder.next(input, data));
    EXPECT_EQ(data, "789");
    EXPECT_EQ(decoder.chunk_left(), 0U);
    ASSERT_TRUE(decoder.next(input, data));
    EXPECT_EQ(data, "");
    EXPECT_TRUE(decoder.done());
    EXPECT_EQ(input, "rest");

    Chunked_Decoder whole_skipped;
    input = "3\r\n";
    ASSERT_TRUE(whole_skipped.next(input, data));
    whole_skipped.skip(3);
    EXPECT_EQ(whole_skipped.chunk_left(), 0U);
    input = "\r\n0\r\n\r\n";
    ASSERT_TRUE(whole_skipped.next(input, data));
    EXPECT_TRUE(whole_skipped.done());
}

} // namespace
