#include "platform/http/json_http_session.h"
#include "platform/json/json_value.h"
#include "tests/support/allocation_count.h"
#include "tests/unit/http/http_target.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using ::testing::ElementsAre;
using Connection = Scripted_Server::Connection;
using Kind = JSON_HTTP_Session::Kind;
using Script = Scripted_Server::Script;

constexpr unsigned max_depth = 5;
constexpr unsigned max_mebibytes = 3;

/// What came of the GET of a JSON text.
struct Listing
{
    bool done = false;
    Kind kind{};
    std::vector<std::string> elements; ///< each as text
    bool connection_failed = false;
    unsigned status = 0;
};

Listing get(const Script& script)
{
    const Scripted_Server server({script});
    const HTTP_Session::Ptr session =
        HTTP_Session_Factory::create("127.0.0.1", server.port(), false, "", 3, {}, 20, 20);
    JSON_HTTP_Session json(*session, max_depth, max_mebibytes);
    Listing listing;
    HTTP_Response response;
    const auto take = [&](json_spirit::Value& element) {
        listing.elements.push_back(JSON_Dump(element, false));
    };
    listing.done = json.get(HTTP_Request(HTTP_Request::GET, "/a"), take, listing.kind, response);
    listing.connection_failed = json.connection_failed();
    listing.status = response.status();
    return listing;
}

Listing get_text(const std::string& text)
{
    return get(answer_each({http_answer("200 OK", text)}));
}

const std::string listing_text = R"( [ {"dir":"a","size":0,"more":{"deep":[1,2]}},
    {"file":"b \u00e4 ] }","size":12}, 1, "text", null, [], [2,[3]] ] )";
const std::vector<std::string> listing_elements = {
    R"({"dir":"a","more":{"deep":[1,2]},"size":0})",
    "{\"file\":\"b \xC3\xA4 ] }\",\"size\":12}",
    "1",
    R"("text")",
    "null",
    "[]",
    "[2,[3]]",
};

TEST(JSON_HTTP_Session_Test, EveryElementOfAnArrayIsGiven)
{
    const Listing listing = get_text(listing_text);
    EXPECT_TRUE(listing.done);
    EXPECT_EQ(listing.kind, Kind::array);
    EXPECT_EQ(listing.elements, listing_elements);
    EXPECT_EQ(listing.status, 200U);
    EXPECT_FALSE(listing.connection_failed);
}

TEST(JSON_HTTP_Session_Test, HoweverItArrives)
{
    for (const std::size_t size : {1, 2, 7, 100}) {
        const Listing listing = get([size](Connection& connection) {
            connection.request();
            connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
            for (std::size_t at = 0; at < listing_text.size(); at += size) {
                const std::string piece = listing_text.substr(at, size);
                std::array<char, 20> line;
                std::snprintf(line.data(), line.size(), "%zx\r\n", piece.size());
                connection.send(line.data() + piece + "\r\n");
            }
            connection.send("0\r\n\r\n");
        });
        EXPECT_TRUE(listing.done) << size;
        EXPECT_EQ(listing.elements, listing_elements) << size;
    }
}

TEST(JSON_HTTP_Session_Test, AnEmptyArrayHasNoElements)
{
    const Listing listing = get_text("[]");
    EXPECT_TRUE(listing.done);
    EXPECT_EQ(listing.kind, Kind::array);
    EXPECT_THAT(listing.elements, ElementsAre());
}

TEST(JSON_HTTP_Session_Test, ATextOfAnotherKindIsToldApart)
{
    for (const char* const text : {"{}", R"({"a":[1]})", "5", R"("[1]")", "true", "null"}) {
        const Listing listing = get_text(text);
        EXPECT_TRUE(listing.done) << text;
        EXPECT_EQ(listing.kind, Kind::other) << text;
        EXPECT_THAT(listing.elements, ElementsAre()) << text;
    }
}

TEST(JSON_HTTP_Session_Test, WhatIsNoJSONTextIsAFailure)
{
    for (const char* const text :
         {"", " ", "hello", "[1", "[1,", "[1,]", "[{\"a\":1]", "[\"a]", "[1] x", "[1][2]", "[1]]",
          "[01]", "[nul]", "[\"\x01\"]", "[\"\xFF\"]", "['a']", "[1] // comment"})
    {
        const Listing listing = get_text(text);
        EXPECT_FALSE(listing.done) << text;
        EXPECT_EQ(listing.status, 200U) << text;
        EXPECT_FALSE(listing.connection_failed) << text;
    }
}

TEST(JSON_HTTP_Session_Test, ABodyThatIsCutIsAFailureOfTheConnection)
{
    const Listing listing = get([](Connection& connection) {
        connection.request();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n[1,2");
        connection.half_close();
    });
    EXPECT_FALSE(listing.done);
    EXPECT_TRUE(listing.connection_failed);
    EXPECT_EQ(listing.status, 200U);
}

TEST(JSON_HTTP_Session_Test, AnArrayThatIsCutBehindItsEndIsAFailureToo)
{
    const Listing listing = get([](Connection& connection) {
        connection.request();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n[1,2]");
        connection.half_close();
    });
    EXPECT_FALSE(listing.done);
    EXPECT_TRUE(listing.connection_failed);
}

TEST(JSON_HTTP_Session_Test, OnlyStatus200HasAText)
{
    for (const char* const status : {"201 Made", "206 Part", "404 Missing", "500 Error"}) {
        const Listing listing = get(answer_each({http_answer(status, "[1]")}));
        EXPECT_FALSE(listing.done) << status;
        EXPECT_THAT(listing.elements, ElementsAre()) << status;
        EXPECT_FALSE(listing.connection_failed) << status;
        EXPECT_EQ(listing.status, std::stoul(status));
    }
}

TEST(JSON_HTTP_Session_Test, NoAnswerIsAFailureOfTheConnection)
{
    const Listing listing = get([](Connection& connection) {
        connection.request();
        connection.half_close();
    });
    EXPECT_FALSE(listing.done);
    EXPECT_TRUE(listing.connection_failed);
    EXPECT_EQ(listing.status, 0U);
}

TEST(JSON_HTTP_Session_Test, TheDepthIsLimited)
{
    const auto nested = [](std::size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    EXPECT_TRUE(get_text(nested(max_depth)).done);
    EXPECT_FALSE(get_text(nested(max_depth + 1)).done);
    EXPECT_FALSE(get_text(nested(1000000)).done);
    EXPECT_FALSE(get_text(R"([{"a":{"b":{"c":{"d":{}}}}}])").done);
}

TEST(JSON_HTTP_Session_Test, TheLengthIsLimited)
{
    const std::string element = ",\"" + std::string(1021, 'x') + '"';
    std::string text = "[0";
    while (text.size() + element.size() < max_mebibytes * 1048576)
        text += element;
    EXPECT_TRUE(get_text(text + "]").done);
    EXPECT_FALSE(get_text(text + element + "]").done);
}

TEST(JSON_HTTP_Session_Test, AnElementIsLimitedWhileItIsRead)
{
    const std::string start = R"([1,{"file":")";
    EXPECT_TRUE(get_text(start + std::string(1000000, 'x') + "\"}]").done);
    for (const std::string& text :
         {start + std::string(1100000, 'x') + "\"}]", "[1," + std::string(1100000, ' ') + "2]",
          "[1," + std::string(1100000, '1') + "]"})
        EXPECT_FALSE(get_text(text).done);
    // Not only when its end is there, which may never come.
    const Listing listing = get([&](Connection& connection) {
        connection.request();
        connection.send("HTTP/1.1 200 OK\r\n\r\n" + start + std::string(1200000, 'x'));
        connection.stall();
    });
    EXPECT_FALSE(listing.done);
    EXPECT_FALSE(listing.connection_failed) << "by the time limit";
    EXPECT_THAT(listing.elements, ElementsAre("1"));
}

TEST(JSON_HTTP_Session_Test, OfALongArrayOneElementIsInMemory)
{
    constexpr int elements = 200000;
    Scripted_Server server({[](Connection& connection) {
        connection.request();
        connection.send("HTTP/1.1 200 OK\r\n\r\n[0");
        std::string piece;
        for (int i = 0; i < 100; ++i)
            piece += R"(,{"file":"name","size":1})";
        for (int i = 0; i < elements / 100; ++i)
            connection.send(piece);
        connection.send("]");
        connection.half_close();
    }});
    const HTTP_Session::Ptr session =
        HTTP_Session_Factory::create("127.0.0.1", server.port(), false, "", 3, {}, 20, 20);
    JSON_HTTP_Session json(*session, max_depth, 100);
    Kind kind{};
    HTTP_Response response;
    int taken = 0;
    std::size_t most = 0;
    const Allocation_Count count;
    ASSERT_TRUE(json.get(
        HTTP_Request(HTTP_Request::GET, "/a"),
        [&](json_spirit::Value&) {
            ++taken;
            most = std::max(most, count.unreleased());
        },
        kind, response));
    EXPECT_EQ(taken, elements + 1);
    EXPECT_LT(most, 1000U);
}

TEST(JSON_HTTP_Session_Test, ElementsAreGivenBeforeTheRestIsThere)
{
    Scripted_Server server({[](Connection& connection) {
        connection.request();
        connection.send("HTTP/1.1 200 OK\r\n\r\n[{\"file\":\"first\"},");
        connection.stall();
        connection.send("2]");
        connection.half_close();
    }});
    const HTTP_Session::Ptr session =
        HTTP_Session_Factory::create("127.0.0.1", server.port(), false, "", 3, {}, 20, 20);
    JSON_HTTP_Session json(*session, max_depth, 100);
    Kind kind{};
    HTTP_Response response;
    int taken = 0;
    EXPECT_TRUE(json.get(
        HTTP_Request(HTTP_Request::GET, "/a"),
        [&](json_spirit::Value&) {
            ++taken;
            server.release();
        },
        kind, response));
    EXPECT_EQ(taken, 2);
}

} // namespace
