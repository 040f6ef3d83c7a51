#include "tests/support/scripted_server.h"

#include "tests/support/test_certificate.h"

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace
{

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using Connection = Scripted_Server::Connection;
using Settings = Scripted_Server::Settings;

/// A client that sends what it is told to.
class Client
{
public:
    explicit Client(const Scripted_Server& server)
    {
        socket_.connect({asio::ip::address_v4::loopback(), server.port()});
    }

    void send(const std::string& data) { asio::write(socket_, asio::buffer(data)); }
    std::string receive(std::size_t size)
    {
        std::string data(size, '\0');
        data.resize(asio::read(socket_, asio::buffer(data), error_));
        return data;
    }
    std::string receive_all() { return receive(100000); }
    /// How the last receive ended.
    error_code error() const { return error_; }
    tcp::socket& socket() { return socket_; }

private:
    asio::io_context context_;
    tcp::socket socket_{context_};
    error_code error_;
};

/// A client with TLS that trusts one certificate.
class Tls_Client
{
public:
    Tls_Client(const Scripted_Server& server, const Test_Certificate& trusted)
    {
        tls_.add_certificate_authority(asio::buffer(trusted.pem()));
        stream_.set_verify_mode(asio::ssl::verify_peer);
        stream_.set_verify_callback(asio::ssl::host_name_verification("127.0.0.1"));
        stream_.next_layer().connect({asio::ip::address_v4::loopback(), server.port()});
        stream_.handshake(asio::ssl::stream_base::client, error_);
    }

    void send(const std::string& data) { asio::write(stream_, asio::buffer(data)); }
    std::string receive_all()
    {
        std::string data(100000, '\0');
        data.resize(asio::read(stream_, asio::buffer(data), error_));
        return data;
    }
    error_code error() const { return error_; }

private:
    asio::io_context context_;
    asio::ssl::context tls_{asio::ssl::context::tls_client};
    asio::ssl::stream<tcp::socket> stream_{context_, tls_};
    error_code error_;
};

const std::string get = "GET /a HTTP/1.1\r\nHost: b\r\n\r\n";

/// Takes one request and answers it.
Scripted_Server::Script answer_with(const std::string& bytes)
{
    return [bytes](Connection& connection) {
        connection.request();
        connection.send(bytes);
    };
}

TEST(Scripted_Server_Test, RequestsAreKeptAsTheyWereSent)
{
    Scripted_Server server({answer_with("one answer")});
    const std::string head = "PUT /a%20b HTTP/1.1\r\nhost:  c\r\nCONTENT-length: 5\r\n\r\n";
    {
        Client client(server);
        client.send(head + "he");
        client.send("llo");
        EXPECT_EQ(client.receive(10), "one answer");
    }
    server.finish();
    ASSERT_EQ(server.requests().size(), 1U);
    const Scripted_Server::Request request = server.requests()[0];
    EXPECT_EQ(request.head, head);
    EXPECT_EQ(request.body, "hello");
    EXPECT_EQ(request.first_line(), "PUT /a%20b HTTP/1.1");
    EXPECT_EQ(request.field("Host"), "c");
    EXPECT_EQ(request.field("Content-Length"), "5");
    EXPECT_EQ(request.field("Range"), std::nullopt);
    EXPECT_EQ(server.connections(), 1U);
}

TEST(Scripted_Server_Test, ABodyInChunksIsKeptWithItsSizes)
{
    Scripted_Server server({[](Connection& connection) {
        connection.request();
        connection.send("1");
        connection.request();
        connection.send("2");
    }});
    const std::string body =
        "3;name=value\r\nabc\r\n0B\r\n0\r\n\r\n567890\r\n0\r\nTrailer: x\r\n\r\n";
    {
        Client client(server);
        // In pieces of one byte, to end in every place.
        for (const char c : "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n" + body)
            client.send(std::string(1, c));
        EXPECT_EQ(client.receive(1), "1");
        client.send(get);
        EXPECT_EQ(client.receive(1), "2");
    }
    server.finish();
    ASSERT_EQ(server.requests().size(), 2U);
    EXPECT_EQ(server.requests()[0].body, body);
    EXPECT_EQ(unchunked(body), "abc0\r\n\r\n567890");
    EXPECT_EQ(server.requests()[1].head, get);
}

TEST(Scripted_Server_Test, WhatIsNoBodyInChunksFailsTheTest)
{
    for (const char* const body : {"", "0\r\n", "3\r\nabc\r\n", "0\r\n\r\nx", "z\r\n\r\n"}) {
        SCOPED_TRACE(body);
        EXPECT_NONFATAL_FAILURE(unchunked(body), "not a body in chunks");
    }
    EXPECT_EQ(unchunked("0\r\n\r\n"), "");
}

TEST(Scripted_Server_Test, AScriptMayAnswerBeforeTheBodyIsThere)
{
    Scripted_Server server({[](Connection& connection) {
        EXPECT_EQ(connection.head().field("Expect"), "100-continue");
        connection.send("HTTP/1.1 100 Continue\r\n\r\n");
        EXPECT_EQ(connection.part_of_body(2).body, "ab");
        connection.send("half");
        EXPECT_EQ(connection.body().body, "abcd");
        connection.send(http_answer("200 OK"));
    }});
    {
        Client client(server);
        client.send("PUT / HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 4\r\n\r\n");
        EXPECT_EQ(client.receive(25), "HTTP/1.1 100 Continue\r\n\r\n");
        client.send("ab");
        EXPECT_EQ(client.receive(4), "half");
        client.send("cd");
        EXPECT_EQ(client.receive(38), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    }
    server.finish();
}

TEST(Scripted_Server_Test, ScriptsFollowTheOrderOfConnectionsAndFurtherOnesAreClosed)
{
    Scripted_Server server({answer_with("first"), answer_with("second")});
    {
        Client first(server);
        Client second(server);
        Client third(server);
        second.send(get);
        EXPECT_EQ(second.receive(6), "second");
        first.send(get);
        EXPECT_EQ(first.receive(5), "first");
        EXPECT_EQ(third.receive_all(), "");
    }
    server.finish();
    ASSERT_EQ(server.requests().size(), 2U);
    EXPECT_EQ(server.requests()[0].connection, 1U);
    EXPECT_EQ(server.requests()[1].connection, 0U);
    EXPECT_EQ(server.connections(), 3U);
}

TEST(Scripted_Server_Test, AnUnusedConnectionCounts)
{
    Scripted_Server server({answer_with("first")});
    {
        Client client(server);
        client.send(get);
        EXPECT_EQ(client.receive(5), "first");
        const Client other(server);
    }
    server.finish();
    EXPECT_EQ(server.connections(), 2U);
}

TEST(Scripted_Server_Test, AResetIsNoOrderlyEnd)
{
    Scripted_Server server({
        [](Connection& connection) {
            connection.request();
            connection.reset();
        },
        [](Connection& connection) {
            connection.request();
            connection.close();
        },
    });
    {
        Client client(server);
        client.send(get);
        EXPECT_EQ(client.receive_all(), "");
        EXPECT_EQ(client.error(), asio::error::connection_reset);
    }
    {
        Client client(server);
        client.send(get);
        EXPECT_EQ(client.receive_all(), "");
        EXPECT_EQ(client.error(), asio::error::eof);
    }
    server.finish();
}

TEST(Scripted_Server_Test, AHalfClosedConnectionStillReceives)
{
    Scripted_Server server({[](Connection& connection) {
        connection.head();
        connection.send("early answer");
        connection.half_close();
        connection.body();
    }});
    {
        Client client(server);
        client.send("PUT / HTTP/1.1\r\nContent-Length: 4\r\n\r\n");
        EXPECT_EQ(client.receive_all(), "early answer");
        EXPECT_EQ(client.error(), asio::error::eof);
        client.send("body");
    }
    server.finish();
    EXPECT_EQ(server.requests().at(0).body, "body");
}

TEST(Scripted_Server_Test, AStalledConnectionWaitsToBeReleased)
{
    Scripted_Server server({
        [](Connection& connection) {
            connection.request();
            connection.stall();
            connection.send("late");
        },
        answer_with("meanwhile"),
    });
    {
        Client stalled(server);
        stalled.send(get);
        Client other(server);
        other.send(get);
        EXPECT_EQ(other.receive(9), "meanwhile");
        EXPECT_EQ(stalled.socket().available(), 0U);
        server.release();
        EXPECT_EQ(stalled.receive(4), "late");
    }
    server.finish();
}

TEST(Scripted_Server_Test, AServerThatGoesEndsWhatIsStillThere)
{
    Scripted_Server::Script script = [](Connection& connection) {
        connection.send("up");
        connection.stall();
        connection.head();
        ADD_FAILURE() << "the script went on";
    };
    auto server = std::make_unique<Scripted_Server>(
        std::vector<Scripted_Server::Script>{script, answer_with("idle")});
    Client stalled(*server);
    EXPECT_EQ(stalled.receive(2), "up");
    Client idle(*server);
    idle.send(get);
    EXPECT_EQ(idle.receive(4), "idle");
    server.reset();
    EXPECT_EQ(stalled.receive_all(), "");
    EXPECT_EQ(idle.receive_all(), "");
}

TEST(Scripted_Server_Test, BytesThatNoScriptAskedForFailTheTest)
{
    Scripted_Server server({answer_with("answer")});
    {
        Client client(server);
        client.send(get + "and more");
        EXPECT_EQ(client.receive(6), "answer");
    }
    EXPECT_NONFATAL_FAILURE(server.finish(),
                            "connection 0: the client sent what no script asked for: and more");
}

TEST(Scripted_Server_Test, RequestsThatAreNotWholeFailTheTestAndAreShown)
{
    Scripted_Server server({answer_with("answer"), answer_with("answer")});
    {
        Client client(server);
        client.send("GET / HT");
    }
    EXPECT_NONFATAL_FAILURE(server.finish(),
                            "connection 0: the client closed before its request was whole");
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(server.requests()[0].head, "GET / HT");
}

TEST(Scripted_Server_Test, ABodyThatIsNotWholeFailsTheTestAndIsShown)
{
    Scripted_Server server({answer_with("answer")});
    {
        Client client(server);
        client.send("PUT / HTTP/1.1\r\nContent-Length: 4\r\n\r\nabc");
    }
    EXPECT_NONFATAL_FAILURE(server.finish(),
                            "connection 0: the client closed in the middle of a body");
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(server.requests()[0].body, "abc");
}

TEST(Scripted_Server_Test, ItsUriNamesWhereItListens)
{
    const Test_Certificate certificate;
    const Scripted_Server plain({});
    const Scripted_Server secure({}, {.certificate = &certificate});
    const std::string port = std::to_string(plain.port());
    EXPECT_EQ(plain.uri(), "http://127.0.0.1:" + port + "/");
    EXPECT_EQ(plain.uri("/a"), "http://127.0.0.1:" + port + "/a");
    EXPECT_THAT(secure.uri(), testing::StartsWith("https://127.0.0.1:"));
}

TEST(Scripted_Server_Test, TlsServesThoseWhoTrustItsCertificate)
{
    const Test_Certificate certificate;
    Scripted_Server server({answer_with("secret"), answer_with("secret")},
                           {.certificate = &certificate});
    const std::string body(200000, 'x');
    {
        const Tls_Client stranger(server, Test_Certificate());
        EXPECT_TRUE(stranger.error());
    }
    {
        Tls_Client client(server, certificate);
        EXPECT_FALSE(client.error()) << client.error().message();
        client.send("PUT / HTTP/1.1\r\nContent-Length: 200000\r\n\r\n" + body);
    }
    server.finish();
    EXPECT_EQ(server.connections(), 2U);
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_EQ(server.requests()[0].connection, 1U);
    EXPECT_TRUE(server.requests()[0].body == body);
}

TEST(Scripted_Server_Test, TlsTellsAnOrderlyEndFromACutConnection)
{
    const Test_Certificate certificate;
    Scripted_Server server({
                               [](Connection& connection) {
                                   connection.send("whole");
                                   connection.half_close();
                               },
                               [](Connection& connection) {
                                   connection.send("cut");
                                   connection.cut();
                               },
                           },
                           {.certificate = &certificate});
    {
        Tls_Client client(server, certificate);
        EXPECT_EQ(client.receive_all(), "whole");
        EXPECT_EQ(client.error(), asio::error::eof);
    }
    {
        Tls_Client client(server, certificate);
        EXPECT_EQ(client.receive_all(), "cut");
        EXPECT_EQ(client.error(), asio::ssl::error::stream_truncated);
    }
    server.finish();
}

TEST(Test_Certificate_Test, EachOneIsAnother)
{
    const Test_Certificate one;
    const Test_Certificate other;
    EXPECT_NE(one.pem(), other.pem());
    EXPECT_NE(one.sha256(), other.sha256());
    EXPECT_EQ(one.sha256().find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(one.sha256().size(), 64U);
}

} // namespace
