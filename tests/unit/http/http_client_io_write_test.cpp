#include "platform/json/json_value.h"
#include "tests/unit/http/http_target.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Connection = Scripted_Server::Connection;
using Base = Client_IO_Base;

const std::string ok = http_answer("200 OK");
const std::string missing = "HTTP/1.1 404 Missing\r\nContent-Length: 0\r\n\r\n";
const std::string ten_bytes = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n";

const std::string head = "HEAD /base/a HTTP/1.1|Host: SERVER|Content-Length: 0";
const std::string chunked = "|Transfer-Encoding: chunked";
const std::string post = "POST /base/a HTTP/1.1|Host: SERVER";
const std::string put = "PUT /base/a HTTP/1.1|Host: SERVER";
const std::string expect = "|Expect: 100-continue";

std::string range(std::uint64_t first)
{
    return "|Content-Range: bytes " + std::to_string(first) + "--1/*";
}

bool write(Client_IO_Base& io, const std::string& data)
{
    return io.write(data.data(), data.size());
}

TEST(HTTP_Client_IO_Write, ANewFileIsPosted)
{
    HTTP_Target target({answer_each({missing, ok})});
    ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0)) << target.io.error();
    EXPECT_TRUE(target.io.is_open());
    EXPECT_EQ(target.io.size(), 0U);
    EXPECT_TRUE(write(target.io, "hello, "));
    EXPECT_TRUE(write(target.io, "")) << "of 0 bytes, which must not end the body";
    EXPECT_TRUE(target.io.flush());
    EXPECT_TRUE(write(target.io, "world"));
    EXPECT_EQ(target.io.size(), 12U);
    EXPECT_TRUE(target.io.close()) << target.io.error();
    EXPECT_FALSE(target.io.is_open());
    EXPECT_TRUE(target.io.close()) << "once more";
    EXPECT_THAT(target.sent(), ElementsAre(head, post + chunked + "||hello, world"));
    EXPECT_EQ(target.server.requests()[1].body, "7\r\nhello, \r\n5\r\nworld\r\n0\r\n\r\n");
    EXPECT_EQ(target.server.connections(), 1U);
}

TEST(HTTP_Client_IO_Write, AnExistingFileIsRefusedAndNothingMoreIsSent)
{
    HTTP_Target target({answer_each({ten_bytes})});
    EXPECT_FALSE(target.io.open("a", Base::mode_write, 0, 0));
    EXPECT_EQ(target.io.error(), "File already exists");
    EXPECT_EQ(target.io.errnum(), 17);
    EXPECT_FALSE(target.io.retriable());
    EXPECT_FALSE(target.io.is_open());
    EXPECT_THAT(target.sent(), ElementsAre(head));
}

TEST(HTTP_Client_IO_Write, AFileThatMayBeOverwrittenIsPutAtOnce)
{
    Client_IO_Base::Options overwriting;
    overwriting.overwrite = true;
    const std::pair<unsigned, Client_IO_Base::Options> cases[] = {
        {Base::mode_write | Base::mode_overwrite, {}}, {Base::mode_write, overwriting}};
    for (const auto& [mode, options] : cases) {
        HTTP_Target target({answer_each({ok})}, options);
        ASSERT_TRUE(target.io.open("a", mode, 0, 0)) << target.io.error();
        EXPECT_TRUE(write(target.io, "hello"));
        EXPECT_TRUE(target.io.close());
        EXPECT_THAT(target.sent(), ElementsAre(put + chunked + expect + "||hello"));
    }
}

TEST(HTTP_Client_IO_Write, AnEmptyFileIsABodyOfNoData)
{
    HTTP_Target target({answer_each({missing, ok, ok})});
    ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0));
    EXPECT_TRUE(target.io.close());
    ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(target.io.close());
    EXPECT_THAT(target.sent(),
                ElementsAre(head, post + chunked + "||", put + chunked + expect + "||"));
}

TEST(HTTP_Client_IO_Write, AppendGoesOnWhereTheFileEnds)
{
    HTTP_Target target({answer_each({ten_bytes, ok})});
    ASSERT_TRUE(target.io.open("a", Base::mode_append, 0, 0));
    EXPECT_EQ(target.io.size(), 10U);
    EXPECT_TRUE(write(target.io, "hello"));
    EXPECT_EQ(target.io.size(), 15U);
    EXPECT_TRUE(target.io.close());
    EXPECT_THAT(target.sent(), ElementsAre(head, post + range(10) + chunked + "||hello"));
}

TEST(HTTP_Client_IO_Write, AppendToAMissingFileBeginsOne)
{
    HTTP_Target target({answer_each({missing, ok})});
    ASSERT_TRUE(target.io.open("a", Base::mode_append, 0, 0));
    EXPECT_EQ(target.io.size(), 0U);
    EXPECT_TRUE(write(target.io, "hello"));
    EXPECT_TRUE(target.io.close());
    EXPECT_THAT(target.sent(), ElementsAre(head, post + chunked + "||hello"));
}

TEST(HTTP_Client_IO_Write, AppendWhereFilesMayBeOverwrittenIsPutAtTheEnd)
{
    HTTP_Target target({answer_each({ten_bytes, ok})});
    ASSERT_TRUE(target.io.open("a", Base::mode_append | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(write(target.io, "hello"));
    EXPECT_TRUE(target.io.close());
    EXPECT_THAT(target.sent(), ElementsAre(head, put + range(10) + chunked + "||hello"));
}

TEST(HTTP_Client_IO_Write, AppendIsNotTriedWhenTheSizeIsNotKnown)
{
    const std::pair<std::string, bool> cases[] = {
        {"500 Error", true}, {"403 Forbidden", false}, {"405 Directory", false}};
    for (const auto& [status, retriable] : cases) {
        HTTP_Target target({answer_each({"HTTP/1.1 " + status + "\r\nContent-Length: 0\r\n\r\n"})});
        EXPECT_FALSE(target.io.open("a", Base::mode_append, 0, 0));
        EXPECT_EQ(target.io.error(),
                  "Failed to HEAD " + target.url("a") + ", status=" + status.substr(0, 3));
        EXPECT_EQ(target.io.retriable(), retriable);
        EXPECT_FALSE(target.io.is_open());
        EXPECT_THAT(target.sent(), ElementsAre(head));
    }
}

TEST(HTTP_Client_IO_Write, AppendIsNotTriedWhenTheServerDoesNotTellTheSize)
{
    HTTP_Target target({answer_each({"HTTP/1.1 200 OK\r\n\r\n"})});
    EXPECT_FALSE(target.io.open("a", Base::mode_append, 0, 0));
    EXPECT_EQ(target.io.error(),
              "Failed to HEAD " + target.url("a") + ": the answer has no Content-Length");
    EXPECT_FALSE(target.io.is_open());
    EXPECT_THAT(target.sent(), ElementsAre(head));
}

TEST(HTTP_Client_IO_Write, AppendTakesNoOffset)
{
    HTTP_Target target({answer_each({ten_bytes})});
    EXPECT_FALSE(target.io.open("a", Base::mode_append, 3, 0));
    EXPECT_EQ(target.io.error(), "Invalid offset: not supported");
    EXPECT_FALSE(target.io.retriable());
    EXPECT_THAT(target.sent(), ElementsAre(head));
}

TEST(HTTP_Client_IO_Write, ARandomWriteIsPostedAtItsOffset)
{
    HTTP_Target target({answer_each({ten_bytes, ok, ten_bytes, ok, ten_bytes, ok})});
    for (const std::uint64_t offset : {0, 4, 20}) {
        ASSERT_TRUE(target.io.open("a", Base::mode_random_write, offset, 0));
        EXPECT_TRUE(write(target.io, "hello"));
        EXPECT_EQ(target.io.size(), std::max<std::uint64_t>(10, offset + 5));
        EXPECT_TRUE(target.io.close());
    }
    EXPECT_THAT(target.sent(), ElementsAre(head, post + range(0) + chunked + "||hello", head,
                                           post + range(4) + chunked + "||hello", head,
                                           post + range(20) + chunked + "||hello"));
}

TEST(HTTP_Client_IO_Write, AWriteFromAnOffsetIsARandomWrite)
{
    HTTP_Target target({answer_each({ten_bytes, ok, ten_bytes, ok})});
    for (const unsigned flag : {0U, unsigned{Base::mode_overwrite}}) {
        ASSERT_TRUE(target.io.open("a", Base::mode_write | flag, 4, 0));
        EXPECT_TRUE(write(target.io, "hello"));
        EXPECT_TRUE(target.io.close());
    }
    EXPECT_THAT(target.sent(), ElementsAre(head, post + range(4) + chunked + "||hello", head,
                                           post + range(4) + chunked + "||hello"));
}

TEST(HTTP_Client_IO_Write, SeekEndsTheBodyAndBeginsAnother)
{
    HTTP_Target target({answer_each({ok, ok, ok})});
    ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(write(target.io, "hello"));
    ASSERT_TRUE(target.io.seek(100, 0)) << target.io.error();
    EXPECT_TRUE(write(target.io, "far"));
    EXPECT_EQ(target.io.size(), 103U);
    ASSERT_TRUE(target.io.seek(1, 0));
    EXPECT_TRUE(write(target.io, "near"));
    EXPECT_EQ(target.io.size(), 103U);
    EXPECT_TRUE(target.io.close());
    EXPECT_THAT(target.sent(), ElementsAre(put + chunked + expect + "||hello",
                                           post + chunked + range(100) + "||far",
                                           post + chunked + range(1) + "||near"));
}

TEST(HTTP_Client_IO_Write, SeekFailsWhenWhatWasWrittenDidNotArrive)
{
    HTTP_Target target({answer_each({missing, http_answer("507 Full")})});
    ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0));
    EXPECT_TRUE(write(target.io, "hello"));
    EXPECT_FALSE(target.io.seek(100, 0));
    EXPECT_EQ(target.io.error(), "Failed to POST " + target.url("a") + ", status=507");
    EXPECT_EQ(target.io.errnum(), 28);
    EXPECT_FALSE(target.io.is_open());
    EXPECT_THAT(target.sent(), ElementsAre(head, post + chunked + "||hello"));
}

TEST(HTTP_Client_IO_Write, OpeningAnotherFileEndsTheOneBefore)
{
    HTTP_Target target({answer_each({missing, ok, ok, http_answer("507 Full")})});
    ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0));
    EXPECT_TRUE(write(target.io, "hello"));
    ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_FALSE(target.io.open("b", Base::mode_read, 0, 0)) << "the one before was not stored";
    EXPECT_EQ(target.io.error(), "Failed to POST " + target.url("a") + ", status=507");
    EXPECT_FALSE(target.io.is_open());
    EXPECT_THAT(target.sent(),
                ElementsAre(head, post + chunked + "||hello", put + chunked + expect + "||",
                            put + chunked + expect + "||"));
}

TEST(HTTP_Client_IO_Write, OnlyStatus200SaysThatAFileIsStored)
{
    struct Case
    {
        std::string status;
        int errnum;
        bool retriable;
    };
    const Case cases[] = {
        {"201 Made", 121, false},    {"202 Later", 121, false},  {"403 Forbidden", 121, false},
        {"404 Missing", 2, false},   {"409 Exists", 17, false},  {"424 Not empty", 41, false},
        {"507 Full", 28, false},     {"408 Timeout", 121, true}, {"425 Early", 121, true},
        {"429 Too many", 121, true}, {"500 Error", 121, true},   {"502 Gateway", 121, true},
        {"503 Busy", 121, true},     {"504 Timeout", 121, true}, {"501 What", 121, false},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.status);
        HTTP_Target target({answer_each({missing, http_answer(each.status, "text")})});
        ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0));
        EXPECT_TRUE(write(target.io, "hello"));
        EXPECT_FALSE(target.io.close());
        EXPECT_EQ(target.io.error(),
                  "Failed to POST " + target.url("a") + ", status=" + each.status.substr(0, 3));
        EXPECT_EQ(target.io.errnum(), each.errnum);
        EXPECT_EQ(target.io.retriable(), each.retriable);
        EXPECT_FALSE(target.io.is_open());
    }
}

TEST(HTTP_Client_IO_Write, AnOverwritingUploadFailsInTheSameWords)
{
    HTTP_Target target({answer_each({http_answer("500 Error")})});
    ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_TRUE(write(target.io, "hello"));
    EXPECT_FALSE(target.io.close());
    EXPECT_EQ(target.io.error(), "Failed to POST " + target.url("a") + ", status=500");
    EXPECT_TRUE(target.io.retriable());
}

TEST(HTTP_Client_IO_Write, ARefusalInPlaceOfContinueFailsTheWriteAndSendsNothing)
{
    const std::pair<std::string, bool> cases[] = {{"403 Forbidden", false}, {"503 Busy", true}};
    for (const auto& [status, retriable] : cases) {
        HTTP_Target target({[status = status](Connection& connection) {
                                connection.head();
                                connection.send(http_answer(status));
                            },
                            [](Connection&) {}});
        ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
        EXPECT_FALSE(write(target.io, "hello"));
        EXPECT_EQ(target.io.error(),
                  "Failed to POST " + target.url("a") + ", status=" + status.substr(0, 3));
        EXPECT_EQ(target.io.retriable(), retriable);
        EXPECT_FALSE(target.io.is_open());
        EXPECT_TRUE(target.io.is_connected());
        target.io.disconnect();
        target.server.finish();
        EXPECT_EQ(target.server.requests()[0].body, "");
    }
}

TEST(HTTP_Client_IO_Write, ARefusalDuringTheBodyIsWhatTheWriteSays)
{
    HTTP_Target target({[](Connection& connection) {
                            connection.head();
                            connection.send("HTTP/1.1 100 Continue\r\n\r\n");
                            connection.part_of_body(8);
                            connection.send(http_answer("507 Full"));
                            connection.half_close();
                        },
                        [](Connection&) {}});
    ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    const std::string data(65536, 'x');
    int writes = 0;
    while (writes < 1000 && write(target.io, data))
        ++writes;
    EXPECT_LT(writes, 1000);
    EXPECT_EQ(target.io.error(), "Failed to POST " + target.url("a") + ", status=507");
    EXPECT_EQ(target.io.errnum(), 28);
    EXPECT_FALSE(target.io.retriable());
}

TEST(HTTP_Client_IO_Write, AnAnswer200BeforeTheBodyWasSentIsNoSuccess)
{
    HTTP_Target target({[](Connection& connection) {
                            connection.head();
                            connection.send(ok);
                        },
                        [](Connection&) {}});
    ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_FALSE(write(target.io, "hello"));
    EXPECT_EQ(target.io.error(), "Failed to send body to " + target.url("a") +
                                     ": the server answered before it had all of it");
    EXPECT_TRUE(target.io.retriable());
    EXPECT_FALSE(target.io.is_open());
}

TEST(HTTP_Client_IO_Write, AnAnswer200BeforeTheEndIsNoSuccessOfTheClose)
{
    HTTP_Target target({[](Connection& connection) {
        connection.head();
        connection.send(ok);
    }});
    ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_FALSE(target.io.close());
    EXPECT_THAT(target.io.error(),
                testing::EndsWith(": the server answered before it had all of it"));
    EXPECT_TRUE(target.io.retriable());
}

TEST(HTTP_Client_IO_Write, AConnectionThatIsLostDuringTheBodyIsAFailure)
{
    HTTP_Target target({[](Connection& connection) {
                            connection.head();
                            connection.send("HTTP/1.1 100 Continue\r\n\r\n");
                            connection.part_of_body(8);
                            connection.reset();
                        },
                        [](Connection&) {}});
    ASSERT_TRUE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    const std::string data(65536, 'x');
    int writes = 0;
    while (writes < 1000 && write(target.io, data))
        ++writes;
    EXPECT_LT(writes, 1000);
    EXPECT_THAT(target.io.error(), StartsWith("Failed to send body to " + target.url("a") + ": "));
    EXPECT_TRUE(target.io.retriable());
    EXPECT_FALSE(target.io.is_open());
}

TEST(HTTP_Client_IO_Write, AConnectionThatIsLostBeforeTheAnswerIsAFailure)
{
    HTTP_Target target({[](Connection& connection) {
        connection.request();
        connection.send(missing);
        connection.request();
        connection.half_close();
    }});
    ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0));
    EXPECT_TRUE(write(target.io, "hello"));
    EXPECT_FALSE(target.io.close());
    EXPECT_THAT(target.io.error(),
                StartsWith("Failed to receive response from " + target.url("a") + ": "));
    EXPECT_TRUE(target.io.retriable());
    EXPECT_FALSE(target.io.is_open());
    EXPECT_THAT(target.sent(), ElementsAre(head, post + chunked + "||hello"));
}

TEST(HTTP_Client_IO_Write, AnUploadThatCannotBeBegunIsAFailure)
{
    // On the first connection, which was made in advance, and on the fresh one.
    const auto close_in_head = [](Connection& connection) {
        connection.head();
        connection.half_close();
    };
    HTTP_Target target({close_in_head, close_in_head, [](Connection&) {}});
    EXPECT_FALSE(target.io.open("a", Base::mode_write | Base::mode_overwrite, 0, 0));
    EXPECT_THAT(target.io.error(),
                StartsWith("Failed to send PUT request to " + target.url("a") + ": "));
    EXPECT_TRUE(target.io.retriable());
    EXPECT_FALSE(target.io.is_open());
    EXPECT_TRUE(target.io.is_connected());
    target.io.disconnect();
    target.server.finish();
    EXPECT_EQ(target.server.requests().size(), 2U);
}

TEST(HTTP_Client_IO_Write, AFileThatIsNotOpenTakesNothing)
{
    HTTP_Target target({[](Connection&) {}});
    EXPECT_FALSE(write(target.io, "hello"));
    EXPECT_EQ(target.io.error(), "Operation not permitted");
    EXPECT_FALSE(target.io.retriable());
    EXPECT_THAT(target.sent(), IsEmpty());
}

TEST(HTTP_Client_IO_Write, ReadsAreRefused)
{
    HTTP_Target target({answer_each({missing, ok})});
    ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0));
    std::string data(1, ' ');
    EXPECT_EQ(target.io.read(data.data(), 1), -1);
    EXPECT_EQ(target.io.error(), "Operation not permitted");
    EXPECT_TRUE(target.io.close());
}

TEST(HTTP_Client_IO_Write, TheTimeAndTheMaskGoWithTheUpload)
{
    const json_spirit::Object extra = {
        {"Last-Modified", "2024-01-01T00:00:00Z"}, {"X-Mode-Creation-Mask", 18}, {"Other", "x"}};
    const std::string time = "|Last-Modified: 2024-01-01T00:00:00Z";
    const std::string mask = "|X-Mode-Creation-Mask: 18";
    HTTP_Target target({answer_each({missing, ok, ten_bytes, ok, ten_bytes, ok, ok})});
    for (const unsigned mode :
         {unsigned{Base::mode_write}, unsigned{Base::mode_append},
          unsigned{Base::mode_random_write}, Base::mode_write | unsigned{Base::mode_overwrite}})
    {
        ASSERT_TRUE(target.io.open("a", mode, extra)) << target.io.error();
        EXPECT_TRUE(target.io.close());
    }
    EXPECT_THAT(target.sent(), ElementsAre(head, post + time + mask + chunked + "||", head,
                                           post + time + mask + range(10) + chunked + "||", head,
                                           post + time + range(0) + chunked + "||",
                                           put + time + mask + chunked + expect + "||"));
}

TEST(HTTP_Client_IO_Write, ExtrasOfTheWrongKindAreNotSent)
{
    const json_spirit::Value extras[] = {
        nullptr,
        "text",
        json_spirit::Object{{"Last-Modified", 5}, {"X-Mode-Creation-Mask", "18"}},
        json_spirit::Object{{"Last-Modified", "now\r\nX-Other: 1"}, {"X-Mode-Creation-Mask", 0}},
        json_spirit::Object{{"X-Mode-Creation-Mask", -1}},
        json_spirit::Object{{"X-Mode-Creation-Mask", 4294967296}},
    };
    for (const json_spirit::Value& extra : extras) {
        HTTP_Target target({answer_each({missing, ok})});
        ASSERT_TRUE(target.io.open("a", Base::mode_write, extra));
        EXPECT_TRUE(target.io.close());
        EXPECT_THAT(target.sent(), ElementsAre(head, post + chunked + "||"));
    }
}

TEST(HTTP_Client_IO_Write, ExtrasOfOneFileAreNotTheNextOnes)
{
    const json_spirit::Object extra = {{"Last-Modified", "now"}};
    HTTP_Target target({answer_each({missing, ok, missing, ok})});
    ASSERT_TRUE(target.io.open("a", Base::mode_write, extra));
    EXPECT_TRUE(target.io.close());
    ASSERT_TRUE(target.io.open("a", Base::mode_write, 0, 0));
    EXPECT_TRUE(target.io.close());
    EXPECT_THAT(target.sent(), ElementsAre(head, post + "|Last-Modified: now" + chunked + "||",
                                           head, post + chunked + "||"));
}

} // namespace
