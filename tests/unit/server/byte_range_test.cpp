#include "servers/common/byte_range.h"

#include <gtest/gtest.h>

namespace
{

void expect_part(const char* field, std::uint64_t size, std::uint64_t first, std::uint64_t length)
{
    Byte_Range range;
    EXPECT_EQ(choose_range(field, size, range), Range_Choice::part) << field;
    EXPECT_EQ(range.first, first) << field;
    EXPECT_EQ(range.size, length) << field;
}

} // namespace

TEST(Byte_Range, PartsAreThoseOfTheField)
{
    expect_part("bytes=0-0", 10, 0, 1);
    expect_part("bytes=2-5", 10, 2, 4);
    expect_part("bytes=2-", 10, 2, 8);
    expect_part("bytes=9-", 10, 9, 1);
    expect_part("bytes=0-9223372036854775807", 10, 0, 10);
    expect_part("bytes=-3", 10, 7, 3);
    expect_part("bytes=-30", 10, 0, 10);
}

TEST(Byte_Range, WhatBeginsBehindTheEndCannotBeSatisfied)
{
    Byte_Range range;
    for (const char* field : {"bytes=10-", "bytes=10-20", "bytes=9223372036854775807-", "bytes=-0"})
        EXPECT_EQ(choose_range(field, 10, range), Range_Choice::unsatisfiable) << field;
    EXPECT_EQ(choose_range("bytes=0-", 0, range), Range_Choice::unsatisfiable);
    EXPECT_EQ(choose_range("bytes=-1", 0, range), Range_Choice::unsatisfiable);
}

TEST(Byte_Range, WhatIsMalformedIsPassedOver)
{
    Byte_Range range;
    for (const char* field :
         {"", "bytes", "bytes=", "bytes=-", "bytes=5-2", "bytes=a-b", "bytes=1", "bytes=1-2x",
          "bytes=1-2,4-5", "bytes= 1-2", "bytes=+1-2", "bytes=--1", "items=1-2",
          "bytes=9223372036854775808-", "bytes=18446744073709551616-"})
        EXPECT_EQ(choose_range(field, 10, range), Range_Choice::whole) << field;
}

TEST(Content_Range, BothFormsAreRead)
{
    Content_Range range;
    EXPECT_TRUE(parse_content_range("bytes 2-5/10", range));
    EXPECT_EQ(range.first, 2U);
    EXPECT_EQ(range.last, 5U);
    EXPECT_TRUE(parse_content_range("bytes 0-0/*", range));
    EXPECT_EQ(range.last, 0U);
    EXPECT_TRUE(parse_content_range("bytes 7--1/*", range));
    EXPECT_EQ(range.first, 7U);
    EXPECT_FALSE(range.last.has_value());
    EXPECT_TRUE(parse_content_range("bytes 7--1/9", range));
}

TEST(Content_Range, WhatContradictsItselfIsRefused)
{
    Content_Range range;
    for (const char* field :
         {"", "bytes", "bytes 1", "bytes 1-", "bytes 1-2", "bytes 1-2/", "bytes 5-2/10",
          "bytes 1-10/10", "bytes 1-2/2", "bytes */10", "bytes 1--2/*", "bytes 1--1",
          "bytes 1--1/*x", "bytes=1-2/3", "bytes -1-2/3", "items 1-2/3", "bytes 9--1/8",
          "bytes 0-9223372036854775807/*", "bytes 9223372036854775808--1/*"})
        EXPECT_FALSE(parse_content_range(field, range)) << field;
}
