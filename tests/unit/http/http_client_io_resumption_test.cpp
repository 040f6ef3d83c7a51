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

const Scripted_Server::Script takes_ten_bytes_and_resets = [](Connection& connection) {
    connection.head();
    connection.send("HTTP/1.1 100 Continue\r\n\r\n"); // by somebody in between: it names no file
    connection.part_of_body(10);
    connection.reset();
};

TEST_F(HTTP_Client_IO_Resumption, AReplacementThatMayHaveBegunGoesOnWhereItWasCut)
{
    // Without times, and with those of a file that was changed just now, what the server shows is
    // what it was sent.
    const std::string date = "Date: Sun, 06 Nov 1994 08:49:37 GMT\r\n";
    const std::string changed = "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n";
    for (const std::string& times : {std::string(), date, changed, date + changed}) {
        SCOPED_TRACE(times);
        connect(
            {takes_ten_bytes_and_resets, answer_each({file_of(5, times), ok, file_of(10, times)})});
        ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
        EXPECT_TRUE(io_.write("01234", 5));
        EXPECT_TRUE(io_.write("56789", 5)) << io_.error();
        EXPECT_TRUE(io_.close()) << io_.error();
        EXPECT_THAT(came(), testing::ElementsAre("PUT /base/a", "HEAD /base/a",
                                                 "PUT /base/a bytes 5--1/*", "HEAD /base/a"));
        EXPECT_EQ(unchunked(server_->requests()[2].body), "56789");
    }
}

TEST_F(HTTP_Client_IO_Resumption, AReplacementWhoseOldFileIsStillThereIsStartedOver)
{
    // Its last change was before the upload began; the server, which names files, has not named the
    // new one; or there is more, or nobody knows how much, than can have come.
    for (const std::string& old :
         {file_of(5, "Date: Sun, 06 Nov 1994 08:49:37 GMT\r\n"
                     "Last-Modified: Sun, 06 Nov 1994 08:29:37 GMT\r\n"),
          file_of(5, id), file_of(11), std::string("HTTP/1.1 200 OK\r\n\r\n")})
    {
        SCOPED_TRACE(old);
        connect({takes_ten_bytes_and_resets, answer_each({old, ok})});
        ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
        EXPECT_TRUE(io_.write("01234", 5));
        EXPECT_TRUE(io_.write("56789", 5)) << io_.error();
        EXPECT_TRUE(io_.close()) << io_.error();
        EXPECT_THAT(came(), testing::ElementsAre("PUT /base/a", "HEAD /base/a", "PUT /base/a"));
        EXPECT_EQ(unchunked(server_->requests()[2].body), digits);
    }
}

TEST_F(HTTP_Client_IO_Resumption, AQuestionDuringAReplacementChangesNothing)
{
    const std::string old = "Date: Sun, 06 Nov 1994 08:49:37 GMT\r\n"
                            "Last-Modified: Sun, 06 Nov 1994 08:29:37 GMT\r\n";
    connect({takes_ten_bytes_and_resets, answer_each({file_of(5, old), file_of(5, old), ok})});
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_EQ(io_.size("a"), 5U);
    EXPECT_TRUE(io_.write("01234", 5));
    EXPECT_TRUE(io_.write("56789", 5)) << io_.error();
    EXPECT_TRUE(io_.close()) << io_.error();
    io_.disconnect();
    EXPECT_EQ(server_->requests().back().field("Content-Range"), std::nullopt);
    EXPECT_EQ(unchunked(server_->requests().back().body), digits);
}

TEST_F(HTTP_Client_IO_Resumption, APartThatIsTakenForTheWholeIsNoSuccess)
{
    connect({takes_ten_bytes_and_resets, answer_each({file_of(5), ok, file_of(5)})});
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(io_.write("01234", 5));
    EXPECT_TRUE(io_.write("56789", 5)) << io_.error();
    EXPECT_FALSE(io_.close());
    ASSERT_FALSE(log_.messages().empty());
    EXPECT_THAT(log_.messages().back().text, HasSubstr("the server does not hold all of it"));
    EXPECT_THAT(came(), testing::ElementsAre("PUT /base/a", "HEAD /base/a",
                                             "PUT /base/a bytes 5--1/*", "HEAD /base/a"));
}

TEST_F(HTTP_Client_IO_Resumption, ALateRefusalToConfirmIsFollowedByAnUploadThatAsksForNothing)
{
    // The first server is silent for longer than it is waited for.
    connect({[](Connection& connection) {
                 connection.head();
                 connection.part_of_body(10);
                 connection.send(http_answer("417 What?"));
                 connection.half_close();
             },
             answer_each({missing, ok})});
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(io_.write(digits.data(), digits.size()));
    EXPECT_TRUE(io_.close()) << io_.error();
    io_.disconnect();
    EXPECT_EQ(server_->requests().front().field("Expect"), "100-continue");
    EXPECT_EQ(server_->requests().back().field("Expect"), std::nullopt);
    EXPECT_EQ(unchunked(server_->requests().back().body), digits);
}

TEST_F(HTTP_Client_IO_Resumption, AReplacementThatLeftNothingIsStartedOver)
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
             answer_each({missing, ok})});
    // The first one is repeated without a word, the second one by the retry layer.
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(io_.write(digits.data(), digits.size())) << io_.error();
    EXPECT_TRUE(io_.close()) << io_.error();
    EXPECT_THAT(came(),
                testing::ElementsAre("PUT /base/a", "PUT /base/a", "HEAD /base/a", "PUT /base/a"));
    EXPECT_EQ(unchunked(server_->requests()[3].body), digits);
}

TEST_F(HTTP_Client_IO_Resumption, AStartedOverReplacementThatIsConfirmedGoesOnLater)
{
    connect({[](Connection& connection) {
                 connection.head();
                 connection.send("HTTP/1.1 100 Continue\r\n\r\n");
                 connection.part_of_body(10);
                 connection.reset();
             },
             [](Connection& connection) {
                 connection.request();
                 connection.send(file_of(5, id));
                 connection.head();
                 connection.send("HTTP/1.1 100 Continue\r\nX-File-Id: 7-2\r\n\r\n");
                 connection.part_of_body(10);
                 connection.reset();
             },
             answer_each({file_of(5, "X-File-Id: 7-2\r\n"), ok})});
    ASSERT_TRUE(io_.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(io_.write("01234", 5));
    EXPECT_TRUE(io_.write("56789", 5)) << io_.error();
    EXPECT_TRUE(io_.close()) << io_.error();
    EXPECT_THAT(came(), testing::ElementsAre("PUT /base/a", "HEAD /base/a", "PUT /base/a",
                                             "HEAD /base/a", "PUT /base/a bytes 5--1/*"));
    EXPECT_EQ(unchunked(server_->requests()[4].body), "56789");
}

// What was left of a failed replacement is its caller's business once it was closed, or its size
// asked for.
TEST(HTTP_Client_IO_Append, BehindAFailedReplacementIsTheCallersOwn)
{
    for (const bool closes : {true, false}) {
        HTTP_Target target({takes_ten_bytes_and_resets,
                            closes ? answer_each({file_of(5, id), ok})
                                   : answer_each({file_of(5, id), file_of(5, id), ok})});
        ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
        EXPECT_TRUE(target.io.write("01234", 5));
        const std::string data(1U << 20U, 'x');
        for (int i = 0; i < 100 && target.io.write(data.data(), data.size());)
            ++i;
        EXPECT_FALSE(target.io.is_open());
        if (closes)
            EXPECT_TRUE(target.io.close());
        else
            EXPECT_EQ(target.io.size("a"), 5U);
        ASSERT_TRUE(target.io.open("a", Base::mode_append | Base::mode_overwrite, 0, 0));
        EXPECT_TRUE(target.io.write("56789", 5));
        EXPECT_TRUE(target.io.close()) << target.io.error();
        target.io.disconnect();
        EXPECT_EQ(target.server.requests().back().field("Content-Range"), "bytes 5--1/*");
    }
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
