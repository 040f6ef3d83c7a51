#include "platform/http/http_encode.h"

#include <gtest/gtest.h>

namespace
{

std::string every_byte()
{
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    return bytes;
}

TEST(HTTP_Encode, APathKeepsWhatRFC3986AllowsInOne)
{
    // RFC 3986, 3.3: pchar without pct-encoded, and the slash.
    constexpr std::string_view allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                         "0123456789-._~!$&'()*+,;=:@/";
    for (const char c : every_byte()) {
        const bool kept = allowed.find(c) != std::string_view::npos;
        const std::string one(1, c);
        EXPECT_EQ(http_encode_string(one, http_path_characters) == one, kept)
            << static_cast<int>(static_cast<unsigned char>(c));
    }
}

TEST(HTTP_Encode, WhatIsEncodedIsWrittenInTwoUpperCaseDigits)
{
    EXPECT_EQ(http_encode_string("a b%c?d#e\xC3\xBC\n", http_path_characters),
              "a%20b%25c%3Fd%23e%C3%BC%0A");
    EXPECT_EQ(http_encode_string(std::string_view("\0", 1), http_path_characters), "%00");
    EXPECT_EQ(http_encode_string("Az09/", 0), "%41%7A%30%39%2F");
    EXPECT_EQ(http_encode_string("", http_path_characters), "");
}

TEST(HTTP_Encode, DecodingGivesBackWhatWasEncodedByAnyMaskThatEncodesThePercentSign)
{
    const std::string bytes = every_byte();
    for (const std::uint32_t mask : {0U, 0x7FEFCU, 0x1CU, 0x200U, 0x7FEFFU}) {
        std::string plain;
        ASSERT_TRUE(http_decode_string(http_encode_string(bytes, mask), plain)) << mask;
        EXPECT_EQ(plain, bytes) << mask;
    }
}

TEST(HTTP_Encode, DecodingTakesDigitsOfBothCasesAndLeavesPlusAlone)
{
    std::string plain;
    ASSERT_TRUE(http_decode_string("%2f%2F+%e4", plain));
    EXPECT_EQ(plain, "//+\xE4");
}

TEST(HTTP_Encode, DecodingRefusesAPercentSignWithoutTwoDigits)
{
    std::string plain;
    for (const char* const text : {"%", "%1", "a%", "%g0", "%0g", "%%20", "%-1", "% 1", "%0x41"})
        EXPECT_FALSE(http_decode_string(text, plain)) << text;
}

} // namespace
