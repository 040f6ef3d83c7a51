#include "servers/storage/upload_request.h"

#include <gtest/gtest.h>

namespace
{

HTTP_Headers one(const char* name, const std::string& value)
{
    HTTP_Headers headers;
    headers.put(name, value);
    return headers;
}

} // namespace

TEST(Upload_Request, WithoutFieldsItIsTheWholeFile)
{
    Upload_Request request;
    EXPECT_EQ(read_upload_request({}, request), "");
    EXPECT_FALSE(request.has_range);
    EXPECT_EQ(request.options.mtime_ns, -1);
    EXPECT_EQ(request.options.creation_mask, 022U);
}

TEST(Upload_Request, FieldsAreRead)
{
    HTTP_Headers headers = one("Content-Range", "bytes 5-9/20");
    headers.put("Last-Modified", "1970-01-01T00:00:02Z");
    headers.put("X-Mode-Creation-Mask", "63");
    Upload_Request request;
    EXPECT_EQ(read_upload_request(headers, request), "");
    EXPECT_TRUE(request.has_range);
    EXPECT_EQ(request.first, 5U);
    EXPECT_EQ(request.size, 5U);
    EXPECT_EQ(request.options.mtime_ns, 2'000'000'000);
    EXPECT_EQ(request.options.creation_mask, 077U);
}

TEST(Upload_Request, WhatIsMalformedIsToldByItsName)
{
    Upload_Request request;
    EXPECT_EQ(read_upload_request(one("Content-Range", "bytes 9-5/20"), request),
              "Content-Range is malformed");
    for (const char* time : {"", "never", "2300-01-01T00:00:00Z", "1960-01-01T00:00:00Z"})
        EXPECT_EQ(read_upload_request(one("Last-Modified", time), request),
                  "Last-Modified is no time from 1970 to 2262")
            << time;
    for (const char* mask : {"", "x", "-1", "512", "7 ", "99999999999"})
        EXPECT_EQ(read_upload_request(one("X-Mode-Creation-Mask", mask), request),
                  "X-Mode-Creation-Mask is no number of permission bits")
            << mask;
}

TEST(Upload_Request, TheFirstSecondIsATimeToo)
{
    EXPECT_EQ(parse_time("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(parse_time("Thu, 01 Jan 1970 00:00:00 GMT"), 0);
    EXPECT_EQ(parse_time("1970"), std::nullopt);
}
