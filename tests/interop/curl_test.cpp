#include "tests/interop/curl.h"
#include "tests/interop/raw_peer.h"
#include "tests/support/run_program.h"
#include "tests/support/storage_server_process.h"
#include "tests/support/temp_directory.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <sys/stat.h>

namespace fs = std::filesystem;

/// curl as a client of the storage server.
class Curl : public testing::Test
{
protected:
    /// A PUT or POST of @p data, with further arguments.
    Curl_Result send(const std::string& method, const std::string& path, const std::string& data,
                     std::vector<std::string> arguments = {}) const
    {
        arguments.insert(arguments.begin(), {"-X", method, "--data-binary", "@-"});
        arguments.push_back(server_.uri(path));
        return curl(arguments, data);
    }
    Curl_Result get(const std::string& path, std::vector<std::string> arguments = {}) const
    {
        arguments.push_back(server_.uri(path));
        return curl(arguments);
    }
    Curl_Result act(const std::string& method, const std::string& path,
                    std::vector<std::string> arguments = {}) const
    {
        arguments.insert(arguments.begin(), {"-X", method});
        return get(path, std::move(arguments));
    }
    std::vector<std::string> to(const std::string& path) const
    {
        return {"-H", "Destination: " + server_.uri(path)};
    }
    bool exists(const std::string& path) const { return fs::exists(server_.file(path)); }

    const Storage_Server_Process server_;
};

TEST_F(Curl, StoresAndBringsBackEveryByte)
{
    const Temp_Directory local;
    const std::string data = sample_bytes(5'000'000);
    write_local(local / "source", data);
    const Curl_Result put = get("/a/b/file", {"-T", local / "source"});
    EXPECT_EQ(put.status, 200);
    EXPECT_TRUE(read_local(server_.file("a/b/file")) == data);
    const Curl_Result back = get("/a/b/file");
    EXPECT_EQ(back.status, 200);
    EXPECT_TRUE(back.body == data);
    EXPECT_EQ(back.field("Content-Length"), "5000000");
}

TEST_F(Curl, StoresWhatComesInChunks)
{
    const std::string data = sample_bytes(3'000'001);
    EXPECT_EQ(send("PUT", "/file", data, {"-H", "Transfer-Encoding: chunked"}).status, 200);
    EXPECT_TRUE(read_local(server_.file("file")) == data);
}

TEST_F(Curl, StoresEmptyFiles)
{
    EXPECT_EQ(send("PUT", "/put", "").status, 200);
    EXPECT_EQ(send("POST", "/post", "").status, 200);
    EXPECT_EQ(send("PUT", "/chunked", "", {"-H", "Transfer-Encoding: chunked"}).status, 200);
    for (const char* name : {"put", "post", "chunked"}) {
        EXPECT_EQ(fs::file_size(server_.file(name)), 0U) << name;
        EXPECT_EQ(get("/" + std::string(name)).body, "") << name;
    }
    EXPECT_EQ(get("/put", {"-r", "0-"}).status, 416);
}

TEST_F(Curl, PutReplacesAndPostDoesNot)
{
    EXPECT_EQ(send("POST", "/file", "the first contents").status, 200);
    const Curl_Result again = send("POST", "/file", "others");
    EXPECT_EQ(again.status, 409);
    EXPECT_EQ(again.field("Content-Type"), "application/json");
    EXPECT_EQ(again.body, "{\"error\":\"Exists already\",\"status\":409}\n");
    EXPECT_EQ(read_local(server_.file("file")), "the first contents");
    EXPECT_EQ(send("PUT", "/file", "short").status, 200);
    EXPECT_EQ(read_local(server_.file("file")), "short");
}

TEST_F(Curl, PostWithARangeWritesThereAndLeavesTheRest)
{
    ASSERT_EQ(send("PUT", "/file", "0123456789").status, 200);
    EXPECT_EQ(send("POST", "/file", "abc", {"-H", "Content-Range: bytes 2-4/10"}).status, 200);
    EXPECT_EQ(read_local(server_.file("file")), "01abc56789");
    EXPECT_EQ(send("POST", "/file", "xyz", {"-H", "Content-Range: bytes 8--1/*"}).status, 200);
    EXPECT_EQ(read_local(server_.file("file")), "01abc567xyz");
    EXPECT_EQ(send("POST", "/new", "abc", {"-H", "Content-Range: bytes 2--1/*"}).status, 200);
    EXPECT_EQ(read_local(server_.file("new")), std::string("\0\0abc", 5));
}

TEST_F(Curl, PutWithARangeCutsTheFileThere)
{
    ASSERT_EQ(send("PUT", "/file", "0123456789").status, 200);
    EXPECT_EQ(send("PUT", "/file", "", {"-H", "Content-Range: bytes 4--1/*"}).status, 200);
    EXPECT_EQ(read_local(server_.file("file")), "0123");
    EXPECT_EQ(send("PUT", "/file", "xy", {"-H", "Content-Range: bytes 2--1/*"}).status, 200);
    EXPECT_EQ(read_local(server_.file("file")), "01xy");
    EXPECT_EQ(send("PUT", "/file", "", {"-H", "Content-Range: bytes 6--1/*"}).status, 200);
    EXPECT_EQ(read_local(server_.file("file")), std::string("01xy\0\0", 6));
    EXPECT_EQ(send("PUT", "/none", "", {"-H", "Content-Range: bytes 4--1/*"}).status, 404);
    EXPECT_FALSE(exists("none"));
}

TEST_F(Curl, ABodyThatIsNotAsLongAsItsRangeIsRefused)
{
    ASSERT_EQ(send("PUT", "/file", "0123456789").status, 200);
    EXPECT_EQ(send("POST", "/file", "abcd", {"-H", "Content-Range: bytes 2-4/10"}).status, 400);
    EXPECT_EQ(send("POST", "/file", "a", {"-H", "Content-Range: bytes 2-4/10"}).status, 400);
    EXPECT_EQ(read_local(server_.file("file")), "0123456789");
    EXPECT_EQ(send("POST", "/file", "abcd",
                   {"-H", "Content-Range: bytes 2-4/10", "-H", "Transfer-Encoding: chunked"})
                  .status,
              400);
    for (const char* bad : {"bytes 4-2/10", "bytes 4-10/10", "bytes x-1/2", "bytes 1-2",
                            "items 1-2/3", "bytes 1-9223372036854775808/*"})
        EXPECT_EQ(send("POST", "/file", "abc", {"-H", std::string("Content-Range: ") + bad}).status,
                  400)
            << bad;
    EXPECT_EQ(read_local(server_.file("file")), "0123456789");
}

TEST_F(Curl, RangesOfAFileAreServed)
{
    const std::string data = sample_bytes(1'000'000);
    write_local(server_.file("file"), data);
    struct Case
    {
        const char* range;
        std::size_t first;
        std::size_t size;
    };
    for (const Case& part : {Case{"0-0", 0, 1}, Case{"10-19", 10, 10}, Case{"999999-", 999999, 1},
                             Case{"500000-", 500000, 500000}, Case{"-5", 999995, 5},
                             Case{"-2000000", 0, 1000000}, Case{"999990-2000000", 999990, 10}})
    {
        const Curl_Result result = get("/file", {"-r", part.range});
        EXPECT_EQ(result.status, 206) << part.range;
        EXPECT_EQ(result.body, data.substr(part.first, part.size)) << part.range;
        EXPECT_EQ(result.field("Content-Range"), "bytes " + std::to_string(part.first) + "-" +
                                                     std::to_string(part.first + part.size - 1) +
                                                     "/1000000")
            << part.range;
    }
    const Curl_Result behind = get("/file", {"-r", "1000000-"});
    EXPECT_EQ(behind.status, 416);
    EXPECT_EQ(behind.field("Content-Range"), "bytes */1000000");
    const Curl_Result several = get("/file", {"-r", "0-1,5-6"});
    EXPECT_EQ(several.status, 200);
    EXPECT_TRUE(several.body == data);
}

TEST_F(Curl, ABrokenDownloadIsResumed)
{
    const Temp_Directory local;
    const std::string data = sample_bytes(2'000'000);
    write_local(server_.file("file"), data);
    write_local(local / "part", data.substr(0, 700'000));
    const Program_Result run =
        run_program({"curl", "-q", "-s", "-C", "-", "-o", local / "part", server_.uri("/file")});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_TRUE(read_local(local / "part") == data);
}

TEST_F(Curl, ABrokenUploadIsResumedWhereHeadSays)
{
    const std::string data = sample_bytes(2'000'000);
    Raw_Peer cut_off(server_.port());
    cut_off.send("PUT /file HTTP/1.1\r\nHost: h\r\nContent-Length: 2000000\r\n\r\n" +
                 data.substr(0, 700'000));
    cut_off.end();
    EXPECT_EQ(cut_off.read_all(), "");
    const std::string there = get("/file", {"-I"}).field("Content-Length");
    ASSERT_EQ(there, "700000");
    EXPECT_EQ(send("POST", "/file", data.substr(700'000),
                   {"-H", "Content-Range: bytes 700000-1999999/2000000"})
                  .status,
              200);
    EXPECT_TRUE(read_local(server_.file("file")) == data);
}

TEST_F(Curl, HeadTellsWhatGetWouldSend)
{
    ASSERT_EQ(
        send("PUT", "/file", "0123456789", {"-H", "Last-Modified: Thu, 29 Feb 2024 12:34:56 GMT"})
            .status,
        200);
    const Curl_Result head = get("/file", {"-I"});
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.body, "");
    EXPECT_EQ(head.field("Content-Length"), "10");
    EXPECT_EQ(head.field("Last-Modified"), "Thu, 29 Feb 2024 12:34:56 GMT");
    EXPECT_EQ(head.field("Accept-Ranges"), "bytes");
    EXPECT_EQ(head.field("ETag"), get("/file").field("ETag"));
    EXPECT_EQ(get("/none", {"-I"}).status, 404);
    EXPECT_EQ(get("/", {"-I"}).status, 405);
}

TEST_F(Curl, TheTimeOfAFileMayBeGivenInBothForms)
{
    for (const char* time : {"Thu, 29 Feb 2024 12:34:56 GMT", "2024-02-29T12:34:56Z"}) {
        ASSERT_EQ(send("PUT", "/file", "x", {"-H", std::string("Last-Modified: ") + time}).status,
                  200)
            << time;
        struct stat status = {};
        ASSERT_EQ(::stat(server_.file("file").c_str(), &status), 0);
        EXPECT_EQ(status.st_mtime, 1709210096) << time;
        fs::remove(server_.file("file"));
    }
    EXPECT_EQ(send("PUT", "/file", "x", {"-H", "Last-Modified: yesterday"}).status, 400);
    EXPECT_FALSE(exists("file"));
}

TEST_F(Curl, NewFilesAndDirectoriesLackThePermissionsOfTheMask)
{
    ASSERT_EQ(send("PUT", "/dir/file", "x", {"-H", "X-Mode-Creation-Mask: 63"}).status, 200); // 077
    EXPECT_EQ(fs::status(server_.file("dir/file")).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(server_.file("dir")).permissions(), fs::perms(0700));
    EXPECT_EQ(send("PUT", "/other", "x", {"-H", "X-Mode-Creation-Mask: 0x1"}).status, 400);
    EXPECT_EQ(send("PUT", "/other", "x", {"-H", "X-Mode-Creation-Mask: 512"}).status, 400);
    EXPECT_FALSE(exists("other"));
}

TEST_F(Curl, ConditionsAreHeld)
{
    ASSERT_EQ(send("PUT", "/file", "first").status, 200);
    const std::string tag = get("/file", {"-I"}).field("ETag");
    ASSERT_EQ(tag.front(), '"');
    EXPECT_EQ(get("/file", {"-H", "If-Match: " + tag}).status, 200);
    EXPECT_EQ(get("/file", {"-H", "If-Match: \"other\", " + tag}).status, 200);
    EXPECT_EQ(get("/file", {"-H", "If-Match: \"other\""}).status, 412);
    EXPECT_EQ(get("/none", {"-H", "If-Match: *"}).status, 412);
    const Curl_Result same = get("/file", {"-H", "If-None-Match: " + tag});
    EXPECT_EQ(same.status, 304);
    EXPECT_EQ(same.body, "");
    EXPECT_EQ(send("PUT", "/file", "second", {"-H", "If-None-Match: *"}).status, 412);
    EXPECT_EQ(read_local(server_.file("file")), "first");
    EXPECT_EQ(get("/file", {"-r", "1-2", "-H", "If-Range: " + tag}).body, "ir");

    ASSERT_EQ(send("PUT", "/file", "second").status, 200);
    EXPECT_EQ(get("/file", {"-H", "If-None-Match: " + tag}).status, 200);
    const Curl_Result changed = get("/file", {"-r", "1-2", "-H", "If-Range: " + tag});
    EXPECT_EQ(changed.status, 200);
    EXPECT_EQ(changed.body, "second");
}

TEST_F(Curl, ADirectoryIsListedAsJson)
{
    ASSERT_EQ(
        send("PUT", "/dir/file", "12345", {"-H", "Last-Modified: 2024-01-01T00:00:00Z"}).status,
        200);
    const Curl_Result file = get("/dir");
    EXPECT_EQ(file.status, 200);
    EXPECT_EQ(file.field("Content-Type"), "application/json");
    EXPECT_EQ(file.body,
              "[\n{\"file\":\"file\",\"mtime\":\"2024-01-01T00:00:00Z\",\"size\":5}\n]\n");
    const std::string root = get("/").body;
    EXPECT_NE(root.find("{\"dir\":\"dir\",\"mtime\":\""), std::string::npos) << root;
    EXPECT_NE(root.find("\"size\":0}"), std::string::npos) << root;
    ASSERT_EQ(act("MKCOL", "/empty").status, 200);
    EXPECT_EQ(get("/empty/").body, "[\n]\n");
    EXPECT_EQ(get("/none").status, 404);
}

TEST_F(Curl, ALongListIsWhole)
{
    constexpr int files = 5000;
    for (int i = 0; i < files; ++i)
        write_local(server_.file("file " + std::to_string(i)), "");
    std::istringstream list(get("/").body);
    std::set<std::string> names;
    std::string line;
    std::getline(list, line);
    EXPECT_EQ(line, "[");
    while (std::getline(list, line) && line.starts_with("{\"file\":\"file "))
        names.insert(line.substr(0, line.find(',')));
    EXPECT_EQ(names.size(), std::size_t{files});
    EXPECT_EQ(line, "]");
}

TEST_F(Curl, ALongListReachesClientsThatKnowNoChunks)
{
    write_local(server_.file("file"), "");
    const Curl_Result list = get("/", {"--http1.0"});
    EXPECT_EQ(list.exit_code, 0);
    EXPECT_TRUE(list.body.ends_with("}\n]\n")) << list.body;
    EXPECT_EQ(list.field("Transfer-Encoding"), "");
}

TEST_F(Curl, NamesOfAllCharactersWork)
{
    const std::string odd = "/%20%25%3F%23%22%5C%26+%C3%A9%0A";
    ASSERT_EQ(send("PUT", odd, "contents").status, 200);
    EXPECT_EQ(read_local(server_.file(" %?#\"\\&+\xC3\xA9\n")), "contents");
    EXPECT_EQ(get(odd).body, "contents");
    EXPECT_NE(get("/").body.find("\" %?#\\\"\\\\&+\xC3\xA9\\n\""), std::string::npos)
        << get("/").body;
    EXPECT_EQ(get("//a//..").status, 403);
}

TEST_F(Curl, DeleteRemovesFilesAndEmptyDirectories)
{
    ASSERT_EQ(send("PUT", "/dir/file", "x").status, 200);
    EXPECT_EQ(act("DELETE", "/dir").status, 424);
    EXPECT_EQ(act("DELETE", "/dir/file").status, 200);
    EXPECT_EQ(act("DELETE", "/dir/file").status, 404);
    EXPECT_EQ(act("DELETE", "/dir").status, 200);
    EXPECT_EQ(act("DELETE", "/dir").status, 404);
    EXPECT_EQ(act("DELETE", "/").status, 403);
    EXPECT_TRUE(fs::is_directory(server_.file("")));
}

TEST_F(Curl, MkcolMakesADirectoryAndItsParents)
{
    EXPECT_EQ(act("MKCOL", "/a/b/c").status, 200);
    EXPECT_TRUE(fs::is_directory(server_.file("a/b/c")));
    EXPECT_EQ(act("MKCOL", "/a/b/c").status, 200);
    ASSERT_EQ(send("PUT", "/file", "x").status, 200);
    EXPECT_EQ(act("MKCOL", "/file").status, 409);
    EXPECT_EQ(act("MKCOL", "/file/below").status, 409);
}

TEST_F(Curl, WhatLiesBelowAFileIsNotThereAndCannotBeMade)
{
    ASSERT_EQ(send("PUT", "/file", "x").status, 200);
    EXPECT_EQ(get("/file/below").status, 404);
    EXPECT_EQ(get("/file/below", {"-I"}).status, 404);
    EXPECT_EQ(act("DELETE", "/file/below").status, 404);
    EXPECT_EQ(send("PUT", "/file/below", "x").status, 409);
    EXPECT_EQ(send("POST", "/file/below", "x").status, 409);
}

TEST_F(Curl, AFileDoesNotReplaceADirectory)
{
    ASSERT_EQ(act("MKCOL", "/dir").status, 200);
    EXPECT_GE(send("PUT", "/dir", "x").status, 400);
    EXPECT_GE(send("POST", "/dir", "x").status, 400);
    EXPECT_TRUE(fs::is_directory(server_.file("dir")));
}

TEST_F(Curl, CopyLeavesTheSourceAndMoveDoesNot)
{
    ASSERT_EQ(send("PUT", "/file", "contents").status, 200);
    EXPECT_EQ(act("COPY", "/file", to("/new/copy")).status, 200);
    EXPECT_EQ(read_local(server_.file("new/copy")), "contents");
    EXPECT_EQ(read_local(server_.file("file")), "contents");
    EXPECT_EQ(act("MOVE", "/file", to("/other/moved")).status, 200);
    EXPECT_EQ(read_local(server_.file("other/moved")), "contents");
    EXPECT_FALSE(exists("file"));
    EXPECT_EQ(act("MOVE", "/other", to("/third")).status, 200);
    EXPECT_EQ(read_local(server_.file("third/moved")), "contents");
    EXPECT_EQ(act("COPY", "/none", to("/x")).status, 404);
    EXPECT_EQ(act("MOVE", "/none", to("/x")).status, 404);
}

TEST_F(Curl, CopyAndMoveReplaceUnlessToldNotTo)
{
    ASSERT_EQ(send("PUT", "/one", "1").status, 200);
    ASSERT_EQ(send("PUT", "/two", "2").status, 200);
    std::vector<std::string> kept = to("/two");
    kept.insert(kept.end(), {"-H", "Overwrite: F"});
    EXPECT_EQ(act("COPY", "/one", kept).status, 409);
    EXPECT_EQ(act("MOVE", "/one", kept).status, 409);
    EXPECT_EQ(read_local(server_.file("two")), "2");
    EXPECT_EQ(act("COPY", "/one", to("/two")).status, 200);
    EXPECT_EQ(read_local(server_.file("two")), "1");
}

TEST_F(Curl, DestinationsElsewhereAreRefused)
{
    ASSERT_EQ(send("PUT", "/file", "x").status, 200);
    EXPECT_EQ(act("COPY", "/file", {"-H", "Destination: http://elsewhere.example/x"}).status, 502);
    EXPECT_EQ(act("COPY", "/file").status, 400);
    EXPECT_EQ(act("COPY", "/file", {"-H", "Destination: nonsense"}).status, 400);
    EXPECT_EQ(act("COPY", "/file", to("/../x")).status, 403);
    EXPECT_EQ(act("COPY", "/file", to("/.cio/x")).status, 403);
    EXPECT_EQ(act("COPY", "/file", {"-H", "Destination: /x", "-H", "Overwrite: perhaps"}).status,
              400);
    EXPECT_EQ(act("COPY", "/file", {"-H", "Destination: /path"}).status, 200);
}

TEST_F(Curl, OtherMethodsAreNotServed)
{
    for (const char* method : {"PATCH", "PROPFIND", "OPTIONS", "get"})
        EXPECT_EQ(act(method, "/").status, 501) << method;
}

TEST_F(Curl, TheServersOwnNameIsReserved)
{
    EXPECT_EQ(get("/.cio/health").body, "ok\n");
    EXPECT_EQ(get("/.cio/health").status, 200);
    EXPECT_EQ(send("PUT", "/.cio/file", "x").status, 403);
    EXPECT_EQ(send("PUT", "/%2Ecio", "x").status, 403);
    EXPECT_EQ(send("PUT", "/dir/.cio", "x").status, 200);
    fs::create_directory(server_.file(".cio"));
    EXPECT_EQ(get("/").body.find("\".cio\""), std::string::npos);
}

TEST_F(Curl, MetricsCountWhatWasServed)
{
    ASSERT_EQ(send("PUT", "/file", "0123456789").status, 200);
    ASSERT_EQ(get("/file").body, "0123456789");
    const Curl_Result metrics = get("/.cio/metrics");
    EXPECT_EQ(metrics.status, 200);
    for (const char* line :
         {"cio_requests_total{method=\"PUT\",status=\"200\"} 1\n",
          "cio_requests_total{method=\"GET\",status=\"200\"} 1\n", "cio_received_bytes_total 10\n",
          "cio_sent_bytes_total 10\n", "cio_connections 1\n", "cio_connections_total 3\n"})
        EXPECT_NE(metrics.body.find(line), std::string::npos) << line << metrics.body;
}

TEST_F(Curl, OneConnectionServesManyRequests)
{
    write_local(server_.file("file"), "contents\n");
    const std::string url = server_.uri("/file");
    EXPECT_EQ(curl({url, url, url}).exit_code, 0);
    EXPECT_NE(get("/.cio/metrics").body.find("cio_connections_total 2\n"), std::string::npos);
}
