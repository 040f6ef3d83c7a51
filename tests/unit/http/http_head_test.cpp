#include "platform/http/http_head.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using ::testing::HasSubstr;
using ::testing::Pair;

constexpr HTTP_Head_Limits limits;

std::string answer(const std::string& fields, const std::string& status_line = "HTTP/1.1 200 OK")
{
    return status_line + "\r\n" + fields + "\r\n";
}

std::string request(const std::string& fields, const std::string& request_line = "PUT /a HTTP/1.1")
{
    return request_line + "\r\nHost: h\r\n" + fields + "\r\n";
}

/// A parsed head, and what was said about it.
template <class Head>
struct Parsed
{
    HTTP_Parse_Result result{};
    Head head;
    std::size_t used = 0;
    std::string reason;
};

Parsed<HTTP_Response_Head> parse_answer(std::string_view bytes, bool to_head = false,
                                        const HTTP_Head_Limits& most = limits)
{
    Parsed<HTTP_Response_Head> parsed;
    parsed.result =
        parse_response_head(bytes, to_head, most, parsed.head, parsed.used, parsed.reason);
    return parsed;
}

Parsed<HTTP_Request_Head> parse_request(std::string_view bytes,
                                        const HTTP_Head_Limits& most = limits)
{
    Parsed<HTTP_Request_Head> parsed;
    parsed.result = parse_request_head(bytes, most, parsed.head, parsed.used, parsed.reason);
    return parsed;
}

/// Fields of a message that are refused in both directions.
const std::vector<std::string> refused_fields = {
    // Two readers could find different ends of the body.
    "Content-Length: 1\r\nContent-Length: 1\r\n",
    "Content-Length: 1\r\nContent-Length: 2\r\n",
    "Content-Length: 1\r\ncontent-length: 1\r\n",
    "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n",
    "Transfer-Encoding: chunked\r\nContent-Length: 1\r\n",
    "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n",
    "Transfer-Encoding: chunked\r\nTransfer-Encoding: identity\r\n",
    "Transfer-Encoding: gzip\r\n",
    "Transfer-Encoding: gzip, chunked\r\n",
    "Transfer-Encoding: chunked, gzip\r\n",
    "Transfer-Encoding: chunked, chunked\r\n",
    "Transfer-Encoding: xchunked\r\n",
    "Transfer-Encoding: chunked;q=1\r\n",
    "Transfer-Encoding:\r\n",
    "Transfer-Encoding: \x0B"
    "chunked\r\n",
    // No number, or too large a one.
    "Content-Length:\r\n",
    "Content-Length: -1\r\n",
    "Content-Length: +1\r\n",
    "Content-Length: 1, 1\r\n",
    "Content-Length: 1 1\r\n",
    "Content-Length: 0x10\r\n",
    "Content-Length: 1.0\r\n",
    "Content-Length: 1a\r\n",
    "Content-Length: 9223372036854775808\r\n",
    "Content-Length: 18446744073709551616\r\n",
    "Content-Length: 99999999999999999999999999\r\n",
    "Content-Length: 00000000000000000001\r\n",
    // Lines that others join, split or read under another name.
    "Name: a\r\n b\r\n",
    "Name: a\r\n\tb\r\n",
    " Name: a\r\n",
    "Name: a\n",
    "Name: a\nContent-Length: 1\r\n",
    "Name: a\rContent-Length: 1\r\n",
    "Name : a\r\n",
    "Content-Length : 1\r\n",
    "Content-Length\t: 1\r\n",
    "Transfer-Encoding : chunked\r\n",
    ": a\r\n",
    "Name\r\n",
    "Na me: a\r\n",
    "N(a)me: a\r\n",
    "N\xC3\xA4me: a\r\n",
    std::string("Name: a\0b\r\n", 11),
    std::string("Na\0me: a\r\n", 10),
    "Name: a\x01\r\n",
    "Name: a\x7F\r\n",
};

TEST(HTTP_Response_Head_Test, IsRead)
{
    const std::string bytes = answer("Content-Length: 12\r\nETag:\"x\" \t\r\nX-Empty:\r\n");
    const auto parsed = parse_answer(bytes + "the body");
    ASSERT_EQ(parsed.result, HTTP_Parse_Result::complete) << parsed.reason;
    EXPECT_EQ(parsed.head.status, 200U);
    EXPECT_EQ(parsed.head.framing, Body_Framing::length);
    EXPECT_EQ(parsed.head.content_length, 12U);
    EXPECT_TRUE(parsed.head.keep_alive);
    EXPECT_EQ(parsed.used, bytes.size());
    const std::vector<HTTP_Headers::Field> fields(parsed.head.headers.begin(),
                                                  parsed.head.headers.end());
    EXPECT_THAT(fields, testing::ElementsAre(Pair("Content-Length", "12"), Pair("ETag", "\"x\""),
                                             Pair("X-Empty", "")));
}

TEST(HTTP_Response_Head_Test, IsIncompleteWhereverItStops)
{
    const std::string bytes = answer("Content-Length: 12\r\nName: value\r\n");
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const auto parsed = parse_answer(bytes.substr(0, size));
        EXPECT_EQ(parsed.result, HTTP_Parse_Result::incomplete) << size << ' ' << parsed.reason;
    }
}

TEST(HTTP_Response_Head_Test, FieldsThatCouldBeReadInTwoWaysAreRefused)
{
    for (const std::string& fields : refused_fields) {
        const auto parsed = parse_answer(answer(fields));
        EXPECT_EQ(parsed.result, HTTP_Parse_Result::bad) << testing::PrintToString(fields);
        EXPECT_NE(parsed.reason, "") << testing::PrintToString(fields);
    }
}

TEST(HTTP_Response_Head_Test, WhatDoesNotBeginLikeAnAnswerIsRefusedAtOnce)
{
    for (const char* const bytes :
         {"X", "GET / HTTP/1.1\r\n", "http/1.1 200 OK\r\n", "HTTP/2 200\r\n", "\r\nHTTP/1.1 200",
          "SSH-2.0-server\r\n", "HTTP/0.9 200 OK\r\n", " HTTP/1.1 200 OK\r\n"})
        EXPECT_EQ(parse_answer(bytes).result, HTTP_Parse_Result::bad) << bytes;
}

TEST(HTTP_Response_Head_Test, AStatusLineIsReadByTheGrammar)
{
    for (const char* const line : {"HTTP/1.1 200 ", "HTTP/1.1 200 Done well", "HTTP/1.0 200 OK"}) {
        const auto parsed = parse_answer(answer("", line));
        EXPECT_EQ(parsed.result, HTTP_Parse_Result::complete) << line << ": " << parsed.reason;
        EXPECT_EQ(parsed.head.status, 200U);
    }
    for (const char* const line :
         {"HTTP/1.1", "HTTP/1.1 ", "HTTP/1.1 20 OK", "HTTP/1.1 020 OK", "HTTP/1.1 099 OK",
          "HTTP/1.1 2000 OK", "HTTP/1.1 abc OK", "HTTP/1.1  200 OK", "HTTP/1.1\t200 OK",
          "HTTP/1.x 200 OK", "HTTP/1. 200 OK", "HTTP/1.10 200 OK", "HTTP/1.1 -20 OK",
          "HTTP/1.1 200 O\x01K"})
        EXPECT_EQ(parse_answer(answer("", line)).result, HTTP_Parse_Result::bad) << line;
}

TEST(HTTP_Response_Head_Test, ItsBodyIsFramedAsRFC9112Says)
{
    struct Case
    {
        std::string status_line;
        std::string fields;
        bool to_head;
        Body_Framing framing;
        std::uint64_t length;
        bool keep_alive;
    };
    const std::string length = "Content-Length: 5\r\n";
    const std::string chunked = "Transfer-Encoding: chunked\r\n";
    const Case cases[] = {
        {"HTTP/1.1 200 OK", length, false, Body_Framing::length, 5, true},
        {"HTTP/1.1 200 OK", "Content-Length: 0\r\n", false, Body_Framing::none, 0, true},
        {"HTTP/1.1 200 OK", chunked, false, Body_Framing::chunked, 0, true},
        {"HTTP/1.1 200 OK", "transfer-encoding: CHUNKED\r\n", false, Body_Framing::chunked, 0,
         true},
        {"HTTP/1.1 200 OK", "", false, Body_Framing::until_close, 0, false},
        {"HTTP/1.1 404 Missing", "", false, Body_Framing::until_close, 0, false},
        // To a HEAD only the head comes.
        {"HTTP/1.1 200 OK", length, true, Body_Framing::none, 5, true},
        {"HTTP/1.1 200 OK", chunked, true, Body_Framing::none, 0, true},
        {"HTTP/1.1 200 OK", "", true, Body_Framing::none, 0, true},
        // These never have a body.
        {"HTTP/1.1 100 Continue", "", false, Body_Framing::none, 0, true},
        {"HTTP/1.1 103 Hints", length, false, Body_Framing::none, 5, true},
        {"HTTP/1.1 204 None", "", false, Body_Framing::none, 0, true},
        {"HTTP/1.1 204 None", length, false, Body_Framing::none, 5, true},
        {"HTTP/1.1 304 Same", length, false, Body_Framing::none, 5, true},
        {"HTTP/1.1 304 Same", chunked, false, Body_Framing::none, 0, true},
        // Who ends the connection.
        {"HTTP/1.1 200 OK", length + "Connection: close\r\n", false, Body_Framing::length, 5,
         false},
        {"HTTP/1.1 200 OK", length + "Connection: x, Close\r\n", false, Body_Framing::length, 5,
         false},
        {"HTTP/1.1 204 None", "Connection: close\r\n", false, Body_Framing::none, 0, false},
        {"HTTP/1.0 200 OK", length, false, Body_Framing::length, 5, false},
        {"HTTP/1.0 200 OK", length + "Connection: keep-alive\r\n", false, Body_Framing::length, 5,
         true},
        {"HTTP/1.0 200 OK", "Connection: keep-alive\r\n", false, Body_Framing::until_close, 0,
         false},
        {"HTTP/1.1 200 OK", "Content-Length: 9223372036854775807\r\n", false, Body_Framing::length,
         9223372036854775807U, true},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.status_line + " | " + each.fields);
        const auto parsed = parse_answer(answer(each.fields, each.status_line), each.to_head);
        ASSERT_EQ(parsed.result, HTTP_Parse_Result::complete) << parsed.reason;
        EXPECT_EQ(parsed.head.framing, each.framing);
        EXPECT_EQ(parsed.head.content_length, each.length);
        EXPECT_EQ(parsed.head.keep_alive, each.keep_alive);
    }
}

TEST(HTTP_Response_Head_Test, ATransferCodingInHTTP10IsRefused)
{
    EXPECT_EQ(parse_answer(answer("Transfer-Encoding: chunked\r\n", "HTTP/1.0 200 OK")).result,
              HTTP_Parse_Result::bad);
}

TEST(HTTP_Response_Head_Test, TheLimitsHoldBeforeTheEndIsThere)
{
    const std::string fields = "Name: " + std::string(1000, 'x') + "\r\n";
    const std::string bytes = answer(fields);
    HTTP_Head_Limits most;
    most.bytes = bytes.size();
    EXPECT_EQ(parse_answer(bytes, false, most).result, HTTP_Parse_Result::complete);
    EXPECT_EQ(parse_answer(bytes + "body", false, most).result, HTTP_Parse_Result::complete);
    most.bytes = bytes.size() - 1;
    EXPECT_EQ(parse_answer(bytes, false, most).result, HTTP_Parse_Result::too_large);
    EXPECT_EQ(parse_answer(bytes.substr(0, most.bytes), false, most).result,
              HTTP_Parse_Result::too_large);
    EXPECT_EQ(parse_answer(bytes.substr(0, most.bytes - 1), false, most).result,
              HTTP_Parse_Result::incomplete);

    std::string many;
    for (std::size_t field = 0; field < limits.fields; ++field)
        many += "N: v\r\n";
    EXPECT_EQ(parse_answer(answer(many)).result, HTTP_Parse_Result::complete);
    const auto parsed = parse_answer(answer(many + "N: v\r\n"));
    EXPECT_EQ(parsed.result, HTTP_Parse_Result::too_large);
    EXPECT_THAT(parsed.reason, HasSubstr("256"));
    const auto huge = parse_answer("HTTP/1.1 200 OK\r\nN: " + std::string(limits.bytes, 'x'));
    EXPECT_EQ(huge.result, HTTP_Parse_Result::too_large);
    EXPECT_THAT(huge.reason, HasSubstr("65536"));
}

TEST(HTTP_Request_Head_Test, IsRead)
{
    const std::string bytes =
        request("Content-Length: 3\r\nExpect: 100-Continue\r\n", "PUT //a%20b/..?q HTTP/1.1");
    const auto parsed = parse_request(bytes + "abc");
    ASSERT_EQ(parsed.result, HTTP_Parse_Result::complete) << parsed.reason;
    EXPECT_EQ(parsed.head.method, "PUT");
    EXPECT_EQ(parsed.head.target, "//a%20b/..?q");
    EXPECT_EQ(parsed.head.framing, Body_Framing::length);
    EXPECT_EQ(parsed.head.content_length, 3U);
    EXPECT_TRUE(parsed.head.keep_alive);
    EXPECT_TRUE(parsed.head.expects_continue);
    EXPECT_EQ(parsed.used, bytes.size());
    EXPECT_EQ(*parsed.head.headers.get("host"), "h");
}

TEST(HTTP_Request_Head_Test, EveryMethodOfTheProtocolIsRead)
{
    for (const std::string method :
         {"COPY", "DELETE", "GET", "HEAD", "MKCOL", "MOVE", "OPTIONS", "POST", "PUT", "X-OWN"})
    {
        const auto parsed = parse_request(request("", method + " / HTTP/1.1"));
        EXPECT_EQ(parsed.result, HTTP_Parse_Result::complete) << parsed.reason;
        EXPECT_EQ(parsed.head.method, method);
        EXPECT_EQ(parsed.head.framing, Body_Framing::none);
    }
}

TEST(HTTP_Request_Head_Test, IsIncompleteWhereverItStops)
{
    const std::string bytes = "\r\n" + request("Content-Length: 12\r\n");
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_EQ(parse_request(bytes.substr(0, size)).result, HTTP_Parse_Result::incomplete)
            << size;
    const auto parsed = parse_request(bytes);
    EXPECT_EQ(parsed.result, HTTP_Parse_Result::complete);
    EXPECT_EQ(parsed.used, bytes.size());
}

TEST(HTTP_Request_Head_Test, FieldsThatCouldBeReadInTwoWaysAreRefused)
{
    for (const std::string& fields : refused_fields)
        EXPECT_EQ(parse_request(request(fields)).result, HTTP_Parse_Result::bad)
            << testing::PrintToString(fields);
}

TEST(HTTP_Request_Head_Test, OneHostIsNeeded)
{
    EXPECT_EQ(parse_request("GET / HTTP/1.1\r\n\r\n").result, HTTP_Parse_Result::bad);
    EXPECT_EQ(parse_request("GET / HTTP/1.1\r\nHost: a\r\nHost: a\r\n\r\n").result,
              HTTP_Parse_Result::bad);
    EXPECT_EQ(parse_request("GET / HTTP/1.0\r\nHost: a\r\nhost: b\r\n\r\n").result,
              HTTP_Parse_Result::bad);
    EXPECT_EQ(parse_request("GET / HTTP/1.0\r\n\r\n").result, HTTP_Parse_Result::complete);
}

TEST(HTTP_Request_Head_Test, ARequestLineIsReadByTheGrammar)
{
    for (const char* const line :
         {"GET", "GET /", "GET / ", "GET / HTTP/1.1 ", "GET  / HTTP/1.1", "GET / HTTP/2.0",
          "GET / http/1.1", "GET /a b HTTP/1.1", " GET / HTTP/1.1", "G(T / HTTP/1.1",
          "GET\t/ HTTP/1.1", "GET /\x01 HTTP/1.1", "GET HTTP/1.1"})
        EXPECT_EQ(parse_request(request("", line)).result, HTTP_Parse_Result::bad) << line;
}

TEST(HTTP_Request_Head_Test, AContinueIsExpectedOnlyWithABodyAndInHTTP11)
{
    const std::string expect = "Expect: 100-continue\r\n";
    EXPECT_FALSE(parse_request(request(expect)).head.expects_continue);
    EXPECT_FALSE(parse_request(request(expect + "Content-Length: 0\r\n")).head.expects_continue);
    EXPECT_TRUE(
        parse_request(request(expect + "Transfer-Encoding: chunked\r\n")).head.expects_continue);
    EXPECT_FALSE(parse_request(request(expect + "Content-Length: 1\r\n", "PUT / HTTP/1.0"))
                     .head.expects_continue);
    EXPECT_FALSE(
        parse_request(request("Expect: other\r\nContent-Length: 1\r\n")).head.expects_continue);
}

TEST(HTTP_Request_Head_Test, WhoKeepsTheConnectionIsTold)
{
    EXPECT_FALSE(parse_request(request("Connection: close\r\n")).head.keep_alive);
    EXPECT_FALSE(parse_request(request("", "GET / HTTP/1.0")).head.keep_alive);
    EXPECT_TRUE(
        parse_request(request("Connection: keep-alive\r\n", "GET / HTTP/1.0")).head.keep_alive);
}

TEST(HTTP_Request_Head_Test, TheLimitsHold)
{
    HTTP_Head_Limits most;
    most.fields = 2;
    EXPECT_EQ(parse_request(request("A: b\r\n"), most).result, HTTP_Parse_Result::complete);
    EXPECT_EQ(parse_request(request("A: b\r\nA: b\r\n"), most).result,
              HTTP_Parse_Result::too_large);
    most.bytes = 20;
    EXPECT_EQ(parse_request("GET / HTTP/1.1\r\nHost", most).result, HTTP_Parse_Result::too_large);
}

} // namespace
