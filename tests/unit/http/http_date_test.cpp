#include "platform/http/http_date.h"

#include <gtest/gtest.h>

TEST(HTTP_Date, IsWrittenInTheFixedForm)
{
    EXPECT_EQ(http_date(784111777), "Sun, 06 Nov 1994 08:49:37 GMT"); // RFC 9110, 5.6.7
    EXPECT_EQ(http_date(0), "Thu, 01 Jan 1970 00:00:00 GMT");
    EXPECT_EQ(http_date(-1), "Wed, 31 Dec 1969 23:59:59 GMT");
}

TEST(HTTP_Date, IsReadInItsThreeForms)
{
    for (const char* text : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                             "Sun Nov  6 08:49:37 1994"})
        EXPECT_EQ(parse_http_date(text), 784111777) << text;
    EXPECT_EQ(parse_http_date("Tuesday, 01-Nov-94 08:49:37 GMT"), 783679777);
    EXPECT_EQ(parse_http_date("Sun Nov 13 08:49:37 1994"), 784716577);
    for (const char* text : {"", "yesterday", "1994-11-06T08:49:37Z", "Sun, 06 Nov 1994 08:49:37",
                             "Sun, 06 Nov 1994 08:49:37 GMT+1", "Sun, 36 Nov 1994 08:49:37 GMT",
                             "Sun, 06 Nov 1994 08:49 GMT", "Sun, 31 Feb 1994 08:49:37 GMT", " GMT"})
        EXPECT_EQ(parse_http_date(text), std::nullopt) << text;
}
