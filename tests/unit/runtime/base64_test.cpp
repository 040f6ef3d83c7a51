#include "platform/runtime/base64.h"

#include <gtest/gtest.h>

namespace
{

std::string encode(const std::string& bytes)
{
    return Base64_Encoder::encode(bytes.data(), bytes.size());
}

struct Vector
{
    const char* plain;
    const char* text;
};

// RFC 4648, section 10.
constexpr Vector vectors[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
};

TEST(Base64, VectorsOfTheStandardEncode)
{
    for (const Vector& vector : vectors)
        EXPECT_EQ(encode(vector.plain), vector.text);
}

TEST(Base64, VectorsOfTheStandardDecode)
{
    for (const Vector& vector : vectors) {
        std::string out = "old";
        EXPECT_TRUE(Base64_Decoder::decode(vector.text, out)) << vector.text;
        EXPECT_EQ(out, vector.plain);
    }
}

TEST(Base64, EveryByteValueHasItsKnownForm)
{
    // printf '\xfb\xff\xbf\x00\x10\x83' | base64
    EXPECT_EQ(encode(std::string("\xfb\xff\xbf\x00\x10\x83", 6)), "+/+/ABCD");
    std::string out;
    ASSERT_TRUE(Base64_Decoder::decode("+/+/ABCD", out));
    EXPECT_EQ(out, std::string("\xfb\xff\xbf\x00\x10\x83", 6));
}

TEST(Base64, NoDataEncodesToNothing)
{
    EXPECT_EQ(Base64_Encoder::encode(nullptr, 0), "");
    EXPECT_EQ(Base64_Encoder::encode("x", 0), "");
}

TEST(Base64, WhiteSpaceAroundTheTextIsAllowed)
{
    std::string out;
    EXPECT_TRUE(Base64_Decoder::decode(" \t\r\nZm8=\r\n\v\f ", out));
    EXPECT_EQ(out, "fo");
    EXPECT_TRUE(Base64_Decoder::decode(" \n ", out));
    EXPECT_EQ(out, "");
}

TEST(Base64, WhatTheEncoderWouldNotWriteIsRefused)
{
    const char* const refused[] = {
        "Z",    "Zg",   "Zg=",          "Zm8",     "Zm9vY", "=",        "==",    "===",
        "====", "Z===", "Zg==Zg==",     "Zg=a",    "Zm 8=", "Zm\n8=",   "Zm8=x", "Zm8-",
        "Zm8_", "Zm8*", "Zm9vYg==\x01", "Zm8\xc3", "Zm9v=", "Zm9v====",
    };
    for (const char* text : refused) {
        std::string out = "old";
        EXPECT_FALSE(Base64_Decoder::decode(text, out)) << text;
        EXPECT_EQ(out, "") << text;
    }
}

TEST(Base64, SpareBitsThatAreSetAreRefused)
{
    std::string out;
    EXPECT_TRUE(Base64_Decoder::decode("Zg==", out));
    EXPECT_FALSE(Base64_Decoder::decode("Zh==", out));
    EXPECT_TRUE(Base64_Decoder::decode("Zm8=", out));
    EXPECT_FALSE(Base64_Decoder::decode("Zm9=", out));
}

TEST(Base64, NulBytesInTheTextAreRefused)
{
    std::string out;
    EXPECT_FALSE(Base64_Decoder::decode(std::string_view("Zm9v\0\0\0\0", 8), out));
    EXPECT_FALSE(Base64_Decoder::decode(std::string_view("Zm9\0", 4), out));
}

TEST(Base64, DataOfSeveralPiecesHasNoSeam)
{
    // Zero bytes are the letter A; the three sizes end in each of the paddings.
    for (std::size_t extra = 0; extra < 3; ++extra) {
        const std::string zeros((7U << 20U) / 3 * 3 + extra, '\0');
        const std::string text = encode(zeros);
        const std::string padding((3 - extra) % 3, '=');
        ASSERT_EQ(text.size(), (zeros.size() + 2) / 3 * 4);
        EXPECT_EQ(text.find_first_not_of('A'),
                  padding.empty() ? std::string::npos : text.size() - padding.size());
        std::string out;
        ASSERT_TRUE(Base64_Decoder::decode(text, out));
        EXPECT_TRUE(out == zeros);
    }
}

TEST(Base64, ADamagedCharacterInALatePieceIsRefused)
{
    std::string text(9U << 20U, 'A');
    text[text.size() - 2] = '!';
    std::string out = "old";
    EXPECT_FALSE(Base64_Decoder::decode(text, out));
    EXPECT_EQ(out, "");
}

TEST(Base64, TextMayLieInTheResult)
{
    std::string text = "Zm9vYmFy";
    ASSERT_TRUE(Base64_Decoder::decode(text, text));
    EXPECT_EQ(text, "foobar");
}

} // namespace
