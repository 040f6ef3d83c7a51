#include "client_io/client_io.h"
#include "tests/support/fake_clock.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_directory.h"
#include "tests/support/test_certificate.h"
#include "tests/unit/http/http_target.h"

#include <boost/asio/error.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using Connection = Scripted_Server::Connection;
using Base = Client_IO_Base;

const std::string ok = http_answer("200 OK");
const std::string missing = "HTTP/1.1 404 Missing\r\nContent-Length: 0\r\n\r\n";

/// Carries out one operation of each kind. @return whether all succeeded
bool do_everything(Client_IO_Base& io)
{
    std::vector<Base::Directory_Entry> entries;
    return io.open("a", Base::mode_write, 0, 0) && io.write("hello", 5) && io.close() &&
           io.open("a", Base::mode_read, 0, 0) && read_all(io) == "hello" && io.close() &&
           io.get_dir("", entries) && io.make_dir("d", 0700) && io.truncate("a", 1) &&
           io.copy("a", "b", true) && io.rename("a", "b", true) && io.remove("a") &&
           io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0) && io.close();
}

const std::vector<std::string> answers_to_everything = {
    missing,
    ok,
    "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n",
    http_answer("200 OK", "hello"),
    http_answer("200 OK", "[]"),
    ok,
    ok,
    ok,
    ok,
    ok,
    ok};

Base::Options options_with(const std::map<std::string, std::string>& extra)
{
    Base::Options options;
    options.extra_options = extra;
    return options;
}

TEST(HTTP_Client_IO_Connect, MakesAConnectionAndSendsNothing)
{
    HTTP_Target target({[](Connection&) {}});
    EXPECT_TRUE(target.io.is_connected());
    EXPECT_FALSE(target.io.is_open());
    EXPECT_THAT(target.sent(), IsEmpty());
    EXPECT_EQ(target.server.connections(), 1U);
}

TEST(HTTP_Client_IO_Connect, ToNobodyIsAFailureThatNamesTheServer)
{
    URI uri;
    {
        const Scripted_Server server({});
        uri = uri_of(server);
    }
    HTTP_Client_IO io;
    EXPECT_FALSE(io.connect(uri, {}));
    EXPECT_FALSE(io.is_connected());
    EXPECT_TRUE(io.retriable());
    EXPECT_THAT(io.error(),
                StartsWith("Failed to connect to 127.0.0.1:" + std::to_string(uri.port()) + ": "));
    EXPECT_THAT(io.error(), Not(EndsWith(": ")));
}

TEST(HTTP_Client_IO_Connect, WithoutAPortGoesToThatOfTheProtocol)
{
    for (const auto& [scheme, port] : {std::pair{"http", "80"}, std::pair{"https", "443"}}) {
        URI uri;
        uri.scheme(scheme);
        uri.host("no..name", false);
        uri.path("/", false);
        HTTP_Client_IO io;
        EXPECT_FALSE(io.connect(uri, {}));
        EXPECT_THAT(io.error(),
                    StartsWith("Failed to connect to no..name:" + std::string(port) + ": "));
    }
}

TEST(HTTP_Client_IO_Connect, ComesBackAfterADisconnect)
{
    HTTP_Target target({answer_each({ok}), answer_each({ok, ok})});
    EXPECT_TRUE(target.io.remove("a"));
    target.io.disconnect();
    EXPECT_FALSE(target.io.is_connected());
    EXPECT_FALSE(target.io.remove("a"));
    EXPECT_EQ(target.io.error(), "Not connected");
    EXPECT_TRUE(target.io.reconnect());
    EXPECT_TRUE(target.io.is_connected());
    EXPECT_TRUE(target.io.remove("b"));
    // One that serves is used again.
    EXPECT_TRUE(target.io.reconnect());
    EXPECT_TRUE(target.io.remove("c"));
    EXPECT_EQ(target.sent().size(), 3U);
    EXPECT_EQ(target.server.connections(), 2U);
}

TEST(HTTP_Client_IO_Connect, ReconnectEndsAnOpenFileWithoutFinishingIt)
{
    HTTP_Target target({[](Connection& connection) {
                            connection.request();
                            connection.send(missing);
                            connection.head();
                            connection.part_of_body(10);
                        },
                        [](Connection&) {}});
    ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0));
    EXPECT_TRUE(target.io.write("hello", 5));
    EXPECT_TRUE(target.io.reconnect());
    EXPECT_FALSE(target.io.is_open());
    EXPECT_TRUE(target.io.is_connected());
    target.io.disconnect();
    target.server.finish(); // no last chunk came
    EXPECT_EQ(target.server.connections(), 2U);
}

TEST(HTTP_Client_IO_Connect, ToAnotherServerForgetsTheFirst)
{
    HTTP_Target target({answer_each({ok})});
    Scripted_Server other({answer_each({ok})});
    EXPECT_TRUE(target.io.remove("a"));
    EXPECT_TRUE(target.io.connect(uri_of(other), {}));
    EXPECT_TRUE(target.io.remove("b"));
    EXPECT_EQ(target.sent().size(), 1U);
    other.finish();
    EXPECT_THAT(sent_to(other),
                ElementsAre("DELETE /base/b HTTP/1.1|Host: SERVER|Content-Length: 0"));
}

TEST(HTTP_Client_IO_Connect, ExtraOptionsAreFieldsOfEveryRequest)
{
    HTTP_Target target({answer_each(answers_to_everything)},
                       options_with({{"Authorization", "Basic c2VjcmV0"}, {"X-Own", ""}}));
    ASSERT_TRUE(do_everything(target.io)) << target.io.error();
    const std::vector<std::string> sent = target.sent();
    EXPECT_EQ(sent.size(), answers_to_everything.size());
    EXPECT_THAT(sent, Each(HasSubstr("|Host: SERVER|Authorization: Basic c2VjcmV0|X-Own: ")));
}

TEST(HTTP_Client_IO_Connect, OptionsThatTellOfTheConnectionAreNotSent)
{
    HTTP_Target target({answer_each(answers_to_everything)},
                       options_with({{"TLS_CA_FILE", "/missing"},
                                     {"TLS_PINNED_SHA256", std::string(64, 'a')},
                                     {"TLS_VERIFY", "full"},
                                     {"HTTP_DIALECT", ""}}));
    ASSERT_TRUE(do_everything(target.io)) << target.io.error();
    EXPECT_THAT(target.sent(),
                Each(AllOf(Not(HasSubstr("TLS")), Not(HasSubstr("missing")), Not(HasSubstr("aaaa")),
                           Not(HasSubstr("full")), Not(HasSubstr("DIALECT")))));
}

TEST(HTTP_Client_IO_Connect, TheOptionForwardIsAFieldOfEveryRequestButListings)
{
    Base::Options options;
    options.forward = true;
    HTTP_Target target({answer_each(answers_to_everything)}, options);
    ASSERT_TRUE(do_everything(target.io)) << target.io.error();
    const auto is_listing = testing::StartsWith("GET /base/ ");
    const auto has_field = HasSubstr("|X-Forward: true");
    EXPECT_THAT(target.sent(),
                Each(AnyOf(AllOf(is_listing, Not(has_field)), AllOf(Not(is_listing), has_field))));
}

TEST(HTTP_Client_IO_Connect, OptionsThatCannotBeRightAreRefusedOnceAndForAll)
{
    const std::pair<std::map<std::string, std::string>, std::string> cases[] = {
        {{{"TLS_VERIFY", "maybe"}}, "TLS_VERIFY is neither none nor full"},
        {{{"HTTP_DIALECT", "klingon"}}, "Unknown HTTP_DIALECT: klingon"},
        {{{"X Own", "v"}}, "Extra option X Own cannot be a header field"},
        {{{"X-Own", "secret\r\nX-Other: v"}}, "Extra option X-Own cannot be a header field"},
    };
    for (const auto& [extra, reason] : cases) {
        Fake_Clock clock;
        int sleeps = 0;
        clock.on_sleep = [&](std::chrono::nanoseconds) { ++sleeps; };
        Scripted_Server server({});
        Client_IO io;
        EXPECT_FALSE(io.connect(server.uri("/base").c_str(), options_with(extra)));
        EXPECT_EQ(io.error(), reason);
        EXPECT_FALSE(io.is_connected());
        EXPECT_EQ(sleeps, 0);
        HTTP_Client_IO backend;
        EXPECT_FALSE(backend.connect(uri_of(server), options_with(extra)));
        EXPECT_EQ(backend.error(), reason);
        server.finish();
        EXPECT_EQ(server.connections(), 0U);
    }
}

TEST(HTTP_Client_IO_Connect, TLSThatCannotBeUsedIsRefusedOnceAndForAll)
{
    Fake_Clock clock;
    int sleeps = 0;
    clock.on_sleep = [&](std::chrono::nanoseconds) { ++sleeps; };
    Client_IO io;
    EXPECT_FALSE(
        io.connect("https://127.0.0.1:1/base", options_with({{"TLS_PINNED_SHA256", "x"}})));
    EXPECT_THAT(io.error(), StartsWith("The pinned certificate is no SHA-256"));
    EXPECT_FALSE(
        io.connect("https://127.0.0.1:1/base", options_with({{"TLS_CA_FILE", "/no such file"}})));
    EXPECT_THAT(io.error(), StartsWith("The file of trusted certificates cannot be used"));
    EXPECT_EQ(sleeps, 0);
}

class HTTP_Schemes : public testing::TestWithParam<std::tuple<const char*, unsigned>>
{};

TEST_P(HTTP_Schemes, ReachTheServer)
{
    const auto& [scheme, protocol] = GetParam();
    const bool secure = std::string(scheme).back() == 's' && std::string(scheme) != "sdfs" &&
                        std::string(scheme) != "btrfs";
    const Test_Certificate certificate;
    Scripted_Server server({answer_each(answers_to_everything)},
                           {"127.0.0.1", secure ? &certificate : nullptr});
    Client_IO io;
    ASSERT_TRUE(io.connect(uri_of(server, scheme),
                           options_with({{"TLS_PINNED_SHA256", certificate.sha256()}})))
        << io.error();
    EXPECT_EQ(io.protocol(), protocol);
    EXPECT_TRUE(do_everything(io)) << io.error();
    io.disconnect();
    server.finish();
    const std::vector<std::string> sent = sent_to(server);
    EXPECT_EQ(sent.size(), answers_to_everything.size());
    // Whatever the scheme, the server has one URL.
    EXPECT_THAT(sent, testing::Contains(
                          HasSubstr("|Destination: " + std::string(secure ? "https" : "http") +
                                    "://SERVER/base/b|")));
}

INSTANTIATE_TEST_SUITE_P(All, HTTP_Schemes,
                         testing::Values(std::tuple{"http", 0U}, std::tuple{"https", 0U},
                                         std::tuple{"realtime", 0U}, std::tuple{"realtimes", 0U},
                                         std::tuple{"sdfs", 0U}, std::tuple{"sdfss", 0U},
                                         std::tuple{"btrfs", 19U}, std::tuple{"btrfss", 19U}),
                         [](const auto& each) { return std::string(std::get<0>(each.param)); });

TEST(HTTP_Client_IO_Connect, TheCertificateIsVerifiedUnlessTheOptionsSayOtherwise)
{
    const Temp_Directory directory;
    const Test_Certificate certificate;
    write_local(directory / "ca.pem", certificate.pem());
    const auto connects = [&](const std::map<std::string, std::string>& extra, std::string* error) {
        Scripted_Server server({[](Connection&) {}}, {"127.0.0.1", &certificate});
        HTTP_Client_IO io;
        const bool done = io.connect(uri_of(server, "https"), options_with(extra));
        if (error != nullptr)
            *error = io.error();
        return done;
    };
    std::string error;
    EXPECT_FALSE(connects({}, &error));
    EXPECT_THAT(error, AllOf(StartsWith("Failed to connect to 127.0.0.1:"),
                             HasSubstr(": the server's certificate is not accepted: ")));
    EXPECT_FALSE(connects({{"TLS_VERIFY", "full"}}, nullptr));
    EXPECT_TRUE(connects({{"TLS_VERIFY", "none"}}, nullptr));
    EXPECT_TRUE(connects({{"TLS_CA_FILE", directory / "ca.pem"}}, nullptr));
    EXPECT_TRUE(connects({{"TLS_PINNED_SHA256", certificate.sha256()}}, nullptr));
    EXPECT_FALSE(connects({{"TLS_PINNED_SHA256", Test_Certificate().sha256()}}, &error));
    EXPECT_THAT(error, HasSubstr(": the server's certificate is not the pinned one"));
}

TEST(HTTP_Client_IO_Connect, SecretsAreInNoMessage)
{
    const Fake_Clock clock;
    const Log_Capture log;
    Base::Options options = options_with({{"Authorization", "Basic c2VjcmV0"}});
    options.max_retry = 20;
    const std::string refused = http_answer("401 Who", "c2VjcmV0");
    std::vector<std::string> texts;
    {
        // The listing is asked for three times.
        Scripted_Server server(
            {answer_each({refused, refused, refused, refused, refused, refused})});
        Client_IO io;
        ASSERT_TRUE(io.connect(uri_of(server), options)) << io.error();
        std::vector<Base::Directory_Entry> entries;
        EXPECT_FALSE(io.remove("a"));
        texts.push_back(io.error());
        EXPECT_FALSE(io.get_dir("a", entries));
        texts.push_back(io.error());
        EXPECT_FALSE(io.open("a", Base::mode_append, 0, 0));
        texts.push_back(io.error());
        EXPECT_FALSE(io.rename("a", "b", true));
        texts.push_back(io.error());
    }
    for (const auto& message : log.messages())
        texts.push_back(message.text);
    EXPECT_THAT(texts, Each(Not(HasSubstr("c2VjcmV0"))));
    EXPECT_THAT(texts, testing::Contains(HasSubstr("status=401")));
}

TEST(HTTP_Client_IO_Connect, TheTimeLimitIsTheOptionsOwn)
{
    Base::Options options;
    options.socket_timeout = 1;
    HTTP_Target target({[](Connection& connection) {
                           connection.request();
                           connection.stall();
                       }},
                       options);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(target.io.remove("a"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    EXPECT_TRUE(target.io.retriable());
    target.server.release();
}

TEST(HTTP_Client_IO_WebDAV, StatusesOfSuccessAreMore)
{
    const std::string made = "HTTP/1.1 201 Made\r\nContent-Length: 0\r\n\r\n";
    const std::string none = "HTTP/1.1 204 None\r\n\r\n";
    HTTP_Target target({answer_each({missing, made, none, none, made, none})},
                       options_with({{"HTTP_DIALECT", "webdav"}}));
    ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0));
    EXPECT_TRUE(target.io.write("hello", 5));
    EXPECT_TRUE(target.io.close()) << target.io.error();
    ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(target.io.close()) << target.io.error();
    EXPECT_TRUE(target.io.remove("a"));
    EXPECT_TRUE(target.io.make_dir("d", 0700));
    EXPECT_TRUE(target.io.rename("a", "b", true));
    EXPECT_THAT(target.sent(),
                ElementsAre("HEAD /base/a HTTP/1.1|Host: SERVER|Content-Length: 0",
                            "PUT /base/a HTTP/1.1|Host: SERVER|If-None-Match: *|"
                            "Transfer-Encoding: chunked|Expect: 100-continue||hello",
                            "PUT /base/a HTTP/1.1|Host: SERVER|Transfer-Encoding: chunked|"
                            "Expect: 100-continue||",
                            "DELETE /base/a HTTP/1.1|Host: SERVER|Content-Length: 0|Depth: 0",
                            "MKCOL /base/d/ HTTP/1.1|Host: SERVER|Content-Length: 0",
                            "MOVE /base/a HTTP/1.1|Host: SERVER|Content-Length: 0|"
                            "Destination: http://SERVER/base/b|Overwrite: T"));
}

TEST(HTTP_Client_IO_WebDAV, WhatServersHaveNoMeansForIsRefusedBeforeItCanDoHarm)
{
    HTTP_Target target({answer_each({"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n",
                                     "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n"})},
                       options_with({{"HTTP_DIALECT", "webdav"}}));
    std::vector<Base::Directory_Entry> entries;
    const auto is_refused = [&](bool done) {
        return !done && target.io.error() == "Not supported by the dialect webdav" &&
               !target.io.retriable();
    };
    EXPECT_TRUE(is_refused(target.io.open("a", Base::mode_append, 0, 0)));
    EXPECT_TRUE(is_refused(target.io.open("a", Base::mode_random_write, 0, 0)));
    EXPECT_TRUE(is_refused(target.io.truncate("a", 0)));
    EXPECT_TRUE(is_refused(target.io.get_dir("a", entries)));
    EXPECT_FALSE(target.io.is_open());
    const std::string head = "HEAD /base/a HTTP/1.1|Host: SERVER|Content-Length: 0";
    EXPECT_THAT(target.sent(), ElementsAre(head, head));
}

TEST(HTTP_Client_IO_WebDAV, DirectoriesAreMadeOneAfterTheOther)
{
    const auto status = [](const char* text) {
        return "HTTP/1.1 " + std::string(text) + "\r\nContent-Length: 0\r\n\r\n";
    };
    HTTP_Target target(
        {answer_each({status("409 No parent"), status("201 Made"), status("201 Made"),
                      status("405 Exists"), status("301 Slash")})},
        options_with({{"HTTP_DIALECT", "webdav"}}));
    EXPECT_TRUE(target.io.make_dir("d/e", 0700)) << target.io.error();
    EXPECT_TRUE(target.io.make_dir("d", 0700)) << target.io.error();
    const std::string fields = " HTTP/1.1|Host: SERVER|Content-Length: 0";
    EXPECT_THAT(target.sent(), ElementsAre("MKCOL /base/d/e/" + fields, "MKCOL /base/d/" + fields,
                                           "MKCOL /base/d/e/" + fields, "MKCOL /base/d/" + fields,
                                           "HEAD /base/d" + fields));
}

TEST(HTTP_Client_IO_WebDAV, AFileThatExistsIsToldByThePrecondition)
{
    HTTP_Target target({answer_each({missing, http_answer("412 Exists")})},
                       options_with({{"HTTP_DIALECT", "webdav"}}));
    ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0));
    EXPECT_FALSE(target.io.close());
    EXPECT_EQ(target.io.errnum(), 17);
    EXPECT_FALSE(target.io.retriable());
}

TEST(HTTP_Client_IO_WebDAV, AFileIsNotPutInItsOwnPlace)
{
    HTTP_Target target({answer_each({"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n"})},
                       options_with({{"HTTP_DIALECT", "webdav"}}));
    EXPECT_TRUE(target.io.rename("a", "a", true));
    EXPECT_THAT(target.sent(), ElementsAre("HEAD /base/a HTTP/1.1|Host: SERVER|Content-Length: 0"));
}

} // namespace
