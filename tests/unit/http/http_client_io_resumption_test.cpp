#include "client_io/client_io.h"
#include "tests/support/fake_clock.h"
#include "tests/support/log_capture.h"
#include "tests/unit/http/http_target.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using ::testing::HasSubstr;
using Connection = Scripted_Server::Connection;
using Base = Client_IO_Base;

const std::string id = "X-File-Id: 7-1\r\n";
const std::string go_on = "HTTP/1.1 100 Continue\r\n" + id + "\r\n";
const std::string ok = http_answer("200 OK");
const std::string missing = "HTTP/1.1 404 Missing\r\nContent-Length: 0\r\n\r\n";
const std::string digits = "0123456789";

std::string file_of(std::size_t size, const std::string& fields = {})
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n" + fields + "\r\n";
}

/// A facade with the retry layer, on a server with a script. Pauses take no time.
class HTTP_Client_IO_Resumption : public testing::Test
{
protected:
    void connect(const std::vector<Scripted_Server::Script>& scripts)
    {
        server_ = std::make_unique<Scripted_Server>(scripts);
        Base::Options options;
        options.max_retry = 60;
        ASSERT_TRUE(io_.connect(uri_of(*server_), options)) << io_.error();
    }
    /// The first lines of what came, and the offset of each part.
    std::vector<std::string> came()
    {
        io_.disconnect();
        std::vector<std::string> lines;
        for (const auto& request : server_->requests()) {
            const std::string line = request.first_line();
            lines.push_back(line.substr(0, line.find(" HTTP")));
            for (const char* const name : {"Range", "Content-Range"})
                if (const auto value = request.field(name))
                    lines.back() += ' ' + *value;
        }
        return lines;
    }

    const Log_Capture log_;
    const Fake_Clock clock_;
    std::unique_ptr<Scripted_Server> server_;
    Client_IO io_;
};

TEST_F(HTTP_Client_IO_Resumption, ADownloadGoesOnWhereItWasCut)
{
    const std::string tag = "ETag: \"1\"\r\n";
    connect(
        {[&](Connection& connection) {
             connection.request();
             connection.send(file_of(10, tag));
             connection.request();
             connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n" + tag + "\r\n01234");
             connection.half_close();
         },
         answer_each({file_of(10, tag),
                      http_answer("206 Part", "56789", tag + "Content-Range: bytes 5-9/10\r\n")})});
    ASSERT_TRUE(io_.open("a", Base::mode_read, 0, 0));
    std::string data(10, ' ');
    EXPECT_EQ(io_.read(data.data(), 5), 5);
    EXPECT_EQ(io_.read(data.data() + 5, 5), 5) << io_.error();
    EXPECT_EQ(data, digits);
    EXPECT_EQ(io_.read(data.data(), 5), 0);
    EXPECT_TRUE(io_.close());
    EXPECT_THAT(came(), testing::ElementsAre("HEAD /base/a", "GET /base/a", "HEAD /base/a",
                                             "GET /base/a bytes=5-"));
}

TEST_F(HTTP_Client_IO_Resumption, ADownloadOfAReplacedFileIsNotSpliced)
{
    const std::pair<std::string, std::string> versions[] = {
        {"ETag: \"old\"\r\n", "ETag: \"new\"\r\n"},
        {"Last-Modified: one\r\n", "Last-Modified: two\r\n"},
        {"ETag: \"old\"\r\nLast-Modified: one\r\n", "ETag: \"new\"\r\nLast-Modified: one\r\n"},
    };
    for (const auto& [before, after] : versions) {
        connect({[before = before](Connection& connection) {
                     connection.request();
                     connection.send(file_of(10, before));
                     connection.request();
                     connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n" + before +
                                     "\r\n01234");
                     connection.half_close();
                 },
                 answer_each({file_of(10, after),
                              http_answer("206 Part", "fghij",
                                          after + "Content-Range: bytes 5-9/10\r\n")})});
        ASSERT_TRUE(io_.open("a", Base::mode_read, 0, 0));
        std::string data(10, ' ');
        EXPECT_EQ(io_.read(data.data(), 5), 5);
        EXPECT_EQ(io_.read(data.data(), 5), -1);
        EXPECT_THAT(io_.error(), HasSubstr("the file was replaced"));
        io_.disconnect();
    }
}

TEST_F(HTTP_Client_IO_Resumption, AConfirmedUploadGoesOnWhereItWasCut)
{
    connect({[](Connection& connection) {
                 connection.head();
                 connection.send(go_on);
                 connection.part_of_body(10);
                 connection.reset();
             },
             answer_each({file_of(5, id), ok})});
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(io_.write("01234", 5));
    EXPECT_TRUE(io_.write("56789", 5)) << io_.error();
    EXPECT_TRUE(io_.close()) << io_.error();
    EXPECT_THAT(came(),
                testing::ElementsAre("PUT /base/a", "HEAD /base/a", "PUT /base/a bytes 5--1/*"));
    EXPECT_EQ(unchunked(server_->requests()[2].body), "56789");
}

TEST_F(HTTP_Client_IO_Resumption, AnUploadGoesOnInTheFileThatItBeganOnly)
{
    // Somebody else has replaced it meanwhile.
    connect({[](Connection& connection) {
                 connection.head();
                 connection.send(go_on);
                 connection.part_of_body(10);
                 connection.reset();
             },
             answer_each({file_of(5, "X-File-Id: 7-2\r\n")})});
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(io_.write("01234", 5));
    EXPECT_FALSE(io_.write("56789", 5) && io_.close());
    EXPECT_THAT(came(), testing::ElementsAre("PUT /base/a", "HEAD /base/a"));
}

TEST_F(HTTP_Client_IO_Resumption, AContinueThatNamesNoFileIsSomebodyElsesInBetween)
{
    connect({[](Connection& connection) {
                 connection.head();
                 connection.send("HTTP/1.1 100 Continue\r\n\r\n");
                 connection.part_of_body(10);
                 connection.reset();
             },
             answer_each({ok})});
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(io_.write("01234", 5));
    EXPECT_TRUE(io_.write("56789", 5)) << io_.error();
    EXPECT_TRUE(io_.close()) << io_.error();
    EXPECT_THAT(came(), testing::ElementsAre("PUT /base/a", "PUT /base/a"));
    EXPECT_EQ(unchunked(server_->requests()[1].body), "0123456789");
}

TEST_F(HTTP_Client_IO_Resumption, AnUnconfirmedReplacementIsStartedOver)
{
    // The server is silent about Expect, so its file may still be the old one when the connection
    // is lost; nobody asks how long that is.
    connect({[](Connection& connection) {
                 connection.head();
                 connection.part_of_body(10);
                 connection.reset();
             },
             answer_each({ok})});
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(io_.write("01234", 5));
    EXPECT_TRUE(io_.write("56789", 5)) << io_.error();
    EXPECT_TRUE(io_.close()) << io_.error();
    EXPECT_THAT(came(), testing::ElementsAre("PUT /base/a", "PUT /base/a"));
    EXPECT_EQ(unchunked(server_->requests()[1].body), digits);
}

TEST_F(HTTP_Client_IO_Resumption, AReplacementThatCouldNotBeBegunIsStartedOver)
{
    connect({[](Connection& connection) {
                 connection.head();
                 connection.half_close();
             },
             [](Connection& connection) {
                 connection.head();
                 connection.send(http_answer("503 Busy"));
                 connection.half_close();
             },
             answer_each({ok})});
    // The first one is repeated without a word, the second one by the retry layer.
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(io_.write(digits.data(), digits.size())) << io_.error();
    EXPECT_TRUE(io_.close()) << io_.error();
    EXPECT_THAT(came(), testing::ElementsAre("PUT /base/a", "PUT /base/a", "PUT /base/a"));
    EXPECT_EQ(unchunked(server_->requests()[2].body), digits);
}

TEST_F(HTTP_Client_IO_Resumption, AStartedOverReplacementThatIsConfirmedGoesOnLater)
{
    connect({[](Connection& connection) {
                 connection.head();
                 connection.part_of_body(10);
                 connection.reset();
             },
             [](Connection& connection) {
                 connection.head();
                 connection.send(go_on);
                 connection.part_of_body(10);
                 connection.reset();
             },
             answer_each({file_of(5, id), ok})});
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(io_.write("01234", 5));
    EXPECT_TRUE(io_.write("56789", 5)) << io_.error();
    EXPECT_TRUE(io_.close()) << io_.error();
    EXPECT_THAT(came(), testing::ElementsAre("PUT /base/a", "PUT /base/a", "HEAD /base/a",
                                             "PUT /base/a bytes 5--1/*"));
    EXPECT_EQ(unchunked(server_->requests()[3].body), "56789");
}

TEST_F(HTTP_Client_IO_Resumption, ANewFileGoesOnWhereItWasCut)
{
    connect({[](Connection& connection) {
                 connection.request();
                 connection.send(missing);
                 connection.head();
                 connection.part_of_body(10);
                 connection.reset();
             },
             answer_each({file_of(3), ok})});
    ASSERT_TRUE(io_.open("a", Base::mode_write, 0, 0));
    EXPECT_TRUE(io_.write("01234", 5));
    EXPECT_TRUE(io_.write("56789", 5)) << io_.error();
    EXPECT_TRUE(io_.close()) << io_.error();
    EXPECT_THAT(came(), testing::ElementsAre("HEAD /base/a", "POST /base/a", "HEAD /base/a",
                                             "POST /base/a bytes 3--1/*"));
    EXPECT_EQ(unchunked(server_->requests()[3].body), "3456789");
}

TEST_F(HTTP_Client_IO_Resumption, AnAnswerThatIsRetriableAtTheEndIsRetried)
{
    connect({answer_each({missing, http_answer("503 Busy"), file_of(4), ok})});
    ASSERT_TRUE(io_.open("a", Base::mode_write, 0, 0));
    EXPECT_TRUE(io_.write(digits.data(), digits.size()));
    EXPECT_TRUE(io_.close()) << io_.error();
    EXPECT_THAT(came(), testing::ElementsAre("HEAD /base/a", "POST /base/a", "HEAD /base/a",
                                             "POST /base/a bytes 4--1/*"));
    EXPECT_EQ(unchunked(server_->requests()[3].body), "456789");
}

TEST_F(HTTP_Client_IO_Resumption, AnAnswerThatIsNotRetriableIsNot)
{
    connect({answer_each({missing, http_answer("507 Full")})});
    ASSERT_TRUE(io_.open("a", Base::mode_write, 0, 0));
    EXPECT_TRUE(io_.write(digits.data(), digits.size()));
    EXPECT_FALSE(io_.close());
    EXPECT_EQ(io_.error(), "Failed to POST " + server_->uri("/base/a") + ", status=507");
    EXPECT_EQ(io_.errnum(), 28);
    EXPECT_EQ(came().size(), 2U);
}

} // namespace
