#include "platform/http/http_session.h"
#include "tests/unit/http/http_target.h"

#include <boost/asio/error.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using ::testing::ElementsAre;
using Connection = Scripted_Server::Connection;
using Script = Scripted_Server::Script;

const std::string ok = http_answer("200 OK", "body");

/// A session and the server that it is with.
struct Exchange
{
    explicit Exchange(const std::vector<Script>& scripts, unsigned kept = 3)
        : server(scripts), session(HTTP_Session_Factory::create("127.0.0.1", server.port(), false,
                                                                "", kept, {}, 20, 20))
    {}

    /// @return the answer's status, 0 when there was none
    unsigned send(const std::string& path, HTTP_Request::Method method = HTTP_Request::GET)
    {
        HTTP_Response response;
        return session->send(HTTP_Request(method, path), response).get() != nullptr
                   ? response.status()
                   : 0;
    }
    HTTP_Connection::Ptr get(const std::string& path)
    {
        HTTP_Response response;
        return session->get(HTTP_Request(HTTP_Request::GET, path), response);
    }
    /// Where each request came, as "CONNECTION PATH", after the session ended.
    std::vector<std::string> came()
    {
        session = {};
        server.finish();
        std::vector<std::string> places;
        for (const auto& request : server.requests()) {
            const std::string line = request.first_line();
            const std::size_t path = line.find(' ') + 1;
            places.push_back(std::to_string(request.connection) + ' ' +
                             line.substr(path, line.find(' ', path) - path));
        }
        return places;
    }

    Scripted_Server server;
    HTTP_Session::Ptr session;
};

TEST(HTTP_Reuse, AConnectionServesOneRequestAfterTheOther)
{
    Exchange exchange({answer_each({ok, ok, http_answer("404 Missing", "no"),
                                    "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                    "3\r\nabc\r\n0\r\n\r\n",
                                    "HTTP/1.1 204 None\r\n\r\n", ok})});
    EXPECT_EQ(exchange.send("/1"), 200U);
    EXPECT_EQ(exchange.send("/2", HTTP_Request::COPY), 200U);
    EXPECT_EQ(exchange.send("/3"), 404U);
    EXPECT_EQ(exchange.send("/4"), 200U);
    EXPECT_EQ(exchange.send("/5"), 204U);
    EXPECT_EQ(exchange.send("/6"), 200U);
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "0 /2", "0 /3", "0 /4", "0 /5", "0 /6"));
}

TEST(HTTP_Reuse, AnAnswerToAHeadHasNoBodyToWaitFor)
{
    Exchange exchange({answer_each({"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n", ok})});
    EXPECT_EQ(exchange.send("/1", HTTP_Request::HEAD), 200U);
    EXPECT_EQ(exchange.send("/2"), 200U);
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "0 /2"));
}

TEST(HTTP_Reuse, AnAnswerThatEndsTheConnectionDoes)
{
    Exchange exchange({answer_each({http_answer("200 OK", "body", "Connection: close\r\n")}),
                       answer_each({"HTTP/1.0 200 OK\r\nContent-Length: 0\r\n\r\n"}),
                       [](Connection& connection) {
                           connection.request();
                           connection.send("HTTP/1.1 200 OK\r\n\r\nbody");
                           connection.half_close();
                       },
                       answer_each({ok})});
    for (const char* const path : {"/1", "/2", "/3", "/4"})
        EXPECT_EQ(exchange.send(path), 200U);
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "1 /2", "2 /3", "3 /4"));
}

TEST(HTTP_Reuse, AConnectionThatWasClosedIdleIsReplacedWithoutARequestOnIt)
{
    Exchange exchange({[](Connection& connection) {
                           connection.request();
                           connection.send(ok);
                           connection.half_close();
                       },
                       answer_each({ok})});
    HTTP_Connection::Ptr first = exchange.get("/1");
    ASSERT_NE(first.get(), nullptr);
    ASSERT_TRUE(first->skip_body(100));
    // The end of the stream may arrive a little later than the answer.
    for (int i = 0; i < 1000 && first->reusable(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_FALSE(first->reusable());
    first = {};
    EXPECT_EQ(exchange.send("/2"), 200U);
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "1 /2"));
}

/// Answers one request, takes another, and does something else with it.
Script answer_then(const std::function<void(Connection&)>& other)
{
    return [other](Connection& connection) {
        connection.request();
        connection.send(ok);
        connection.request();
        other(connection);
    };
}

TEST(HTTP_Reuse, ARequestThatNoByteAnsweredIsRepeatedOnAFreshConnection)
{
    for (const auto method : {HTTP_Request::GET, HTTP_Request::DELETE_, HTTP_Request::MOVE}) {
        Exchange exchange({answer_then([](Connection& connection) { connection.half_close(); }),
                           answer_each({ok, ok})});
        EXPECT_EQ(exchange.send("/1"), 200U);
        EXPECT_EQ(exchange.send("/2", method), 200U);
        EXPECT_EQ(exchange.send("/3"), 200U);
        EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "0 /2", "1 /2", "1 /3"));
    }
}

TEST(HTTP_Reuse, ARequestIsRepeatedOnceOnly)
{
    Exchange exchange({answer_then([](Connection& connection) { connection.half_close(); }),
                       [](Connection& connection) {
                           connection.request();
                           connection.half_close();
                       }});
    EXPECT_EQ(exchange.send("/1"), 200U);
    EXPECT_EQ(exchange.send("/2"), 0U);
    EXPECT_EQ(exchange.session->last_error(),
              static_cast<int>(boost::asio::error::connection_reset));
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "0 /2", "1 /2"));
    EXPECT_EQ(exchange.server.connections(), 2U);
}

TEST(HTTP_Reuse, ARequestOnAFreshConnectionIsNotRepeated)
{
    Exchange exchange({[](Connection& connection) {
        connection.request();
        connection.half_close();
    }});
    EXPECT_EQ(exchange.send("/1"), 0U);
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1"));
    EXPECT_EQ(exchange.server.connections(), 1U);
}

TEST(HTTP_Reuse, ARequestIsNotRepeatedOnceAByteOfAnAnswerCame)
{
    for (const std::string begun :
         {"H", "HTTP/1.1 100 Continue\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nbody"})
    {
        Exchange exchange({answer_then([begun](Connection& connection) {
            connection.send(begun);
            connection.half_close();
        })});
        EXPECT_EQ(exchange.send("/1"), 200U);
        EXPECT_EQ(exchange.send("/2"), 0U);
        EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "0 /2"));
        EXPECT_EQ(exchange.server.connections(), 1U) << begun;
    }
}

TEST(HTTP_Reuse, ARequestThatWasTakenAndNotAnsweredInTimeIsNotRepeated)
{
    Exchange exchange({answer_then([](Connection& connection) { connection.stall(); })});
    EXPECT_EQ(exchange.send("/1"), 200U);
    exchange.session->timeout(1);
    EXPECT_EQ(exchange.send("/2", HTTP_Request::MOVE), 0U);
    EXPECT_EQ(exchange.session->last_error(), static_cast<int>(boost::asio::error::timed_out));
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "0 /2"));
    EXPECT_EQ(exchange.server.connections(), 1U);
}

TEST(HTTP_Reuse, AnUploadThatNoByteAnsweredIsRepeatedBeforeItsBody)
{
    Exchange exchange({[](Connection& connection) {
                           connection.request();
                           connection.send(ok);
                           connection.head();
                           connection.half_close();
                       },
                       answer_each({ok})});
    EXPECT_EQ(exchange.send("/1"), 200U);
    HTTP_Request request(HTTP_Request::PUT, "/2");
    request.headers().put(HTTP_Headers::transfer_encoding, "chunked");
    bool confirmed = false;
    HTTP_Connection::Ptr upload = exchange.session->start_put(request, &confirmed);
    ASSERT_NE(upload.get(), nullptr);
    EXPECT_TRUE(confirmed);
    upload->write("hello", 5);
    upload->write(nullptr, 0);
    HTTP_Response response;
    EXPECT_TRUE(upload->read_response_header(response));
    upload = {};
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "0 /2", "1 /2"));
    EXPECT_EQ(unchunked(exchange.server.requests()[2].body), "hello");
}

TEST(HTTP_Reuse, AConnectionWhoseAnswerWasNotReadToItsEndIsNot)
{
    Exchange exchange({answer_each({ok}), answer_each({ok})});
    HTTP_Connection::Ptr first = exchange.get("/1");
    ASSERT_NE(first.get(), nullptr);
    ACE_Message_Block block(2);
    EXPECT_EQ(first->read_body(block), 2);
    EXPECT_FALSE(first->reusable());
    first = {};
    EXPECT_EQ(exchange.send("/2"), 200U);
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "1 /2"));
}

TEST(HTTP_Reuse, AConnectionThatSomebodyHoldsIsLeftToIt)
{
    Exchange exchange({answer_each({ok}), answer_each({ok, ok})});
    HTTP_Connection::Ptr held = exchange.get("/1");
    ASSERT_NE(held.get(), nullptr);
    ASSERT_TRUE(held->skip_body(100));
    EXPECT_EQ(exchange.send("/2"), 200U);
    EXPECT_EQ(exchange.send("/3"), 200U);
    EXPECT_TRUE(held->reusable());
    held = {};
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "1 /2", "1 /3"));
}

TEST(HTTP_Reuse, WhatNobodyAskedForPreventsIt)
{
    // Behind the head, where it is read together with it; and behind the body, which is longer
    // than what is read at once.
    const std::string extra = "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nbad";
    const std::string large(100000, 'x');
    for (const std::string& body : {std::string("body"), large}) {
        Exchange exchange({answer_each({http_answer("200 OK", body) + extra}), answer_each({ok})});
        EXPECT_EQ(exchange.send("/1"), 200U);
        EXPECT_EQ(exchange.send("/2"), 200U);
        EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "1 /2"));
    }
}

TEST(HTTP_Reuse, AnAnswerTooLongToBeReadIsKnownByItsHead)
{
    Exchange exchange({answer_each({"HTTP/1.1 500 Error\r\nContent-Length: 9000000000\r\n\r\n" +
                                    std::string(2000000, 'x')}),
                       answer_each({ok})});
    EXPECT_EQ(exchange.send("/1"), 500U);
    EXPECT_EQ(exchange.send("/2"), 200U);
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "1 /2"));
}

TEST(HTTP_Reuse, NoMoreAreKeptThanWereAskedFor)
{
    Exchange exchange({answer_each({ok, ok}), answer_each({ok}), answer_each({ok})}, 1);
    std::vector<HTTP_Connection::Ptr> held;
    for (const char* const path : {"/1", "/2", "/3"}) {
        held.push_back(exchange.get(path));
        ASSERT_NE(held.back().get(), nullptr);
        ASSERT_TRUE(held.back()->skip_body(100));
    }
    held.clear();
    EXPECT_EQ(exchange.send("/4"), 200U);
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "1 /2", "2 /3", "0 /4"));
}

TEST(HTTP_Reuse, WithoutKeptConnectionsEachRequestGetsAFreshOne)
{
    Exchange exchange({answer_each({ok}), answer_each({ok})}, 0);
    EXPECT_EQ(exchange.send("/1"), 200U);
    EXPECT_EQ(exchange.send("/2"), 200U);
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1", "1 /2"));
}

TEST(HTTP_Reuse, AConnectionThatWasMadeInAdvanceIsUsed)
{
    Exchange exchange({answer_each({ok})});
    EXPECT_EQ(exchange.session->connect()->state(), HTTP_Connection::idle);
    EXPECT_EQ(exchange.send("/1"), 200U);
    EXPECT_THAT(exchange.came(), ElementsAre("0 /1"));
}

TEST(HTTP_Reuse, FieldsThatTellABodyAreNotSentWithoutOne)
{
    Exchange exchange({answer_each({ok, ok})});
    HTTP_Request request(HTTP_Request::POST, "/1");
    request.headers().put(HTTP_Headers::transfer_encoding, "chunked");
    request.headers().put(HTTP_Headers::content_length, "0");
    HTTP_Response response;
    EXPECT_NE(exchange.session->send(request, response).get(), nullptr);
    HTTP_Connection::Ptr got = exchange.session->get(request, response);
    ASSERT_NE(got.get(), nullptr);
    got = {};
    exchange.came();
    EXPECT_THAT(sent_to(exchange.server),
                ElementsAre("POST /1 HTTP/1.1|Host: SERVER|Content-Length: 0",
                            "GET /1 HTTP/1.1|Host: SERVER"));
}

} // namespace
