#include "platform/runtime/posix_error.h"
#include "tests/unit/http/http_target.h"

#include <boost/asio/error.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using ::testing::ElementsAre;
using Connection = Scripted_Server::Connection;
constexpr unsigned mode_read = Client_IO_Base::mode_read;

/// The answer to a HEAD of a file.
std::string file_of(std::size_t size, const std::string& fields = {})
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n" + fields + "\r\n";
}

/// A part of ten bytes.
std::string part(std::size_t first, const std::string& data, const std::string& fields = {})
{
    return http_answer("206 Partial Content", data,
                       "Content-Range: bytes " + std::to_string(first) + '-' +
                           std::to_string(first + data.size() - 1) + "/10\r\n" + fields);
}

const std::string digits = "0123456789";
const std::string head = "HEAD /base/a HTTP/1.1|Host: SERVER|Content-Length: 0";
const std::string get = "GET /base/a HTTP/1.1|Host: SERVER";

/// What is said when the connection ends too early.
std::string reset_text()
{
    return POSIX_Error(static_cast<int>(boost::asio::error::connection_reset), 1).str();
}

TEST(HTTP_Client_IO_Read, AFileIsAskedForItsSizeAndThenRead)
{
    HTTP_Target target({answer_each({file_of(10), http_answer("200 OK", digits)})});
    ASSERT_TRUE(target.io.open("a", mode_read, 0, 0)) << target.io.error();
    EXPECT_TRUE(target.io.is_open());
    EXPECT_EQ(target.io.size(), 10U);
    EXPECT_EQ(read_all(target.io), digits);
    EXPECT_TRUE(target.io.close());
    EXPECT_FALSE(target.io.is_open());
    EXPECT_THAT(target.sent(), ElementsAre(head, get));
    EXPECT_EQ(target.server.connections(), 1U);
}

TEST(HTTP_Client_IO_Read, TheFormWithoutACopyGivesTheSame)
{
    HTTP_Target target({answer_each({file_of(10), http_answer("200 OK", digits)})});
    ASSERT_TRUE(target.io.open("a", mode_read, 0, 0));
    std::string data;
    const void* block = nullptr;
    std::uint64_t size = 0;
    do {
        ASSERT_TRUE(target.io.read(block, size)) << target.io.error();
        data.append(static_cast<const char*>(block), size);
    } while (size != 0);
    EXPECT_EQ(data, digits);
    EXPECT_THAT(target.sent(), ElementsAre(head, get));
}

TEST(HTTP_Client_IO_Read, WhatAPathMayNotHoldIsEncoded)
{
    HTTP_Target target({answer_each({file_of(0), http_answer("200 OK")})});
    ASSERT_TRUE(target.io.open("d/a b?#%\xC3\xA4", mode_read, 0, 0));
    EXPECT_EQ(read_all(target.io), "");
    EXPECT_THAT(
        target.sent(),
        ElementsAre("HEAD /base/d/a%20b%3F%23%25%C3%A4 HTTP/1.1|Host: SERVER|Content-Length: 0",
                    "GET /base/d/a%20b%3F%23%25%C3%A4 HTTP/1.1|Host: SERVER"));
}

TEST(HTTP_Client_IO_Read, AnOffsetOrALengthIsARange)
{
    struct Case
    {
        std::uint64_t offset;
        std::uint64_t size;
        std::string range;
        std::string data;
    };
    const Case cases[] = {
        {4, 0, "bytes=4-", "456789"},    {0, 3, "bytes=0-2", "012"},
        {4, 3, "bytes=4-6", "456"},      {9, 1, "bytes=9-9", "9"},
        {4, 100, "bytes=4-9", "456789"}, {4, ~std::uint64_t{0}, "bytes=4-9", "456789"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.range);
        HTTP_Target target({answer_each({file_of(10), part(each.offset, each.data)})});
        ASSERT_TRUE(target.io.open("a", mode_read, each.offset, each.size)) << target.io.error();
        EXPECT_EQ(target.io.size(), 10U);
        EXPECT_EQ(read_all(target.io), each.data);
        EXPECT_THAT(target.sent(), ElementsAre(head, get + "|Range: " + each.range));
    }
}

TEST(HTTP_Client_IO_Read, AnOffsetBehindTheEndIsRefusedWithoutAGET)
{
    for (const std::uint64_t offset : {std::uint64_t{10}, std::uint64_t{11}, ~std::uint64_t{0}}) {
        HTTP_Target target({answer_each({file_of(10)})});
        EXPECT_FALSE(target.io.open("a", mode_read, offset, 0));
        EXPECT_EQ(target.io.error(), "Invalid offset");
        EXPECT_FALSE(target.io.retriable());
        EXPECT_FALSE(target.io.is_open());
        EXPECT_THAT(target.sent(), ElementsAre(head));
    }
}

TEST(HTTP_Client_IO_Read, AWholeAnswerToARangeIsReadPastWhatWasNotAskedFor)
{
    HTTP_Target target({answer_each({file_of(10), http_answer("200 OK", digits)}),
                        answer_each({file_of(10), http_answer("200 OK", digits)})});
    ASSERT_TRUE(target.io.open("a", mode_read, 4, 0));
    EXPECT_EQ(read_all(target.io), "456789");
    ASSERT_TRUE(target.io.close());
    // Of a part that ends early the rest is not read, which ends the connection.
    target.io.disconnect();
    ASSERT_TRUE(target.io.reconnect());
    ASSERT_TRUE(target.io.open("a", mode_read, 4, 3));
    EXPECT_EQ(read_all(target.io), "456");
    EXPECT_THAT(target.sent(),
                ElementsAre(head, get + "|Range: bytes=4-", head, get + "|Range: bytes=4-6"));
}

TEST(HTTP_Client_IO_Read, AnotherRangeThanWasAskedForIsRefused)
{
    const std::string body = "456789";
    for (const std::string& field :
         {std::string("bytes 3-8/10"), std::string("bytes 5-9/10"), std::string("bytes */10"),
          std::string("bytes 4-3/10"), std::string("bytes 4-9/9"), std::string("bytes 4-9/x"),
          std::string("bytes 4-9/"), std::string("items 4-9/10"), std::string("4-9/10"),
          std::string("bytes 4-9/-5"), std::string("bytes +4-9/10"), std::string("bytes 4-9/10 ,"),
          std::string("bytes 4-99999999999999999999/*")})
    {
        SCOPED_TRACE(field);
        const std::string line = "Content-Range: " + field + "\r\n";
        HTTP_Target target(
            {answer_each({file_of(10), http_answer("206 Partial Content", body, line)}),
             [](Connection&) {}});
        EXPECT_FALSE(target.io.open("a", mode_read, 4, 0));
        EXPECT_EQ(target.io.error(), "Failed to GET " + target.url("a") +
                                         ": the answer is not the range that was asked for");
        EXPECT_FALSE(target.io.retriable());
        EXPECT_FALSE(target.io.is_open());
        EXPECT_TRUE(target.io.is_connected());
    }
}

TEST(HTTP_Client_IO_Read, ARangeThatDoesNotSayWhichIsTheOneThatWasAskedFor)
{
    // Some servers do not even say that it is a part.
    for (const char* const status : {"206 Partial Content", "200 OK"}) {
        SCOPED_TRACE(status);
        HTTP_Target target({answer_each(
            {file_of(10), http_answer(status, "456789"), http_answer(status, "567")})});
        ASSERT_TRUE(target.io.open("a", mode_read, 4, 0)) << target.io.error();
        EXPECT_EQ(target.io.size(), 10U);
        EXPECT_EQ(read_all(target.io), "456789");
        ASSERT_TRUE(target.io.seek(5, 3)) << target.io.error();
        EXPECT_EQ(target.io.size(), 10U);
        EXPECT_EQ(read_all(target.io), "567");
    }
}

TEST(HTTP_Client_IO_Read, APartThatDoesNotSayWhichAndHasAnotherLengthIsRefused)
{
    // The whole of it, and parts in parts.
    for (const auto& [body, fields] :
         {std::pair("0123456789", ""),
          std::pair("--x\r\n\r\n456789\r\n--x--",
                    "Content-Type: multipart/byteranges; boundary=x\r\n")})
    {
        SCOPED_TRACE(body);
        HTTP_Target target({answer_each({file_of(10), http_answer("206 Part", body, fields)}),
                            [](Connection&) {}});
        EXPECT_FALSE(target.io.open("a", mode_read, 4, 0));
        EXPECT_FALSE(target.io.is_open());
    }
}

TEST(HTTP_Client_IO_Read, AnotherFileOfTheLengthOfARangeIsNotTakenForIt)
{
    HTTP_Target target({answer_each(
        {file_of(10, "ETag: \"1\"\r\n"), http_answer("200 OK", "abcdef", "ETag: \"2\"\r\n")})});
    ASSERT_TRUE(target.io.open("a", mode_read, 4, 0)) << target.io.error();
    EXPECT_EQ(target.io.size(), 6U);
    EXPECT_EQ(read_all(target.io), "ef");
}

TEST(HTTP_Client_IO_Read, AskingAboutAnotherFileChangesNothingAboutTheOpenOne)
{
    const std::string tag = "ETag: \"1\"\r\n";
    HTTP_Target target({[&](Connection& connection) {
                            connection.request();
                            connection.send(file_of(10, tag));
                            connection.request();
                            connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n01234");
                        },
                        answer_each({file_of(99, "ETag: \"2\"\r\n"),
                                     http_answer("206 Partial Content", "6789",
                                                 "Content-Range: bytes 6-9/*\r\n")})});
    ASSERT_TRUE(target.io.open("a", mode_read, 0, 0)) << target.io.error();
    EXPECT_EQ(target.io.size("b"), 99U);
    ASSERT_TRUE(target.io.seek(6, 0)) << target.io.error();
    EXPECT_EQ(target.io.size(), 10U);
    EXPECT_EQ(read_all(target.io), "6789");
}

TEST(HTTP_Client_IO_Read, AQuestionThatGetsNoAnswerHasNotTheAnswerOfTheOneBefore)
{
    HTTP_Target target({[](Connection& connection) {
                            connection.request();
                            connection.send(file_of(10));
                            connection.request();
                            connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n01234");
                        },
                        answer_each({"HTTP/1.1 405 Directory\r\nContent-Length: 0\r\n"
                                     "Connection: close\r\n\r\n"}),
                        [](Connection& connection) {
                            connection.request();
                            connection.reset();
                        }});
    ASSERT_TRUE(target.io.open("a", mode_read, 0, 0)) << target.io.error();
    EXPECT_EQ(target.io.size("d"), Client_IO_Base::size_of_directory);
    EXPECT_EQ(target.io.size("f"), Client_IO_Base::size_unknown);
    EXPECT_TRUE(target.io.retriable());
}

TEST(HTTP_Client_IO_Read, ARangeWhoseFileIsOfUnknownSizeIsTaken)
{
    HTTP_Target target({answer_each({file_of(10), http_answer("206 Partial Content", "456789",
                                                              "Content-Range: bytes 4-9/*\r\n")})});
    ASSERT_TRUE(target.io.open("a", mode_read, 4, 0)) << target.io.error();
    EXPECT_EQ(read_all(target.io), "456789");
    EXPECT_EQ(target.io.size(), 10U);
}

TEST(HTTP_Client_IO_Read, ABodyThatEndsEarlyIsAFailureAndNotTheEnd)
{
    const std::string answers[] = {
        "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n01234",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n01234\r\n",
        // Whole by their framing, and shorter than the file is.
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n01234\r\n0\r\n\r\n",
        "HTTP/1.1 200 OK\r\n\r\n01234",
    };
    for (const std::string& answer : answers) {
        SCOPED_TRACE(answer);
        HTTP_Target target({[answer](Connection& connection) {
                                connection.request();
                                connection.send(file_of(10));
                                connection.request();
                                connection.send(answer);
                                connection.half_close();
                            },
                            [](Connection&) {}});
        ASSERT_TRUE(target.io.open("a", mode_read, 0, 0));
        std::string data(5, ' ');
        EXPECT_EQ(target.io.read(data.data(), 5), 5);
        EXPECT_EQ(data, "01234");
        EXPECT_EQ(target.io.read(data.data(), 5), -1);
        EXPECT_EQ(target.io.error(),
                  "Failed to receive response data from " + target.url("a") + ": " + reset_text());
        EXPECT_TRUE(target.io.retriable());
        EXPECT_FALSE(target.io.is_open());
        EXPECT_TRUE(target.io.is_connected());
    }
}

TEST(HTTP_Client_IO_Read, AShorterPartThanWasAskedForIsAFailureAtItsEnd)
{
    HTTP_Target target({answer_each({file_of(10), part(4, "45")}), [](Connection&) {}});
    ASSERT_TRUE(target.io.open("a", mode_read, 4, 0));
    std::string data(2, ' ');
    EXPECT_EQ(target.io.read(data.data(), 2), 2);
    EXPECT_EQ(target.io.read(data.data(), 2), -1);
    EXPECT_TRUE(target.io.retriable());
}

TEST(HTTP_Client_IO_Read, SeekBeginsAnotherDownload)
{
    HTTP_Target target({answer_each({file_of(10), http_answer("200 OK", digits), part(7, "789"),
                                     part(2, "23"), part(0, digits)})});
    ASSERT_TRUE(target.io.open("a", mode_read, 0, 0));
    EXPECT_EQ(read_all(target.io), digits);
    ASSERT_TRUE(target.io.seek(7, 0)) << target.io.error();
    EXPECT_EQ(read_all(target.io), "789");
    ASSERT_TRUE(target.io.seek(2, 2)) << target.io.error();
    EXPECT_EQ(read_all(target.io), "23");
    ASSERT_TRUE(target.io.seek(0, 0)) << target.io.error();
    EXPECT_EQ(read_all(target.io), digits);
    EXPECT_THAT(target.sent(), ElementsAre(head, get, get + "|Range: bytes=7-",
                                           get + "|Range: bytes=2-3", get + "|Range: bytes=0-"));
}

TEST(HTTP_Client_IO_Read, SeekOutOfAHalfReadBodyTakesAnotherConnection)
{
    HTTP_Target target(
        {answer_each({file_of(10), http_answer("200 OK", digits)}), answer_each({part(7, "789")})});
    ASSERT_TRUE(target.io.open("a", mode_read, 0, 0));
    ASSERT_TRUE(target.io.seek(7, 0));
    EXPECT_EQ(read_all(target.io), "789");
    EXPECT_THAT(target.sent(), ElementsAre(head, get, get + "|Range: bytes=7-"));
    EXPECT_EQ(target.server.requests()[2].connection, 1U);
}

TEST(HTTP_Client_IO_Read, SeekBehindTheEndIsRefusedWithoutARequest)
{
    HTTP_Target target({answer_each({file_of(10), http_answer("200 OK", digits)})});
    ASSERT_TRUE(target.io.open("a", mode_read, 0, 0));
    EXPECT_FALSE(target.io.seek(10, 0));
    EXPECT_EQ(target.io.error(), "Invalid offset");
    EXPECT_THAT(target.sent(), ElementsAre(head, get));
}

TEST(HTTP_Client_IO_Read, WritesAreRefused)
{
    HTTP_Target target({answer_each({file_of(10), http_answer("200 OK", digits)})});
    ASSERT_TRUE(target.io.open("a", mode_read, 0, 0));
    EXPECT_FALSE(target.io.write("x", 1));
    EXPECT_EQ(target.io.error(), "Operation not permitted");
    EXPECT_EQ(read_all(target.io), digits);
    target.io.close();
    std::string data(1, ' ');
    EXPECT_EQ(target.io.read(data.data(), 1), -1);
    EXPECT_EQ(target.io.error(), "Operation not permitted");
    EXPECT_FALSE(target.io.seek(0, 0));
    EXPECT_EQ(target.io.error(), "Not open");
}

TEST(HTTP_Client_IO_Read, AFailureOfTheServerIsToldByItsStatus)
{
    struct Case
    {
        std::string status;
        int errnum;
        bool retriable;
    };
    const Case cases[] = {
        {"404 Missing", 2, false},   {"403 Forbidden", 121, false}, {"401 Who", 121, false},
        {"416 Range", 121, false},   {"408 Timeout", 121, true},    {"500 Error", 121, true},
        {"503 Busy", 121, true},     {"301 Moved", 121, false},     {"204 None", 121, false},
        {"429 Too many", 121, true},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.status);
        const std::string answer = "HTTP/1.1 " + each.status + "\r\n" +
                                   (each.status[0] == '2' ? "" : "Content-Length: 0\r\n") + "\r\n";
        HTTP_Target target({answer_each({file_of(10), answer})});
        EXPECT_FALSE(target.io.open("a", mode_read, 0, 0));
        EXPECT_EQ(target.io.error(),
                  "Failed to GET " + target.url("a") + ": status=" + each.status.substr(0, 3));
        EXPECT_EQ(target.io.errnum(), each.errnum);
        EXPECT_EQ(target.io.retriable(), each.retriable);
        EXPECT_FALSE(target.io.is_open());
        EXPECT_TRUE(target.io.is_connected());
    }
}

TEST(HTTP_Client_IO_Read, AMissingFileIsAskedForAllTheSame)
{
    const std::string missing = "HTTP/1.1 404 Missing\r\nContent-Length: 0\r\n\r\n";
    HTTP_Target target({answer_each({missing, missing})});
    EXPECT_FALSE(target.io.open("a", mode_read, 0, 0));
    EXPECT_EQ(target.io.error(), "Failed to GET " + target.url("a") + ": status=404");
    EXPECT_EQ(target.io.errnum(), 2);
    EXPECT_THAT(target.sent(), ElementsAre(head, get));
}

TEST(HTTP_Client_IO_Read, AConnectionThatIsLostInTheHEADIsAFailure)
{
    HTTP_Target target({[](Connection& connection) {
        connection.request();
        connection.send("H");
        connection.half_close();
    }});
    EXPECT_FALSE(target.io.open("a", mode_read, 0, 0));
    EXPECT_EQ(target.io.error(), "Failed to HEAD " + target.url("a") + ": " + reset_text());
    EXPECT_EQ(target.io.errnum(), 121);
    EXPECT_TRUE(target.io.retriable());
    EXPECT_FALSE(target.io.is_connected());
    EXPECT_THAT(target.sent(), ElementsAre(head));
}

TEST(HTTP_Client_IO_Read, AConnectionThatIsLostInTheGETIsAFailure)
{
    HTTP_Target target({[](Connection& connection) {
        connection.request();
        connection.send(file_of(10));
        connection.request();
        connection.send("H");
        connection.half_close();
    }});
    EXPECT_FALSE(target.io.open("a", mode_read, 0, 0));
    EXPECT_EQ(target.io.error(),
              "Failed to send GET request to " + target.url("a") + ": " + reset_text());
    EXPECT_TRUE(target.io.retriable());
    EXPECT_THAT(target.sent(), ElementsAre(head, get));
}

TEST(HTTP_Client_IO_Read, TheVersionIsTheEntityTagOrTheTime)
{
    const std::string tag = "ETag: \"1\"\r\n";
    const std::string time = "Last-Modified: Mon, 01 Jan 2024 00:00:00 GMT\r\n";
    const std::pair<std::string, std::string> cases[] = {
        {tag + time, "\"1\""}, {time, "Mon, 01 Jan 2024 00:00:00 GMT"}, {"", ""}};
    for (const auto& [fields, version] : cases) {
        HTTP_Target target(
            {answer_each({file_of(10, fields), http_answer("200 OK", digits, fields)})});
        EXPECT_EQ(target.io.get_config("file_version"), "");
        ASSERT_TRUE(target.io.open("a", mode_read, 0, 0));
        EXPECT_EQ(target.io.get_config("file_version"), version);
        EXPECT_EQ(target.io.get_config("other"), "");
        EXPECT_EQ(target.io.get_config(nullptr), "");
        target.io.close();
        EXPECT_EQ(target.io.get_config("file_version"), "");
    }
}

TEST(HTTP_Client_IO_Read, AFileThatWasReplacedAfterTheHEADIsReadAsItIsNow)
{
    const std::string longer = digits + "abc";
    const std::string old_fields = "ETag: \"old\"\r\n";
    const std::string new_fields = "ETag: \"new\"\r\n";
    const std::string answers[] = {
        http_answer("200 OK", longer, new_fields),
        "HTTP/1.1 200 OK\r\n" + new_fields + "Transfer-Encoding: chunked\r\n\r\nd\r\n" + longer +
            "\r\n0\r\n\r\n",
    };
    for (const std::string& answer : answers) {
        SCOPED_TRACE(answer);
        HTTP_Target target({answer_each({file_of(10, old_fields), answer})});
        ASSERT_TRUE(target.io.open("a", mode_read, 0, 0)) << target.io.error();
        EXPECT_EQ(read_all(target.io), longer);
        EXPECT_EQ(target.io.get_config("file_version"), "\"new\"");
        EXPECT_NE(target.io.size(), 10U);
    }
    HTTP_Target shorter(
        {answer_each({file_of(20, old_fields), "HTTP/1.1 200 OK\r\n" + new_fields +
                                                   "Transfer-Encoding: chunked\r\n\r\na\r\n" +
                                                   digits + "\r\n0\r\n\r\n"})});
    ASSERT_TRUE(shorter.io.open("a", mode_read, 0, 0));
    EXPECT_EQ(read_all(shorter.io), digits);
}

TEST(HTTP_Client_IO_Read, AFileThatWasReplacedBeforeASeekIsRefused)
{
    const std::pair<std::string, std::string> versions[] = {
        {"ETag: \"old\"\r\n", "ETag: \"new\"\r\n"},
        {"Last-Modified: one\r\n", "Last-Modified: two\r\n"},
    };
    for (const auto& [before, after] : versions) {
        HTTP_Target target({answer_each({file_of(10, before), http_answer("200 OK", digits, before),
                                         part(7, "789", after)}),
                            [](Connection&) {}});
        ASSERT_TRUE(target.io.open("a", mode_read, 0, 0));
        EXPECT_EQ(read_all(target.io), digits);
        EXPECT_FALSE(target.io.seek(7, 0));
        EXPECT_EQ(target.io.error(),
                  "Failed to GET " + target.url("a") + ": the file was replaced");
        EXPECT_FALSE(target.io.retriable());
        EXPECT_FALSE(target.io.is_open());
    }
}

} // namespace
