#include "platform/runtime/os_error.h"
#include "tests/unit/http/http_target.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Connection = Scripted_Server::Connection;
using Entries = std::vector<Client_IO_Base::Directory_Entry>;

const std::string ok = http_answer("200 OK");

/// A head without a body; that of an answer to a HEAD announces one.
std::string status_line(const std::string& status)
{
    return "HTTP/1.1 " + status + "\r\nContent-Length: 0\r\n\r\n";
}

TEST(HTTP_Client_IO_Files, SizeIsWhatAHEADAnnounces)
{
    HTTP_Target target({answer_each(
        {"HTTP/1.1 200 OK\r\nContent-Length: 5000000000\r\n\r\n", status_line("200 OK")})});
    EXPECT_EQ(target.io.size("a"), 5000000000U);
    EXPECT_EQ(target.io.size("b"), 0U);
    EXPECT_THAT(target.sent(), ElementsAre("HEAD /base/a HTTP/1.1|Host: SERVER|Content-Length: 0",
                                           "HEAD /base/b HTTP/1.1|Host: SERVER|Content-Length: 0"));
}

TEST(HTTP_Client_IO_Files, SizeOfADirectoryIsMinus21)
{
    HTTP_Target target({answer_each({status_line("405 No file")})});
    EXPECT_EQ(static_cast<std::int64_t>(target.io.size("a")), -21);
    EXPECT_FALSE(target.io.retriable());
}

TEST(HTTP_Client_IO_Files, SizeThatIsNotKnownIsMinus1)
{
    const std::tuple<std::string, int, bool> cases[] = {
        {"404 Missing", 2, false}, {"403 Forbidden", 121, false}, {"503 Busy", 121, true}};
    for (const auto& [status, errnum, retriable] : cases) {
        // The length is that of the text of the failure.
        HTTP_Target target(
            {answer_each({"HTTP/1.1 " + status + "\r\nContent-Length: 50\r\n\r\n"})});
        EXPECT_EQ(static_cast<std::int64_t>(target.io.size("a")), -1);
        EXPECT_EQ(target.io.error(),
                  "Failed to HEAD " + target.url("a") + ", status=" + status.substr(0, 3));
        EXPECT_EQ(target.io.errnum(), errnum);
        EXPECT_EQ(target.io.retriable(), retriable);
        EXPECT_EQ(target.io.size(), 0U);
    }
}

TEST(HTTP_Client_IO_Files, SizeOfNothingAfterALostConnection)
{
    HTTP_Target target({[](Connection& connection) {
        connection.request();
        connection.send("HTTP/1.1 405");
        connection.half_close();
    }});
    EXPECT_EQ(static_cast<std::int64_t>(target.io.size("a")), -1);
    EXPECT_THAT(target.io.error(), StartsWith("Failed to HEAD " + target.url("a") + ": "));
    EXPECT_TRUE(target.io.retriable());
}

TEST(HTTP_Client_IO_Files, ADirectoryIsMade)
{
    HTTP_Target target({answer_each({ok, status_line("409 Exists"), status_line("201 Made")})});
    EXPECT_TRUE(target.io.make_dir("d/e", 0700));
    EXPECT_FALSE(target.io.make_dir("f", 0700));
    EXPECT_EQ(target.io.error(), "Failed to MKCOL " + target.url("f") + ", status=409");
    EXPECT_EQ(target.io.errnum(), 17);
    EXPECT_FALSE(target.io.make_dir("g", 0700));
    EXPECT_THAT(target.sent(),
                ElementsAre("MKCOL /base/d/e HTTP/1.1|Host: SERVER|Content-Length: 0",
                            "MKCOL /base/f HTTP/1.1|Host: SERVER|Content-Length: 0",
                            "MKCOL /base/g HTTP/1.1|Host: SERVER|Content-Length: 0"));
}

TEST(HTTP_Client_IO_Files, WhatIsMissingCountsAsRemoved)
{
    HTTP_Target target({answer_each({ok, status_line("404 Missing"), status_line("424 Not empty"),
                                     status_line("403 Root"), status_line("500 Error")})});
    EXPECT_TRUE(target.io.remove("a"));
    EXPECT_TRUE(target.io.remove("b"));
    EXPECT_FALSE(target.io.retriable());
    EXPECT_FALSE(target.io.remove("d"));
    EXPECT_EQ(target.io.error(), "Failed to DELETE " + target.url("d") + ", status=424");
    EXPECT_EQ(target.io.errnum(), 41);
    EXPECT_FALSE(target.io.retriable());
    EXPECT_FALSE(target.io.remove("e"));
    EXPECT_EQ(target.io.errnum(), 121);
    EXPECT_FALSE(target.io.remove("f"));
    EXPECT_TRUE(target.io.retriable());
    EXPECT_EQ(target.sent()[0], "DELETE /base/a HTTP/1.1|Host: SERVER|Content-Length: 0");
}

TEST(HTTP_Client_IO_Files, TheDestinationOfACopyOrMoveIsAURL)
{
    const std::string fields = "|Host: SERVER|Content-Length: 0|Destination: "
                               "http://SERVER/base/d%20e|Overwrite: ";
    HTTP_Target target({answer_each({ok, ok, ok, ok})});
    EXPECT_TRUE(target.io.copy("a b", "d e", true));
    EXPECT_TRUE(target.io.copy("a b", "d e", false));
    EXPECT_TRUE(target.io.rename("a b", "d e", true));
    EXPECT_TRUE(target.io.rename("a b", "d e", false));
    EXPECT_THAT(target.sent(), ElementsAre("COPY /base/a%20b HTTP/1.1" + fields + "T",
                                           "COPY /base/a%20b HTTP/1.1" + fields + "F",
                                           "MOVE /base/a%20b HTTP/1.1" + fields + "T",
                                           "MOVE /base/a%20b HTTP/1.1" + fields + "F"));
}

TEST(HTTP_Client_IO_Files, ACopyOrMoveThatFailsIsToldByItsStatus)
{
    HTTP_Target target(
        {answer_each({status_line("409 Exists"), status_line("404 Missing"),
                      status_line("507 Full"), status_line("503 Busy"), status_line("201 Made")})});
    EXPECT_FALSE(target.io.copy("a", "b", false));
    EXPECT_EQ(target.io.error(), "Failed to COPY " + target.url("a") + ", status=409");
    EXPECT_EQ(target.io.errnum(), 17);
    EXPECT_FALSE(target.io.rename("a", "b", true));
    EXPECT_EQ(target.io.error(), "Failed to MOVE " + target.url("a") + ", status=404");
    EXPECT_EQ(target.io.errnum(), 2);
    EXPECT_FALSE(target.io.copy("a", "b", true));
    EXPECT_EQ(target.io.errnum(), 28);
    EXPECT_FALSE(target.io.rename("a", "b", true));
    EXPECT_EQ(target.io.errnum(), 121);
    EXPECT_TRUE(target.io.retriable());
    EXPECT_FALSE(target.io.copy("a", "b", true));
    EXPECT_EQ(target.io.error(), "Failed to COPY " + target.url("a") + ", status=201");
    EXPECT_FALSE(target.io.retriable());
}

TEST(HTTP_Client_IO_Files, TruncateIsAnEmptyPutAtTheNewEnd)
{
    HTTP_Target target({answer_each({ok, status_line("404 Missing"), status_line("500 Error")})});
    EXPECT_TRUE(target.io.truncate("a", 5)) << target.io.error();
    EXPECT_FALSE(target.io.truncate("b", 0));
    EXPECT_EQ(target.io.error(), "Failed to PUT " + target.url("b") + ", status=404");
    EXPECT_EQ(target.io.errnum(), 2);
    EXPECT_FALSE(target.io.truncate("c", 0));
    EXPECT_TRUE(target.io.retriable());
    const std::string fields = " HTTP/1.1|Host: SERVER|Transfer-Encoding: chunked|Content-Range: ";
    EXPECT_THAT(target.sent(), ElementsAre("PUT /base/a" + fields + "bytes 5--1/*||",
                                           "PUT /base/b" + fields + "bytes 0--1/*||",
                                           "PUT /base/c" + fields + "bytes 0--1/*||"));
}

TEST(HTTP_Client_IO_Files, TruncateOverALostConnectionIsAFailure)
{
    HTTP_Target target({[](Connection& connection) {
        connection.request();
        connection.half_close();
    }});
    EXPECT_FALSE(target.io.truncate("a", 5));
    EXPECT_THAT(target.io.error(),
                StartsWith("Failed to receive response from " + target.url("a") + ": "));
    EXPECT_TRUE(target.io.retriable());
}

TEST(HTTP_Client_IO_Files, AListingIsReadElementByElement)
{
    HTTP_Target target({answer_each({http_answer("200 OK", R"([
        {"dir":"sub","mtime":"2024-01-01T00:00:00Z","size":0},
        {"file":"a \u00e4","size":5000000000,"mtime":"2024-01-01T00:00:01Z","more":{"x":[1]}},
        {"file":"b"}, {"name":"no kind"}, 1, "text", null, [], {},
        {"file":"c","size":"5","mtime":"yesterday"}])")})});
    Entries entries(1);
    EXPECT_TRUE(target.io.get_dir("d", entries)) << target.io.error();
    ASSERT_EQ(entries.size(), 5U) << "with the one that was there before";
    EXPECT_EQ(entries[1].name, "sub");
    EXPECT_TRUE(entries[1].is_dir);
    EXPECT_EQ(entries[1].mtime, 1704067200);
    EXPECT_EQ(entries[1].size, 0U);
    EXPECT_EQ(entries[2].name, "a \xC3\xA4");
    EXPECT_FALSE(entries[2].is_dir);
    EXPECT_EQ(entries[2].mtime, 1704067201);
    EXPECT_EQ(entries[2].size, 5000000000U);
    EXPECT_EQ(entries[3].name, "b");
    EXPECT_EQ(entries[3].mtime, 0);
    EXPECT_EQ(entries[3].size, 0U);
    EXPECT_EQ(entries[4].name, "c");
    EXPECT_EQ(entries[4].size, 0U);
    EXPECT_TRUE(target.io.is_connected());
    EXPECT_THAT(target.sent(), ElementsAre("GET /base/d HTTP/1.1|Host: SERVER"));
}

TEST(HTTP_Client_IO_Files, NamesThatAreNoneAreNotListed)
{
    // A walk would come back to the same directory, or leave it.
    HTTP_Target target({answer_each({http_answer("200 OK", R"([{"dir":""},{"dir":"."},{"dir":".."},
        {"file":"a/b"},{"dir":"/"},{"dir":5},{"file":null},{"file":"a\u0000b"},
        {"file":"..."}])")})});
    Entries entries;
    EXPECT_TRUE(target.io.get_dir("d", entries));
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, "...");
}

TEST(HTTP_Client_IO_Files, TheRootIsListedByTheURIsPath)
{
    HTTP_Target target({answer_each({http_answer("200 OK", "[]"), http_answer("200 OK", "[]")})});
    Entries entries;
    EXPECT_TRUE(target.io.get_dir("", entries));
    EXPECT_TRUE(target.io.get_dir(nullptr, entries));
    EXPECT_THAT(entries, IsEmpty());
    EXPECT_THAT(target.sent(), ElementsAre("GET /base/ HTTP/1.1|Host: SERVER",
                                           "GET /base/ HTTP/1.1|Host: SERVER"));
}

TEST(HTTP_Client_IO_Files, WhatIsNoArrayIsNoDirectory)
{
    HTTP_Target target(
        {answer_each({http_answer("200 OK", R"({"file":"a"})")}), [](Connection&) {}});
    Entries entries;
    EXPECT_FALSE(target.io.get_dir("a", entries));
    EXPECT_EQ(target.io.error(), target.url("a") + " is not directory");
    EXPECT_FALSE(target.io.retriable());
    EXPECT_THAT(entries, IsEmpty());
    EXPECT_TRUE(target.io.is_connected());
}

TEST(HTTP_Client_IO_Files, AFileOfBytesIsNoDirectoryWhateverItHolds)
{
    HTTP_Target target({answer_each({http_answer("200 OK", R"([{"file":"a"}])",
                                                 "Content-Type: application/octet-stream\r\n")})});
    Entries entries;
    EXPECT_FALSE(target.io.get_dir("a", entries));
    EXPECT_EQ(target.io.error(), target.url("a") + " is not directory");
    EXPECT_EQ(target.io.errnum(), os_error::not_a_directory);
    EXPECT_FALSE(target.io.retriable());
    EXPECT_THAT(entries, IsEmpty());
}

TEST(HTTP_Client_IO_Files, RequestsBesideAnOpenFileGoBesideItsConnection)
{
    const std::string found = "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\n";
    HTTP_Target target({answer_each({status_line("404 Missing"), ok}),
                        answer_each({found, http_answer("200 OK", "[]"), ok, ok})});
    ASSERT_TRUE(target.io.open("a", Client_IO_Base::mode_write, 0, 0));
    EXPECT_TRUE(target.io.write("hello", 5));
    Entries entries;
    EXPECT_EQ(target.io.size("b"), 7U);
    EXPECT_TRUE(target.io.get_dir("", entries));
    EXPECT_TRUE(target.io.truncate("b", 1));
    EXPECT_TRUE(target.io.remove("b"));
    EXPECT_EQ(target.io.size(), 5U);
    EXPECT_TRUE(target.io.write(", world", 7));
    EXPECT_TRUE(target.io.close()) << target.io.error();
    EXPECT_THAT(target.sent(),
                testing::Contains("POST /base/a HTTP/1.1|Host: SERVER|Transfer-Encoding: chunked||"
                                  "hello, world"));
    EXPECT_EQ(target.server.connections(), 2U);
}

TEST(HTTP_Client_IO_Files, AListingThatFailsLeavesTheEntriesAsTheyWere)
{
    struct Case
    {
        std::string answer;
        int errnum;
        bool retriable;
    };
    const std::string type = "Content-Type: application/json\r\n";
    const Case cases[] = {
        // With a type, what is there is an answer; without one it may be that of somebody between.
        {http_answer("404 Missing", "{}", type), 2, false},
        {http_answer("404 Missing", "{}"), 2, true},
        {http_answer("503 Busy", "{}", type), 121, false},
        {http_answer("503 Busy", "{}"), 121, true},
        {http_answer("200 OK", R"([{"file":"a"},x])", type), 121, false},
        {http_answer("200 OK", R"([{"file":"a"})", type), 121, false},
        {http_answer("200 OK", "hello"), 121, true},
        {"HTTP/1.1 200 OK\r\n" + type + "Content-Length: 100\r\n\r\n[{\"file\":\"a\"},", 121, true},
        {"H", 121, true},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.answer);
        HTTP_Target target({[&](Connection& connection) {
                                connection.request();
                                connection.send(each.answer);
                                connection.half_close();
                            },
                            [](Connection&) {}});
        Entries entries(1);
        EXPECT_FALSE(target.io.get_dir("d", entries));
        EXPECT_EQ(entries.size(), 1U);
        EXPECT_EQ(target.io.error(), "Failed to GET " + target.url("d"));
        EXPECT_EQ(target.io.errnum(), each.errnum);
        EXPECT_EQ(target.io.retriable(), each.retriable);
    }
}

TEST(HTTP_Client_IO_Files, NothingIsAskedOfAServerThatWasNeverNamed)
{
    HTTP_Client_IO io;
    Entries entries;
    const auto is_refused = [&io](bool done) { return !done && io.error() == "Not connected"; };
    EXPECT_TRUE(is_refused(io.remove("a")));
    EXPECT_TRUE(is_refused(io.make_dir("a", 0700)));
    EXPECT_TRUE(is_refused(io.truncate("a", 0)));
    EXPECT_TRUE(is_refused(io.copy("a", "b", true)));
    EXPECT_TRUE(is_refused(io.rename("a", "b", true)));
    EXPECT_TRUE(is_refused(io.get_dir("a", entries)));
    EXPECT_TRUE(is_refused(io.open("a", Client_IO_Base::mode_read, 0, 0)));
    EXPECT_EQ(static_cast<std::int64_t>(io.size("a")), -1);
    EXPECT_FALSE(io.reconnect());
    EXPECT_FALSE(io.is_connected());
    EXPECT_TRUE(io.close());
}

} // namespace
