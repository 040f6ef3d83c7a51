#include "tests/interop/raw_peer.h"
#include "tests/support/storage_server_process.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

/// What no well-meaning client sends.
class Server_Hostile : public testing::Test
{
protected:
    std::string request(const std::string& line, const std::string& rest = "\r\n") const
    {
        return ask(server_.port(), line + " HTTP/1.1\r\nHost: h\r\nConnection: close\r\n" + rest);
    }
    /// What stands beside the root, where nothing may be read or made.
    std::string beside(const std::string& name) const
    {
        return fs::path(server_.file("")).parent_path().parent_path() / name;
    }

    const Storage_Server_Process server_;
};

TEST_F(Server_Hostile, NoPathLeavesTheRoot)
{
    for (const char* path : {"/../etc/passwd",
                             "/a/../../etc/passwd",
                             "/%2e%2e/etc/passwd",
                             "/.%2e/%2e./etc/passwd",
                             "/..%2fetc%2fpasswd",
                             "/%2fetc%2fpasswd",
                             "/..%00/etc/passwd",
                             "/etc/passwd%00",
                             "//../etc/passwd",
                             "/./etc/passwd",
                             "/..",
                             "/.",
                             "/%",
                             "/%2",
                             "/%zz",
                             "etc/passwd",
                             "../etc/passwd",
                             "*",
                             "file:///etc/passwd",
                             "/a?b",
                             "/a#b",
                             "http://",
                             "//etc/passwd",
                             "/proc/self/root/etc/passwd",
                             "/\\..\\etc",
                             "/..\\etc\\passwd",
                             "/%c0%ae%c0%ae/etc/passwd",
                             "/.../etc/passwd",
                             "/..;/etc/passwd"})
    {
        const std::string answer = request(std::string("GET ") + path);
        EXPECT_TRUE(status_of(answer) == 400 || status_of(answer) == 403 ||
                    status_of(answer) == 404)
            << path << ": " << answer;
        EXPECT_EQ(answer.find("root:"), std::string::npos) << path;
    }
}

TEST_F(Server_Hostile, NothingIsMadeOutsideTheRoot)
{
    const std::string name = "cio-hostile-" + std::to_string(server_.port());
    for (const std::string& path :
         {"/../" + name, "/%2e%2e/" + name, "/..%2f" + name, "/a/%2e%2e/%2e%2e/" + name})
    {
        const int status = status_of(request("PUT " + path, "Content-Length: 1\r\n\r\nx"));
        EXPECT_TRUE(status == 400 || status == 403) << path << ": " << status;
        EXPECT_FALSE(fs::exists(beside(name))) << path;
    }
}

TEST_F(Server_Hostile, LinksThatLeadOutAreNotFollowed)
{
    fs::create_symlink("/etc", server_.file("out"));
    fs::create_symlink("/etc/passwd", server_.file("passwd"));
    for (const char* path : {"/out/passwd", "/passwd", "/out"})
        EXPECT_GE(status_of(request(std::string("GET ") + path)), 400) << path;
}

TEST_F(Server_Hostile, AnAbsoluteTargetIsItsPath)
{
    write_local(server_.file("file"), "contents");
    EXPECT_EQ(status_of(request("GET http://anywhere.example/file")), 200);
    EXPECT_EQ(status_of(request("GET ftp://anywhere.example/file")), 400);
}

TEST_F(Server_Hostile, RequestsThatTwoReadersUnderstandDifferentlyAreRefused)
{
    for (const char* head : {
             "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n",
             "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n",
             "Content-Length: 5\r\nContent-Length: 6\r\n",
             "Content-Length: 5\r\nContent-Length: 5\r\n",
             "Content-Length: 5, 5\r\n",
             "Content-Length: +5\r\n",
             "Content-Length: -1\r\n",
             "Content-Length: 0x5\r\n",
             "Content-Length: 9223372036854775808\r\n",
             "Content-Length : 5\r\n",
             "Content-Length: 5\n",
             "Transfer-Encoding: chunked, chunked\r\n",
             "Transfer-Encoding: gzip, chunked\r\n",
             "Transfer-Encoding: identity\r\n",
             "Transfer-Encoding: xchunked\r\n",
             "Transfer-Encoding : chunked\r\n",
             "Transfer-Encoding:\r\n chunked\r\n",
             "X: a\r\n Content-Length: 5\r\n",
             "Host: other\r\n",
             ": empty\r\n",
             "Bad Name: x\r\n",
         })
    {
        const std::string answer =
            request("PUT /file", std::string(head) + "\r\n0\r\n\r\nGET /secret");
        EXPECT_EQ(status_of(answer), 400) << head << answer;
        EXPECT_EQ(answer.find("HTTP/1.1", 8), std::string::npos) << head << "was answered twice";
        EXPECT_FALSE(fs::exists(server_.file("file"))) << head;
    }
}

TEST_F(Server_Hostile, ChunksThatAreNoneAreRefused)
{
    for (const char* body :
         {"x\r\n", "-1\r\n", "0x5\r\nhello\r\n0\r\n\r\n", "5\nhello\r\n0\r\n\r\n",
          "5\r\nhelloXX0\r\n\r\n", "ffffffffffffffffff\r\n", " 5\r\nhello\r\n0\r\n\r\n", "\r\n"})
    {
        const std::string answer =
            request("PUT /file", std::string("Transfer-Encoding: chunked\r\n\r\n") + body);
        EXPECT_EQ(status_of(answer), 400) << body << answer;
    }
}

TEST_F(Server_Hostile, WhatIsNotHttpIsRefused)
{
    for (const char* text :
         {"nonsense\r\n\r\n", "GET /\r\n\r\n", "GET / HTTP/2.0\r\n\r\n", "GET  / HTTP/1.1\r\n\r\n",
          "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", "GET / HTTP/1.1\r\n\r\n",
          "GET / HTTP/1.1\nHost: h\n\n", "G\x01T / HTTP/1.1\r\nHost: h\r\n\r\n"})
    {
        Raw_Peer peer(server_.port());
        peer.send(text);
        EXPECT_EQ(status_of(peer.read_to("\r\n\r\n")), 400) << text;
    }
}

TEST_F(Server_Hostile, HeadsThatAreTooLargeAreRefused)
{
    EXPECT_EQ(status_of(request("GET /" + std::string(70000, 'a'))), 431);
    EXPECT_EQ(status_of(request("GET /", "X: " + std::string(70000, 'a') + "\r\n\r\n")), 431);
    std::string fields;
    for (int i = 0; i < 300; ++i)
        fields += "X" + std::to_string(i) + ": x\r\n";
    EXPECT_EQ(status_of(request("GET /", fields + "\r\n")), 431);
    // Nor does one that never ends pile up.
    Raw_Peer peer(server_.port());
    peer.send("GET / HTTP/1.1\r\nX: ");
    while (peer.send(std::string(1000, 'a')) && !peer.ends_within(std::chrono::milliseconds(1)))
        ;
}

TEST_F(Server_Hostile, RequestsThatFollowAtOnceAreAnsweredInTheirOrder)
{
    write_local(server_.file("a"), "first");
    const std::string get = "GET /a HTTP/1.1\r\nHost: h\r\n\r\n";
    const std::string put = "PUT /b HTTP/1.1\r\nHost: h\r\nContent-Length: 6\r\n\r\nsecond";
    const std::string chunked = "PUT /c HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n"
                                "5\r\nthird\r\n0\r\n\r\n";
    const std::string last = "GET /b HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n";
    const std::string answers = ask(server_.port(), get + put + chunked + last);
    EXPECT_NE(answers.find("\r\n\r\nfirstHTTP/1.1 200"), std::string::npos) << answers;
    EXPECT_TRUE(answers.ends_with("\r\n\r\nsecond")) << answers;
    EXPECT_EQ(read_local(server_.file("c")), "third");
}

TEST_F(Server_Hostile, ABodyThatIsNotWantedIsNoRequest)
{
    const std::string inner = "DELETE /file HTTP/1.1\r\nHost: h\r\n\r\n";
    write_local(server_.file("file"), "x");
    const std::string answer =
        ask(server_.port(), "GET /file HTTP/1.1\r\nHost: h\r\nContent-Length: " +
                                std::to_string(inner.size()) + "\r\n\r\n" + inner);
    EXPECT_EQ(status_of(answer), 200);
    EXPECT_NE(answer.find("Connection: close"), std::string::npos);
    EXPECT_TRUE(fs::exists(server_.file("file")));
}

TEST_F(Server_Hostile, AnEarlyRefusalOfALargeUploadIsReadable)
{
    write_local(server_.file("file"), "x");
    Raw_Peer peer(server_.port());
    peer.send("POST /file HTTP/1.1\r\nHost: h\r\nContent-Length: 20000000\r\n\r\n");
    const std::string block(1'000'000, 'x');
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(peer.send(block));
    EXPECT_EQ(status_of(peer.read_all()), 409);
    EXPECT_EQ(read_local(server_.file("file")), "x");
}

TEST_F(Server_Hostile, FieldsThatStandTwiceAreRefused)
{
    write_local(server_.file("file"), "kept");
    for (const std::string field :
         {"Destination: /one\r\nDestination: /two", "Overwrite: T\r\nOverwrite: F",
          "Range: bytes=0-1\r\nRange: bytes=2-3",
          "Content-Range: bytes 0--1/*\r\n"
          "Content-Range: bytes 2--1/*"})
    {
        Raw_Peer peer(server_.port());
        peer.send("MOVE /file HTTP/1.1\r\nHost: h\r\nConnection: close\r\n" + field + "\r\n\r\n");
        const std::string answer = peer.read_all();
        EXPECT_EQ(status_of(answer), 400) << field;
        EXPECT_NE(answer.find("More than one"), std::string::npos) << answer;
    }
    EXPECT_EQ(read_local(server_.file("file")), "kept");
}

TEST_F(Server_Hostile, PagesOfOtherServersHaveNoAccessWithoutUsers)
{
    write_local(server_.file("file"), "kept");
    Raw_Peer peer(server_.port());
    peer.send("DELETE /file HTTP/1.1\r\nHost: h\r\nOrigin: http://evil.example\r\n\r\n");
    EXPECT_EQ(status_of(peer.read_to("\r\n\r\n")), 403);
    EXPECT_EQ(read_local(server_.file("file")), "kept");
}

TEST_F(Server_Hostile, ContinueIsSentWhenTheOldContentsAreGone)
{
    write_local(server_.file("file"), "old contents");
    Raw_Peer peer(server_.port());
    peer.send("PUT /file HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\nExpect: 100-continue\r\n\r\n");
    const std::string go_on = peer.read_to("\r\n\r\n");
    EXPECT_TRUE(go_on.starts_with("HTTP/1.1 100 Continue\r\nX-File-Id: ")) << go_on;
    EXPECT_EQ(fs::file_size(server_.file("file")), 0U);
    peer.send("new");
    EXPECT_EQ(status_of(peer.read_to("\r\n\r\n")), 200);
    EXPECT_EQ(read_local(server_.file("file")), "new");

    Raw_Peer refused(server_.port());
    refused.send("POST /file HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n"
                 "Expect: 100-continue\r\n\r\n");
    EXPECT_EQ(status_of(refused.read_all()), 409);
    EXPECT_EQ(status_of(request("PUT /file", "Content-Length: 1\r\nExpect: magic\r\n\r\nx")), 417);
}

TEST_F(Server_Hostile, ANewUploadTakesOverFromAnOldOne)
{
    Raw_Peer old(server_.port());
    old.send(
        "PUT /file HTTP/1.1\r\nHost: h\r\nContent-Length: 1000\r\nExpect: 100-continue\r\n\r\n");
    old.read_to("\r\n\r\n");
    old.send("old");
    EXPECT_EQ(status_of(request("PUT /file", "Content-Length: 3\r\n\r\nnew")), 200);
    old.send(std::string(997, 'o'));
    EXPECT_EQ(status_of(old.read_all()), 409);
    EXPECT_EQ(read_local(server_.file("file")), "new");
}

TEST_F(Server_Hostile, ReadersOfAReplacedFileKeepItsContents)
{
    const std::string data = sample_bytes(20'000'000);
    write_local(server_.file("file"), data);
    Raw_Peer reader(server_.port(), 4096);
    reader.send("GET /file HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n");
    reader.read_to("\r\n\r\n");
    ASSERT_EQ(status_of(request("PUT /file", "Content-Length: 3\r\n\r\nnew")), 200);
    EXPECT_TRUE(reader.read_all() == data);
}
