#include "platform/http/http_session.h"
#include "tests/unit/http/http_target.h"

#include <array>
#include <boost/asio/error.hpp>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Connection = Scripted_Server::Connection;
using Script = Scripted_Server::Script;
using Session = HTTP_Session::Ptr;
using std::chrono::steady_clock;

constexpr std::string_view go_on = "HTTP/1.1 100 Continue\r\n\r\n";

Session session_with(const Scripted_Server& server, unsigned seconds = 20,
                     const std::string& source_address = {}, const std::string& host = "127.0.0.1")
{
    return HTTP_Session_Factory::create(host, server.port(), false, source_address, 3, {}, seconds,
                                        seconds);
}

HTTP_Request upload_request()
{
    HTTP_Request request(HTTP_Request::PUT, "/a");
    request.headers().put(HTTP_Headers::transfer_encoding, "chunked");
    return request;
}

/// What is read of an answer's body; its end, or a failure, ends it.
struct Body
{
    std::string data;
    bool whole = false;
};

Body read_body(HTTP_Connection& connection, std::size_t block_size = 65536)
{
    ACE_Message_Block block(block_size);
    Body body;
    std::int64_t n = 0;
    do {
        block.reset();
        n = connection.read_body(block);
        body.data.append(block.rd_ptr(), block.length());
    } while (n > 0);
    body.whole = n == 0;
    return body;
}

Script answer_in_pieces(const std::string& answer, std::size_t size)
{
    return [=](Connection& connection) {
        connection.request();
        for (std::size_t at = 0; at < answer.size(); at += size)
            connection.send(answer.substr(at, size));
        connection.half_close();
    };
}

TEST(HTTP_Session_Test, ARequestIsSentAsItStandsWithTheHostInFront)
{
    Scripted_Server server({answer_each({http_answer("200 OK")})});
    Session session = session_with(server);
    HTTP_Request request(HTTP_Request::MKCOL, "/a%20b?c");
    request.headers().put("X-Name", "  v ");
    request.headers().put(HTTP_Headers::content_length, "0");
    HTTP_Response response;
    ASSERT_NE(session->send(request, response).get(), nullptr) << session->error_text();
    EXPECT_EQ(response.status(), 200U);
    session = {};
    server.finish();
    EXPECT_THAT(sent_to(server),
                ElementsAre("MKCOL /a%20b?c HTTP/1.1|Host: SERVER|X-Name:   v |Content-Length: 0"));
}

TEST(HTTP_Session_Test, AHostOfTheRequestsOwnReplacesTheHost)
{
    Scripted_Server server({answer_each({http_answer("200 OK")})});
    Session session = session_with(server);
    HTTP_Request request(HTTP_Request::DELETE_, "/a");
    request.headers().put("host", "other");
    HTTP_Response response;
    ASSERT_NE(session->send(request, response).get(), nullptr);
    session = {};
    server.finish();
    EXPECT_THAT(sent_to(server), ElementsAre("DELETE /a HTTP/1.1|host: other"));
}

TEST(HTTP_Session_Test, BodiesAreReadByEachFramingHoweverTheyArrive)
{
    const std::string data = "0123456789abcdef";
    const std::string answers[] = {
        http_answer("200 OK", data),
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
        "7;x=y\r\n0123456\r\n9\r\n789abcdef\r\n0\r\nTrailer: x\r\n\r\n",
        "HTTP/1.1 200 OK\r\n\r\n" + data,
        "HTTP/1.1 103 Hints\r\nLink: x\r\n\r\n" + http_answer("200 OK", data),
    };
    for (const std::string& answer : answers)
        for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, answer.size()})
            for (const std::size_t block : {1, 5, 65536}) {
                SCOPED_TRACE(answer.substr(0, 50) + std::to_string(piece) + ' ' +
                             std::to_string(block));
                Scripted_Server server({answer_in_pieces(answer, piece)});
                const Session session = session_with(server);
                HTTP_Response response;
                const HTTP_Connection::Ptr connection =
                    session->get(HTTP_Request(HTTP_Request::GET, "/a"), response);
                ASSERT_NE(connection.get(), nullptr) << session->error_text();
                const Body body = read_body(*connection, block);
                EXPECT_TRUE(body.whole);
                EXPECT_EQ(body.data, data);
                EXPECT_EQ(connection->state(), HTTP_Connection::complete);
            }
}

TEST(HTTP_Session_Test, ABodyThatEndsEarlyIsAFailure)
{
    const std::string answers[] = {
        "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n012345678",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n0123",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n01234\r\n",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n01234\r\n0\r\n",
    };
    for (const std::string& answer : answers) {
        SCOPED_TRACE(answer);
        Scripted_Server server({answer_in_pieces(answer, answer.size())});
        const Session session = session_with(server);
        HTTP_Response response;
        const HTTP_Connection::Ptr connection =
            session->get(HTTP_Request(HTTP_Request::GET, "/a"), response);
        ASSERT_NE(connection.get(), nullptr);
        EXPECT_FALSE(read_body(*connection).whole);
        EXPECT_EQ(connection->last_error(), static_cast<int>(boost::asio::error::connection_reset));
        EXPECT_EQ(connection->state(), HTTP_Connection::closed);
    }
}

TEST(HTTP_Session_Test, AMalformedBodyIsAFailureThatSaysWhy)
{
    Scripted_Server server({answer_in_pieces(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n01234567", 1000)});
    const Session session = session_with(server);
    HTTP_Response response;
    const HTTP_Connection::Ptr connection =
        session->get(HTTP_Request(HTTP_Request::GET, "/a"), response);
    ASSERT_NE(connection.get(), nullptr);
    EXPECT_FALSE(read_body(*connection).whole);
    EXPECT_THAT(connection->error_text(), HasSubstr("invalid answer: "));
}

TEST(HTTP_Session_Test, AnAnswerThatIsNoneIsAFailureThatSaysWhy)
{
    for (const std::string& answer :
         {std::string("SSH-2.0-server\r\n"), std::string("HTTP/1.1 101 Switching\r\n\r\n"),
          http_answer("200 OK", "", "Content-Length: 1\r\n"),
          "HTTP/1.1 200 OK\r\nN: " + std::string(70000, 'x'),
          // Interim answers without end.
          [] {
              std::string many;
              for (int i = 0; i < 20; ++i)
                  many += "HTTP/1.1 102 Busy\r\n\r\n";
              return many + http_answer("200 OK");
          }()})
    {
        SCOPED_TRACE(answer.substr(0, 50));
        Scripted_Server server({answer_each({answer})});
        const Session session = session_with(server);
        HTTP_Response response;
        EXPECT_EQ(session->get(HTTP_Request(HTTP_Request::GET, "/a"), response).get(), nullptr);
        EXPECT_NE(session->error_text(), "");
        EXPECT_NE(session->last_error(), 0);
        EXPECT_EQ(server.connections(), 1U);
    }
}

TEST(HTTP_Session_Test, AnUploadIsSentInChunks)
{
    Scripted_Server server({answer_each({http_answer("200 OK")})});
    Session session = session_with(server);
    bool confirmed = false;
    HTTP_Connection::Ptr connection = session->start_put(upload_request(), &confirmed);
    ASSERT_NE(connection.get(), nullptr);
    EXPECT_TRUE(confirmed);
    const std::string large(5000, 'x'); // sent by itself, not joined with its frame
    EXPECT_EQ(connection->write("hello", 5), 5U);
    EXPECT_EQ(connection->write(large.data(), large.size()), large.size());
    EXPECT_EQ(connection->write(nullptr, 0), 0U);
    EXPECT_EQ(connection->state(), HTTP_Connection::awaiting);
    HTTP_Response response;
    EXPECT_TRUE(connection->read_response_header(response));
    EXPECT_EQ(response.status(), 200U);
    EXPECT_TRUE(connection->skip_body(0));
    connection = {};
    session = {};
    server.finish();
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(server.requests()[0].body, "5\r\nhello\r\n1388\r\n" + large + "\r\n0\r\n\r\n");
    EXPECT_EQ(server.requests()[0].field("Expect"), "100-continue");
}

TEST(HTTP_Session_Test, ABodyOfKnownLengthIsSentAsItIs)
{
    Scripted_Server server({answer_each({http_answer("200 OK")})});
    Session session = session_with(server);
    HTTP_Connection::Ptr connection = session->connect();
    ASSERT_NE(connection.get(), nullptr);
    HTTP_Request request(HTTP_Request::POST, "/a");
    request.headers().put(HTTP_Headers::content_length, "7");
    ASSERT_TRUE(connection->start(request, "h"));
    EXPECT_EQ(connection->state(), HTTP_Connection::length_body);
    EXPECT_EQ(connection->write("hel", 3), 3U);
    EXPECT_EQ(connection->write("lo, ", 4), 4U);
    EXPECT_EQ(connection->state(), HTTP_Connection::awaiting);
    HTTP_Response response;
    EXPECT_TRUE(connection->read_response_header(response));
    connection = {};
    session = {};
    server.finish();
    EXPECT_EQ(server.requests()[0].body, "hello, ");
}

TEST(HTTP_Session_Test, WithoutExpectNobodyIsWaitedFor)
{
    Scripted_Server server({answer_each({http_answer("200 OK")})});
    Session session = session_with(server);
    const auto start = steady_clock::now();
    HTTP_Connection::Ptr connection = session->start_put(upload_request());
    ASSERT_NE(connection.get(), nullptr);
    EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds(900));
    connection->write(nullptr, 0);
    HTTP_Response response;
    EXPECT_TRUE(connection->read_response_header(response));
    connection = {};
    session = {};
    server.finish();
    EXPECT_EQ(server.requests()[0].field("Expect"), std::nullopt);
}

TEST(HTTP_Session_Test, AServerThatIsSilentAboutContinueIsSentTheBodyAllTheSame)
{
    Scripted_Server server({[](Connection& connection) {
        connection.request();
        connection.send(std::string(go_on) + http_answer("200 OK"));
    }});
    Session session = session_with(server);
    bool confirmed = true;
    HTTP_Connection::Ptr connection = session->start_put(upload_request(), &confirmed);
    ASSERT_NE(connection.get(), nullptr);
    EXPECT_FALSE(confirmed);
    EXPECT_EQ(connection->write("hello", 5), 5U);
    connection->write(nullptr, 0);
    HTTP_Response response;
    EXPECT_TRUE(connection->read_response_header(response)) << connection->error_text();
    EXPECT_EQ(response.status(), 200U);
    connection = {};
    session = {};
    server.finish();
    EXPECT_EQ(unchunked(server.requests()[0].body), "hello");
}

TEST(HTTP_Session_Test, AServerThatRefusesToSayIsNotAskedAgain)
{
    Scripted_Server server({[](Connection& connection) {
                                connection.head();
                                connection.send(http_answer("417 What?"));
                            },
                            [](Connection& connection) {
                                for (int i = 0; i < 2; ++i) {
                                    connection.request();
                                    connection.send(http_answer("200 OK"));
                                }
                            }});
    Session session = session_with(server);
    for (int i = 0; i < 2; ++i) {
        bool confirmed = true;
        HTTP_Connection::Ptr connection = session->start_put(upload_request(), &confirmed);
        ASSERT_NE(connection.get(), nullptr);
        EXPECT_FALSE(confirmed);
        EXPECT_EQ(connection->write("hello", 5), 5U);
        connection->write(nullptr, 0);
        HTTP_Response response;
        EXPECT_TRUE(connection->read_response_header(response)) << connection->error_text();
        EXPECT_EQ(response.status(), 200U);
    }
    session = {};
    server.finish();
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3U);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        EXPECT_EQ(requests[i].field("Expect").has_value(), i == 0);
        EXPECT_EQ(requests[i].field("Transfer-Encoding"), "chunked");
    }
    EXPECT_EQ(unchunked(requests.back().body), "hello");
}

TEST(HTTP_Session_Test, AServerThatWasSilentMayStillNameItsFiles)
{
    const auto silent = [](Connection& connection) {
        connection.request();
        connection.send(http_answer("200 OK"));
    };
    Scripted_Server server({[&](Connection& connection) {
        silent(connection);
        connection.head();
        connection.send("HTTP/1.1 100 Continue\r\nX-File-Id: 7\r\n\r\n");
        connection.body();
        connection.send(http_answer("200 OK"));
    }});
    Session session = session_with(server);
    for (const char* const id : {"", "7"}) {
        bool confirmed = false;
        HTTP_Connection::Ptr connection = session->start_put(upload_request(), &confirmed);
        ASSERT_NE(connection.get(), nullptr);
        connection->write(nullptr, 0);
        HTTP_Response response;
        EXPECT_TRUE(connection->read_response_header(response)) << connection->error_text();
        EXPECT_EQ(connection->file_id(), id);
    }
    session = {};
    server.finish();
    for (const auto& request : server.requests())
        EXPECT_EQ(request.field("Expect"), "100-continue");
}

TEST(HTTP_Session_Test, AConnectionThatBreaksIsNotASilentServer)
{
    Scripted_Server server({[](Connection& connection) {
                                connection.head();
                                connection.reset();
                            },
                            [](Connection& connection) {
                                connection.head();
                                connection.send(go_on);
                                connection.body();
                                connection.send(http_answer("200 OK"));
                            }});
    const Session session = session_with(server);
    bool confirmed = true;
    EXPECT_EQ(session->start_put(upload_request(), &confirmed).get(), nullptr);
    const HTTP_Connection::Ptr connection = session->start_put(upload_request(), &confirmed);
    ASSERT_NE(connection.get(), nullptr);
    EXPECT_TRUE(confirmed) << "it was not waited for";
    connection->write(nullptr, 0);
    HTTP_Response response;
    EXPECT_TRUE(connection->read_response_header(response)) << connection->error_text();
}

TEST(HTTP_Session_Test, AnotherInterimAnswerIsNoWordToGoOn)
{
    Scripted_Server server({[](Connection& connection) {
        connection.head();
        connection.send("HTTP/1.1 102 Busy\r\n\r\n");
        connection.body();
        connection.send(http_answer("200 OK"));
    }});
    Session session = session_with(server);
    bool confirmed = true;
    HTTP_Connection::Ptr connection = session->start_put(upload_request(), &confirmed);
    ASSERT_NE(connection.get(), nullptr);
    EXPECT_FALSE(confirmed);
    connection->write(nullptr, 0);
    HTTP_Response response;
    EXPECT_TRUE(connection->read_response_header(response));
    EXPECT_EQ(response.status(), 200U);
    connection = {};
    session = {};
    server.finish();
}

TEST(HTTP_Session_Test, AFinalAnswerInPlaceOfContinueEndsTheUpload)
{
    Scripted_Server server({[](Connection& connection) {
        connection.head();
        connection.send(http_answer("403 Forbidden", "no"));
    }});
    Session session = session_with(server);
    bool confirmed = true;
    HTTP_Connection::Ptr connection = session->start_put(upload_request(), &confirmed);
    ASSERT_NE(connection.get(), nullptr);
    EXPECT_FALSE(confirmed);
    EXPECT_EQ(connection->write("hello", 5), 0U);
    EXPECT_EQ(connection->last_error(), 0);
    HTTP_Response response;
    EXPECT_TRUE(connection->read_response_header(response));
    EXPECT_EQ(response.status(), 403U);
    EXPECT_EQ(read_body(*connection).data, "no");
    // Its request was never finished, so nothing can follow it.
    EXPECT_FALSE(connection->reusable());
    connection = {};
    session = {};
    server.finish(); // nothing of the body came
}

TEST(HTTP_Session_Test, AnAnswerDuringTheBodyEndsTheSending)
{
    // The server reads no more, and does not close either.
    std::promise<void> answered;
    Scripted_Server server({[&answered](Connection& connection) {
        connection.head();
        connection.send(go_on);
        connection.part_of_body(8);
        connection.send(http_answer("507 Full", "no space"));
        answered.set_value();
        connection.stall();
        connection.reset();
    }});
    const Session session = session_with(server);
    bool confirmed = false;
    const HTTP_Connection::Ptr connection = session->start_put(upload_request(), &confirmed);
    ASSERT_NE(connection.get(), nullptr);
    EXPECT_EQ(connection->write("hello", 5), 5U);
    answered.get_future().wait();
    const std::string data(65536, 'x');
    const auto start = steady_clock::now();
    int writes = 0;
    while (writes < 1000 && connection->write(data.data(), data.size()) == data.size())
        ++writes;
    EXPECT_LT(writes, 1000);
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(10)) << "not by the time limit";
    EXPECT_EQ(connection->last_error(), 0);
    HTTP_Response response;
    ASSERT_TRUE(connection->read_response_header(response)) << connection->error_text();
    EXPECT_EQ(response.status(), 507U);
    EXPECT_EQ(read_body(*connection).data, "no space");
    EXPECT_FALSE(connection->reusable());
    server.release();
}

TEST(HTTP_Session_Test, AnAnswerBeforeTheServerClosesIsWhatTheUploadLearns)
{
    Scripted_Server server({[](Connection& connection) {
        connection.head();
        connection.send(go_on);
        connection.part_of_body(8);
        connection.send(http_answer("507 Full", "", "Connection: close\r\n"));
        connection.half_close();
    }});
    const Session session = session_with(server);
    bool confirmed = false;
    const HTTP_Connection::Ptr connection = session->start_put(upload_request(), &confirmed);
    ASSERT_NE(connection.get(), nullptr);
    const std::string data(65536, 'x');
    int writes = 0;
    while (writes < 1000 && connection->write(data.data(), data.size()) == data.size())
        ++writes;
    EXPECT_LT(writes, 1000);
    EXPECT_EQ(connection->last_error(), 0);
    HTTP_Response response;
    ASSERT_TRUE(connection->read_response_header(response)) << connection->error_text();
    EXPECT_EQ(response.status(), 507U);
}

TEST(HTTP_Session_Test, AContinueThatComesLateDoesNotEndTheSending)
{
    Scripted_Server server({[](Connection& connection) {
        connection.head();
        connection.part_of_body(8);
        connection.send("HTTP/1.1 100 Conti");
        connection.part_of_body(8);
        connection.send("nue\r\n\r\n");
        connection.body();
        connection.send(http_answer("200 OK"));
    }});
    Session session = session_with(server);
    HTTP_Connection::Ptr connection = session->start_put(upload_request());
    ASSERT_NE(connection.get(), nullptr);
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(connection->write("hello", 5), 5U);
    connection->write(nullptr, 0);
    HTTP_Response response;
    ASSERT_TRUE(connection->read_response_header(response)) << connection->error_text();
    EXPECT_EQ(response.status(), 200U);
    connection = {};
    session = {};
    server.finish();
}

TEST(HTTP_Session_Test, ALostConnectionDuringTheBodyIsAFailure)
{
    Scripted_Server server({[](Connection& connection) {
        connection.head();
        connection.send(go_on);
        connection.part_of_body(8);
        connection.reset();
    }});
    const Session session = session_with(server);
    bool confirmed = false;
    const HTTP_Connection::Ptr connection = session->start_put(upload_request(), &confirmed);
    ASSERT_NE(connection.get(), nullptr);
    const std::string data(65536, 'x');
    int writes = 0;
    while (writes < 1000 && connection->write(data.data(), data.size()) == data.size())
        ++writes;
    EXPECT_LT(writes, 1000);
    EXPECT_NE(connection->last_error(), 0);
    EXPECT_EQ(connection->state(), HTTP_Connection::closed);
    EXPECT_EQ(connection->write(data.data(), data.size()), 0U);
}

TEST(HTTP_Session_Test, AnAnswerThatDoesNotComeIsWaitedForNoLongerThanTheLimit)
{
    Scripted_Server server({[](Connection& connection) {
        connection.request();
        connection.stall();
    }});
    const Session session = session_with(server, 1);
    HTTP_Response response;
    const auto start = steady_clock::now();
    EXPECT_EQ(session->get(HTTP_Request(HTTP_Request::GET, "/a"), response).get(), nullptr);
    EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(950));
    EXPECT_EQ(session->last_error(), static_cast<int>(boost::asio::error::timed_out));
    EXPECT_EQ(server.connections(), 1U);
    server.release();
}

TEST(HTTP_Session_Test, TheLimitOfAHeadIsOneForAllOfIt)
{
    std::atomic<bool> done = false;
    Scripted_Server server({[&done](Connection& connection) {
        connection.request();
        connection.send("HTTP/1.1 200 OK\r\nName: ");
        while (!done) {
            connection.send("x");
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }});
    const Session session = session_with(server, 1);
    HTTP_Response response;
    const auto start = steady_clock::now();
    EXPECT_EQ(session->get(HTTP_Request(HTTP_Request::GET, "/a"), response).get(), nullptr);
    done = true;
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(session->last_error(), static_cast<int>(boost::asio::error::timed_out));
}

TEST(HTTP_Session_Test, ABodyThatStopsIsWaitedForNoLongerThanTheLimit)
{
    Scripted_Server server({[](Connection& connection) {
        connection.request();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n01234");
        connection.stall();
    }});
    const Session session = session_with(server, 1);
    HTTP_Response response;
    const HTTP_Connection::Ptr connection =
        session->get(HTTP_Request(HTTP_Request::GET, "/a"), response);
    ASSERT_NE(connection.get(), nullptr);
    EXPECT_FALSE(read_body(*connection).whole);
    EXPECT_EQ(connection->last_error(), static_cast<int>(boost::asio::error::timed_out));
    server.release();
}

TEST(HTTP_Session_Test, APeerThatReadsNothingIsWaitedForNoLongerThanTheLimit)
{
    Scripted_Server server({[](Connection& connection) {
        connection.head();
        connection.stall();
        connection.reset();
    }});
    const Session session = session_with(server, 1);
    const HTTP_Connection::Ptr connection = session->start_put(upload_request());
    ASSERT_NE(connection.get(), nullptr);
    const std::string data(1000000, 'x');
    int writes = 0;
    while (writes < 1000 && connection->write(data.data(), data.size()) == data.size())
        ++writes;
    EXPECT_LT(writes, 1000);
    EXPECT_EQ(connection->last_error(), static_cast<int>(boost::asio::error::timed_out));
    server.release();
}

TEST(HTTP_Session_Test, AServerWithAnIPv6AddressIsNamedInBrackets)
{
    Scripted_Server::Settings settings;
    settings.address = "::1";
    Scripted_Server server({answer_each({http_answer("200 OK")})}, settings);
    Session session = session_with(server, 20, "", "::1");
    HTTP_Response response;
    ASSERT_NE(session->get(HTTP_Request(HTTP_Request::GET, "/a"), response).get(), nullptr)
        << session->last_error() << session->error_text();
    const std::string authority = "[::1]:" + std::to_string(server.port());
    EXPECT_EQ(HTTP_Session_URL(*session, "/a").str(), "http://" + authority + "/a");
    session = {};
    server.finish();
    EXPECT_EQ(server.requests()[0].field("Host"), authority);
}

TEST(HTTP_Session_Test, ThePortOfTheProtocolIsLeftOutOfURLs)
{
    const auto url = [](unsigned short port, bool ssl) {
        const Session session = HTTP_Session_Factory::create("name", port, ssl, "");
        EXPECT_EQ(session->ssl(), ssl);
        return HTTP_Session_URL(*session, "/a").str();
    };
    EXPECT_EQ(url(0, false), "http://name/a");
    EXPECT_EQ(url(80, false), "http://name/a");
    EXPECT_EQ(url(443, false), "http://name:443/a");
    EXPECT_EQ(url(0, true), "https://name/a");
    EXPECT_EQ(url(443, true), "https://name/a");
    EXPECT_EQ(url(80, true), "https://name:80/a");
}

TEST(HTTP_Session_Test, ANameIsLookedUp)
{
    Scripted_Server server({answer_each({http_answer("200 OK")})});
    Session session = session_with(server, 20, "", "localhost");
    HTTP_Response response;
    EXPECT_NE(session->get(HTTP_Request(HTTP_Request::GET, "/a"), response).get(), nullptr)
        << session->error_text();
    session = {};
    server.finish();
}

TEST(HTTP_Session_Test, ConnectionsComeFromTheSourceAddress)
{
    Scripted_Server server({answer_each({http_answer("200 OK")})});
    HTTP_Response response;
    Session session = session_with(server, 20, "127.0.0.1");
    EXPECT_NE(session->get(HTTP_Request(HTTP_Request::GET, "/a"), response).get(), nullptr)
        << session->error_text();
    session = {};
    server.finish();
}

TEST(HTTP_Session_Test, ASourceAddressThatCannotBeUsedIsAFailure)
{
    Scripted_Server server({});
    // Nobody's here (RFC 5737), and of the other family.
    for (const char* const address : {"192.0.2.1", "::1"}) {
        const Session session = session_with(server, 20, address);
        EXPECT_EQ(session->connect().get(), nullptr) << address;
        EXPECT_NE(session->last_error(), 0) << address;
    }
    server.finish();
    EXPECT_EQ(server.connections(), 0U);
}

TEST(HTTP_Session_Test, AServerThatIsNotThereIsAFailure)
{
    unsigned short port = 0;
    {
        const Scripted_Server server({});
        port = server.port();
    }
    const Session session = HTTP_Session_Factory::create("127.0.0.1", port, false, "");
    EXPECT_EQ(session->connect().get(), nullptr);
    EXPECT_EQ(session->last_error(), static_cast<int>(boost::asio::error::connection_refused));
}

TEST(HTTP_Session_Test, AHostNameThatIsNoneIsAFailureThatSaysWhy)
{
    const Session session = HTTP_Session_Factory::create("no..name", 80, false, "");
    EXPECT_EQ(session->connect().get(), nullptr);
    EXPECT_NE(session->last_error(), 0);
}

} // namespace
