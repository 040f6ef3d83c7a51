#include "tests/interop/curl.h"
#include "tests/interop/raw_peer.h"
#include "tests/interop/wait_until.h"
#include "tests/support/storage_server_process.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace
{

const std::string upload = "PUT /file HTTP/1.1\r\nHost: h\r\nContent-Length: 10\r\n"
                           "Expect: 100-continue\r\n\r\n";

} // namespace

TEST(Server_Process, AskedToEndItFinishesWhatIsUnderWayAndTakesNothingNew)
{
    Storage_Server_Process server;
    Raw_Peer idle(server.port());
    idle.send("GET /.cio/health HTTP/1.1\r\nHost: h\r\n\r\n");
    idle.read_to("ok\n");
    Raw_Peer busy(server.port());
    busy.send(upload);
    busy.read_to("\r\n\r\n");
    busy.send("01234");

    server.signal(SIGTERM);
    EXPECT_EQ(idle.read_all(), ""); // ends, because nothing is under way there
    const Curl_Result late = curl({server.uri("/file")});
    EXPECT_EQ(late.exit_code, 7); // no connection

    busy.send("56789");
    const std::string answer = busy.read_all();
    EXPECT_EQ(status_of(answer), 200);
    EXPECT_NE(answer.find("Connection: close"), std::string::npos);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_EQ(read_local(server.file("file")), "0123456789");
}

TEST(Server_Process, WhatTakesTooLongIsCutAndKeepsWhatCame)
{
    Storage_Server_Process server({"--stop-time", "1"});
    Raw_Peer stuck(server.port());
    stuck.send(upload);
    stuck.read_to("\r\n\r\n");
    stuck.send("01234");
    wait_until([&] { return fs::file_size(server.file("file")) == 5; });
    server.signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_EQ(read_local(server.file("file")), "01234");
}

TEST(Server_Process, ASecondSignalCutsAtOnce)
{
    Storage_Server_Process server({"--stop-time", "3600"});
    Raw_Peer stuck(server.port());
    stuck.send(upload);
    stuck.read_to("\r\n\r\n");
    server.signal(SIGTERM);
    // The first one was seen.
    wait_until([&] { return curl({server.uri("/")}).exit_code == 7; });
    server.signal(SIGINT);
    EXPECT_EQ(server.wait(), 0);
}

TEST(Server_Process, KilledItKeepsWhatCame)
{
    Storage_Server_Process server;
    const std::string data = sample_bytes(1'000'000);
    Raw_Peer peer(server.port());
    peer.send("PUT /file HTTP/1.1\r\nHost: h\r\nContent-Length: 2000000\r\n\r\n" + data);
    wait_until([&] {
        return fs::exists(server.file("file")) && fs::file_size(server.file("file")) == data.size();
    });
    server.kill();
    server.start();
    const Curl_Result head = curl({"-I", server.uri("/file")});
    EXPECT_EQ(head.field("Content-Length"), "1000000");
    EXPECT_TRUE(curl({server.uri("/file")}).body == data);
}

TEST(Server_Process, APeerThatVanishesLeavesWhatCameAndEndsNothingElse)
{
    Storage_Server_Process server;
    for (int i = 0; i < 20; ++i) {
        Raw_Peer peer(server.port());
        peer.send("PUT /file HTTP/1.1\r\nHost: h\r\nContent-Length: 2000000\r\n\r\n0123456789");
        peer.reset();
        Raw_Peer reader(server.port());
        reader.send("GET /.cio/health HTTP/1.1\r\nHost: h\r\n\r\n");
        reader.reset();
    }
    EXPECT_EQ(curl({server.uri("/.cio/health")}).body, "ok\n");
    EXPECT_EQ(server.end(), 0);
}

TEST(Server_Process, ConnectionsBeyondTheLimitAreToldSo)
{
    Storage_Server_Process server({"--max-connections", "3"});
    Raw_Peer first(server.port());
    Raw_Peer second(server.port());
    const std::string get = "GET /.cio/health HTTP/1.1\r\nHost: h\r\n\r\n";
    for (Raw_Peer* const peer : {&first, &second}) {
        peer->send(get);
        peer->read_to("ok\n");
    }
    Raw_Peer third(server.port());
    third.send(get);
    third.read_to("ok\n");
    const std::string refused = ask(server.port(), get);
    EXPECT_EQ(status_of(refused), 503);
    EXPECT_NE(refused.find("Connection: close"), std::string::npos);
    EXPECT_NE(refused.find("Retry-After: "), std::string::npos);
    third.reset();
    // Until the third one's end was seen.
    wait_until(
        [&] { return status_of(ask(server.port(), "GET /.cio/health HTTP/1.0\r\n\r\n")) == 200; });
}

TEST(Server_Process, ConnectionsOfOneAddressHaveALimitOfTheirOwn)
{
    const Storage_Server_Process server({"--max-per-address", "1"});
    Raw_Peer first(server.port());
    first.send("GET /.cio/health HTTP/1.1\r\nHost: h\r\n\r\n");
    first.read_to("ok\n");
    EXPECT_EQ(status_of(ask(server.port(), "GET / HTTP/1.1\r\nHost: h\r\n\r\n")), 503);
}
