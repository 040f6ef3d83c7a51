#include "platform/http/http_session.h"
#include "tests/support/temp_directory.h"
#include "tests/support/test_certificate.h"
#include "tests/unit/http/http_target.h"

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace
{

namespace asio = boost::asio;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Connection = Scripted_Server::Connection;
using Script = Scripted_Server::Script;
using Context = ACE_Intrusive_Auto_Ptr<TLS_Context>;

const std::string ok = http_answer("200 OK", "body");

Context context_of(const TLS_Settings& settings)
{
    Transport_Error error;
    const Context context = TLS_Context::create(settings, error);
    EXPECT_NE(context.get(), nullptr) << error.text;
    return context;
}

/// A server with TLS, and a session with it.
struct Secure
{
    explicit Secure(const std::vector<Script>& scripts, const std::string& host = "localhost")
        : certificate(host), server(scripts, {"127.0.0.1", &certificate})
    {}

    /// A file in which the server's certificate is trusted.
    TLS_Settings trusting()
    {
        TLS_Settings settings;
        settings.ca_file = directory / "ca.pem";
        write_local(settings.ca_file, certificate.pem());
        return settings;
    }
    void connect(const TLS_Settings& settings, const std::string& host = "127.0.0.1",
                 unsigned seconds = 20)
    {
        session = HTTP_Session_Factory::create(host, server.port(), true, "", 3,
                                               context_of(settings), seconds, seconds);
        ASSERT_NE(session.get(), nullptr);
    }
    HTTP_Connection::Ptr get(const std::string& path)
    {
        return session->get(HTTP_Request(HTTP_Request::GET, path), response);
    }

    const Temp_Directory directory;
    const Test_Certificate certificate;
    Scripted_Server server;
    HTTP_Session::Ptr session;
    HTTP_Response response;
};

TEST(HTTP_TLS, ACertificateThatTheSystemDoesNotTrustIsRefused)
{
    Secure secure({answer_each({ok})});
    // No settings at all.
    secure.session = HTTP_Session_Factory::create("127.0.0.1", secure.server.port(), true, "");
    ASSERT_NE(secure.session.get(), nullptr);
    EXPECT_EQ(secure.get("/a").get(), nullptr);
    EXPECT_THAT(secure.session->error_text(),
                StartsWith("the server's certificate is not accepted: "));
    EXPECT_NE(secure.session->last_error(), 0);
    secure.server.finish();
    EXPECT_EQ(secure.server.requests().size(), 0U);
}

TEST(HTTP_TLS, ACertificateOfTheFileIsAccepted)
{
    for (const char* const host : {"127.0.0.1", "localhost"}) {
        Secure secure({answer_each({ok, ok})});
        secure.connect(secure.trusting(), host);
        for (int i = 0; i < 2; ++i) {
            HTTP_Connection::Ptr connection = secure.get("/a");
            ASSERT_NE(connection.get(), nullptr) << secure.session->error_text();
            EXPECT_TRUE(connection->skip_body(100));
        }
        secure.session = {};
        secure.server.finish();
        EXPECT_EQ(secure.server.connections(), 1U);
        EXPECT_EQ(secure.server.requests().size(), 2U);
    }
}

TEST(HTTP_TLS, ACertificateForAnotherHostIsRefused)
{
    for (const char* const host : {"127.0.0.1", "localhost"}) {
        Secure secure({answer_each({ok})}, "other.example");
        secure.connect(secure.trusting(), host);
        EXPECT_EQ(secure.get("/a").get(), nullptr);
        EXPECT_THAT(secure.session->error_text(),
                    StartsWith("the server's certificate is not accepted: "));
        EXPECT_THAT(secure.session->error_text(), HasSubstr("mismatch"));
        secure.server.finish();
        EXPECT_EQ(secure.server.requests().size(), 0U);
    }
}

TEST(HTTP_TLS, ThePinnedCertificateAloneDecides)
{
    // For another host, and trusted by nobody.
    Secure secure({answer_each({ok}), answer_each({ok})}, "other.example");
    TLS_Settings settings;
    settings.pinned_sha256 = secure.certificate.sha256();
    secure.connect(settings);
    EXPECT_NE(secure.get("/a").get(), nullptr) << secure.session->error_text();

    std::string with_colons;
    for (std::size_t at = 0; at < 64; at += 2)
        with_colons += (at == 0 ? "" : ":") + settings.pinned_sha256.substr(at, 2);
    settings.pinned_sha256 = with_colons;
    secure.connect(settings);
    EXPECT_NE(secure.get("/a").get(), nullptr) << secure.session->error_text();
    secure.session = {};
    secure.server.finish();
}

TEST(HTTP_TLS, ACertificateThatIsNotThePinnedOneIsRefusedThoughItIsTrusted)
{
    Secure secure({answer_each({ok})});
    TLS_Settings settings = secure.trusting();
    settings.pinned_sha256 = Test_Certificate().sha256();
    secure.connect(settings);
    EXPECT_EQ(secure.get("/a").get(), nullptr);
    EXPECT_EQ(secure.session->error_text(), "the server's certificate is not the pinned one");
    for (const auto& request : secure.server.requests())
        EXPECT_EQ(request.head, ""); // the server waited for one
}

TEST(HTTP_TLS, WithoutVerificationAnyCertificateIsTaken)
{
    Secure secure({answer_each({ok})}, "other.example");
    TLS_Settings settings;
    settings.verify = false;
    secure.connect(settings);
    EXPECT_NE(secure.get("/a").get(), nullptr) << secure.session->error_text();
    secure.session = {};
    secure.server.finish();
}

TEST(HTTP_TLS, SettingsThatCannotBeUsedAreRefusedWithAReason)
{
    const Temp_Directory directory;
    write_local(directory / "text", "no certificate\n");
    TLS_Settings missing;
    missing.ca_file = directory / "missing";
    TLS_Settings text;
    text.ca_file = directory / "text";
    TLS_Settings odd;
    odd.pinned_sha256 = "abc";
    TLS_Settings no_digits;
    no_digits.pinned_sha256 = std::string(64, 'g');
    TLS_Settings too_short;
    too_short.pinned_sha256 = std::string(62, 'a');
    for (const TLS_Settings& settings : {missing, text, odd, no_digits, too_short}) {
        Transport_Error error;
        EXPECT_EQ(TLS_Context::create(settings, error).get(), nullptr);
        EXPECT_NE(error.code, 0);
        EXPECT_THAT(error.text,
                    testing::AnyOf(StartsWith("The file of trusted certificates cannot be used"),
                                   StartsWith("The pinned certificate is no SHA-256")));
    }
}

TEST(HTTP_TLS, AServerWithoutItIsAFailure)
{
    Scripted_Server server({[](Connection& connection) {
        connection.send("HTTP/1.1 400 Bad Request\r\n\r\n");
        connection.close();
    }});
    const HTTP_Session::Ptr session =
        HTTP_Session_Factory::create("127.0.0.1", server.port(), true, "");
    EXPECT_EQ(session->connect().get(), nullptr);
    EXPECT_NE(session->last_error(), 0);
}

TEST(HTTP_TLS, AHandshakeIsWaitedForNoLongerThanTheLimit)
{
    Scripted_Server server({[](Connection& connection) { connection.stall(); }});
    const HTTP_Session::Ptr session =
        HTTP_Session_Factory::create("127.0.0.1", server.port(), true, "", 3, {}, 20, 20, 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(session->connect().get(), nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    EXPECT_EQ(session->last_error(), static_cast<int>(boost::asio::error::timed_out));
}

/// Reads what is left of a body. @return whether its end was reached
bool reads_to_the_end(const HTTP_Connection::Ptr& connection)
{
    return connection.get() != nullptr && connection->skip_body(1000000);
}

TEST(HTTP_TLS, OnlyTLSsFarewellEndsABodyThatEndsWithTheConnection)
{
    const auto answer = [](void (Connection::*end)()) {
        return [end](Connection& connection) {
            connection.request();
            connection.send("HTTP/1.1 200 OK\r\n\r\nbody");
            (connection.*end)();
        };
    };
    Secure secure({answer(&Connection::half_close), answer(&Connection::cut)});
    secure.connect(secure.trusting());
    EXPECT_TRUE(reads_to_the_end(secure.get("/whole")));
    const HTTP_Connection::Ptr cut = secure.get("/cut");
    EXPECT_FALSE(reads_to_the_end(cut));
    EXPECT_EQ(cut->last_error(), static_cast<int>(boost::asio::error::connection_reset));
}

TEST(HTTP_TLS, AnUploadIsSentAndAnAnswerDuringItEndsTheSending)
{
    std::promise<void> answered;
    Secure secure({answer_each({ok}), [&answered](Connection& connection) {
                       connection.head();
                       connection.part_of_body(8);
                       connection.send(http_answer("507 Full"));
                       answered.set_value();
                       connection.stall();
                       connection.reset();
                   }});
    secure.connect(secure.trusting());
    HTTP_Request request(HTTP_Request::POST, "/a");
    request.headers().put(HTTP_Headers::transfer_encoding, "chunked");
    const std::string data(100000, 'x');
    {
        const HTTP_Connection::Ptr upload = secure.session->start_post(request);
        ASSERT_NE(upload.get(), nullptr);
        EXPECT_EQ(upload->write(data.data(), data.size()), data.size());
        EXPECT_EQ(upload->write("end", 3), 3U);
        upload->write(nullptr, 0);
        ASSERT_TRUE(upload->read_response_header(secure.response));
        EXPECT_EQ(secure.response.status(), 200U);
        EXPECT_EQ(unchunked(secure.server.requests()[0].body), data + "end");
    }
    const HTTP_Connection::Ptr upload = secure.session->start_post(request);
    ASSERT_NE(upload.get(), nullptr);
    EXPECT_EQ(upload->write("hello", 5), 5U);
    answered.get_future().wait();
    int writes = 0;
    while (writes < 1000 && upload->write(data.data(), data.size()) == data.size())
        ++writes;
    EXPECT_LT(writes, 1000);
    EXPECT_EQ(upload->last_error(), 0);
    ASSERT_TRUE(upload->read_response_header(secure.response)) << upload->error_text();
    EXPECT_EQ(secure.response.status(), 507U);
    secure.server.release();
}

TEST(HTTP_TLS, WhatNobodyAskedForPreventsReuse)
{
    // In the record of the body's end, of which the body takes a part only.
    const std::string extra = "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nbad";
    Secure secure({[&](Connection& connection) {
                       connection.request();
                       connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n");
                       connection.send("body" + extra);
                   },
                   answer_each({ok})});
    secure.connect(secure.trusting());
    EXPECT_TRUE(reads_to_the_end(secure.get("/1")));
    EXPECT_TRUE(reads_to_the_end(secure.get("/2")));
    secure.session = {};
    secure.server.finish();
    ASSERT_EQ(secure.server.requests().size(), 2U);
    EXPECT_EQ(secure.server.requests()[1].connection, 1U);
}

/// Serves one connection with TLS, and sends a session ticket together with each answer, behind it.
class Ticket_Server
{
public:
    explicit Ticket_Server(const Test_Certificate& certificate)
        : acceptor_(io_, {asio::ip::address_v4::loopback(), 0}),
          port_(acceptor_.local_endpoint().port())
    {
        context_.use_certificate(asio::buffer(certificate.pem()), asio::ssl::context::pem);
        context_.use_private_key(asio::buffer(certificate.key_pem()), asio::ssl::context::pem);
        thread_ = std::thread([this] { serve(); });
    }
    ~Ticket_Server() { thread_.join(); }

    unsigned short port() const { return port_; }
    int requests() const { return requests_; }

private:
    void serve()
    {
        asio::ip::tcp::socket socket(io_);
        boost::system::error_code error;
        acceptor_.accept(socket, error);
        const std::unique_ptr<SSL, void (*)(SSL*)> session(SSL_new(context_.native_handle()),
                                                           SSL_free);
        SSL* const ssl = session.get();
        SSL_set_bio(ssl, BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
        SSL_set_accept_state(ssl);
        std::string input;
        std::array<char, 16384> block;
        while (!error) {
            const int n = SSL_read(ssl, block.data(), static_cast<int>(block.size()));
            input.append(block.data(), static_cast<std::size_t>(std::max(n, 0)));
            if (input.ends_with("\r\n\r\n")) {
                input.clear();
                ++requests_;
                SSL_write(ssl, ok.data(), static_cast<int>(ok.size()));
                SSL_new_session_ticket(ssl);
                SSL_do_handshake(ssl);
            }
            char* output = nullptr;
            const long size = BIO_get_mem_data(SSL_get_wbio(ssl), &output);
            asio::write(socket, asio::buffer(output, static_cast<std::size_t>(size)), error);
            static_cast<void>(BIO_reset(SSL_get_wbio(ssl)));
            if (n <= 0 && !error) {
                const std::size_t received = socket.read_some(asio::buffer(block), error);
                BIO_write(SSL_get_rbio(ssl), block.data(), static_cast<int>(received));
            }
        }
    }

    asio::io_context io_;
    asio::ssl::context context_{asio::ssl::context::tls_server};
    asio::ip::tcp::acceptor acceptor_;
    const unsigned short port_;
    std::atomic<int> requests_ = 0;
    std::thread thread_;
};

TEST(HTTP_TLS, SessionTicketsDoNotPreventReuse)
{
    const Temp_Directory directory;
    const Test_Certificate certificate;
    Ticket_Server server(certificate);
    TLS_Settings settings;
    settings.pinned_sha256 = certificate.sha256();
    HTTP_Session::Ptr session = HTTP_Session_Factory::create("127.0.0.1", server.port(), true, "",
                                                             3, context_of(settings), 20, 20);
    // The server takes one connection only.
    for (int i = 0; i < 3; ++i) {
        HTTP_Response response;
        const HTTP_Connection::Ptr connection =
            session->get(HTTP_Request(HTTP_Request::GET, "/a"), response);
        ASSERT_TRUE(reads_to_the_end(connection)) << session->error_text();
    }
    session = {};
    EXPECT_EQ(server.requests(), 3);
}

} // namespace
