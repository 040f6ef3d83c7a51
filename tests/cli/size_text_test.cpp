#include "cli/size_text.h"

#include "cli/failure.h"

#include <gtest/gtest.h>

TEST(Size_Text, DigitsAndSuffixesAreRead)
{
    EXPECT_EQ(cio::parse_size("0"), 0U);
    EXPECT_EQ(cio::parse_size("123"), 123U);
    EXPECT_EQ(cio::parse_size("2K"), 2048U);
    EXPECT_EQ(cio::parse_size("3M"), 3U << 20U);
    EXPECT_EQ(cio::parse_size("5G"), 5ULL << 30U);
    EXPECT_EQ(cio::parse_size("7T"), 7ULL << 40U);
    EXPECT_EQ(cio::parse_size("9223372036854775807"), 9223372036854775807ULL);
    EXPECT_EQ(cio::parse_size("8388607T"), 8388607ULL << 40U);
}

TEST(Size_Text, OtherTextsAreRefused)
{
    for (const char* text : {"", "K", "-1", "+1", " 1", "1 ", "1k", "1KB", "1.5K", "0x10",
                             "9223372036854775808", "8388608T", "99999999999999999999999"})
        EXPECT_THROW((void)cio::parse_size(text), cio::Usage_Error) << text;
}
