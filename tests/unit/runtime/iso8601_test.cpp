#include "platform/runtime/iso8601.h"

#include <gtest/gtest.h>

namespace
{

// The numbers are those of `date -u -d TEXT +%s`.

TEST(ISO_8601, ExtendedFormIsRead)
{
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29T12:34:56Z"), 1709210096);
    EXPECT_EQ(iso8601_to_posix_time("1970-01-01T00:00:01Z"), 1);
    EXPECT_EQ(iso8601_to_posix_time("2000-01-01T00:00:00Z"), 946684800);
    EXPECT_EQ(iso8601_to_posix_time("2038-01-19T03:14:08Z"), 2147483648);
    EXPECT_EQ(iso8601_to_posix_time("9999-12-31T23:59:59Z"), 253402300799);
}

TEST(ISO_8601, BasicFormIsRead)
{
    EXPECT_EQ(iso8601_to_posix_time("20240229T123456Z"), 1709210096);
    EXPECT_EQ(iso8601_to_posix_time("20240229T123456.5Z"), 1709210096);
    EXPECT_EQ(iso8601_to_posix_time("20240229T1234Z"), 1709210040);
    EXPECT_EQ(iso8601_to_posix_time("20240229"), 1709164800);
}

TEST(ISO_8601, TimesBeforeTheEpochAreNegative)
{
    EXPECT_EQ(iso8601_to_posix_time("1969-12-31T23:59:59Z"), -1);
    EXPECT_EQ(iso8601_to_posix_time("1601-01-01T00:00:00Z"), -11644473600);
}

TEST(ISO_8601, FractionsAreDropped)
{
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29T12:34:56.789Z"), 1709210096);
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29T12:34:56,999999999999999999999Z"), 1709210096);
    EXPECT_EQ(iso8601_to_posix_time("1969-12-31T23:59:58.9Z"), -2);
}

TEST(ISO_8601, ZonesMoveTheTime)
{
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29T12:34:56.789+08:00"), 1709181296);
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29T12:34:56-05:30"), 1709229896);
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29T12:34:56+0800"), 1709181296);
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29T12:34:56+08"), 1709181296);
    EXPECT_EQ(iso8601_to_posix_time("20240229T123456+0800"), 1709181296);
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29T12:34:56-00:00"), 1709210096);
}

TEST(ISO_8601, NoZoneIsUniversalTime)
{
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29T12:34:56"), 1709210096);
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29T12:34"), 1709210040);
}

TEST(ISO_8601, ADateAloneIsItsMidnight)
{
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29"), 1709164800);
}

TEST(ISO_8601, LettersMayBeSmall)
{
    EXPECT_EQ(iso8601_to_posix_time("2024-02-29t12:34:56z"), 1709210096);
}

TEST(ISO_8601, LeapDaysFollowTheCalendar)
{
    EXPECT_EQ(iso8601_to_posix_time("2000-02-29"), 951782400);
    EXPECT_EQ(iso8601_to_posix_time("2023-02-29"), 0);
    EXPECT_EQ(iso8601_to_posix_time("1900-02-29"), 0);
    EXPECT_EQ(iso8601_to_posix_time("2100-02-29"), 0);
}

TEST(ISO_8601, TheEndOfADayAndALeapSecondAreTheNextDay)
{
    EXPECT_EQ(iso8601_to_posix_time("2024-02-28T24:00:00Z"), 1709164800);
    EXPECT_EQ(iso8601_to_posix_time("2016-12-31T23:59:60Z"), 1483228800);
    EXPECT_EQ(iso8601_to_posix_time("2024-02-28T24:00:01Z"), 0);
    EXPECT_EQ(iso8601_to_posix_time("2024-02-28T24:01:00Z"), 0);
}

TEST(ISO_8601, WhatIsNoTimeIsZero)
{
    const char* const refused[] = {
        "",
        " ",
        "x",
        "2024",
        "2024-02",
        "202402",
        "2024-00-10",
        "2024-13-10",
        "2024-02-00",
        "2024-04-31",
        "2024-1-1",
        "24-02-29",
        "02024-02-29",
        "2024-0229",
        "202402-29",
        "2024/02/29",
        "2024-02-29T",
        "2024-02-29 12:34:56",
        "2024-02-29T12",
        "2024-02-29T1:2:3",
        "2024-02-29T123456",
        "20240229T12:34:56",
        "2024-02-29T12:34:56.",
        "2024-02-29T12:34:56.Z",
        "2024-02-29T25:00:00",
        "2024-02-29T12:60:00",
        "2024-02-29T12:34:61",
        "2024-02-29T12:34:5",
        "2024-02-29T12:34:56+",
        "2024-02-29T12:34:56+8",
        "2024-02-29T12:34:56+24:00",
        "2024-02-29T12:34:56+08:60",
        "2024-02-29T12:34:56+08:",
        "2024-02-29T12:34:56+08:0",
        "2024-02-29T12:34:56ZZ",
        "2024-02-29T12:34:56Z ",
        " 2024-02-29",
        "2024-02-29Z",
        "-024-02-29",
        "+2024-02-29",
        "2024-02-2\xc3",
        "2024-02-29T-1:00:00",
    };
    for (const char* text : refused)
        EXPECT_EQ(iso8601_to_posix_time(text), 0) << text;
    EXPECT_EQ(iso8601_to_posix_time(std::string("2024-02-29\0", 11)), 0);
    EXPECT_EQ(iso8601_to_posix_time(std::string(1000000, '1')), 0);
}

} // namespace
