#include "tests/interop/raw_peer.h"
#include "tests/interop/wait_until.h"
#include "tests/support/storage_server_process.h"

#include <gtest/gtest.h>
#include <thread>

namespace
{

constexpr std::chrono::seconds patience{30};

} // namespace

/// Peers that take their time, and a server that gives them a second.
class Server_Slow_Peer : public testing::Test
{
protected:
    const Storage_Server_Process server_{
        {"--head-time", "1", "--body-time", "1", "--idle-time", "1", "--least-rate", "1000"}};
};

TEST_F(Server_Slow_Peer, SilenceEndsTheConnection)
{
    const Raw_Peer peer(server_.port());
    EXPECT_TRUE(peer.ends_within(patience));
}

TEST_F(Server_Slow_Peer, SilenceBetweenRequestsEndsTheConnectionWithoutAWord)
{
    Raw_Peer peer(server_.port());
    peer.send("GET /.cio/health HTTP/1.1\r\nHost: h\r\n\r\n");
    peer.read_to("ok\n");
    EXPECT_EQ(peer.read_all(), "");
}

TEST_F(Server_Slow_Peer, AHeadThatTricklesInIsCutOff)
{
    Raw_Peer peer(server_.port());
    peer.send("GET / HTTP/1.1\r\n");
    // A byte from time to time buys no time.
    while (peer.send("X") && !peer.ends_within(std::chrono::milliseconds(50)))
        ;
    Raw_Peer second(server_.port());
    second.send("GET / HTTP/1.1\r\nX: ");
    EXPECT_EQ(status_of(second.read_all()), 408);
}

TEST_F(Server_Slow_Peer, ABodyThatTricklesInIsCutOffAndKeepsWhatCame)
{
    Raw_Peer peer(server_.port());
    peer.send("PUT /file HTTP/1.1\r\nHost: h\r\nContent-Length: 1000000\r\n\r\n");
    const auto trickle = [&peer] {
        while (peer.send("x") && !peer.ends_within(std::chrono::milliseconds(20)))
            ;
    };
    trickle();
    const std::string kept = read_local(server_.file("file"));
    EXPECT_GT(kept.size(), 0U);
    EXPECT_LT(kept.size(), 1000U);

    Raw_Peer silent(server_.port());
    silent.send("PUT /other HTTP/1.1\r\nHost: h\r\nContent-Length: 1000000\r\n\r\nabc");
    EXPECT_EQ(status_of(silent.read_all()), 408);
    EXPECT_EQ(read_local(server_.file("other")), "abc");
}

TEST_F(Server_Slow_Peer, ABodyThatKeepsTheRateMayTakeLonger)
{
    Raw_Peer peer(server_.port());
    constexpr int pieces = 30;
    peer.send("PUT /file HTTP/1.1\r\nHost: h\r\nContent-Length: 30000\r\n\r\n");
    for (int i = 0; i < pieces; ++i) {
        ASSERT_TRUE(peer.send(std::string(1000, 'x')));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(status_of(peer.read_to("\r\n\r\n")), 200);
}

TEST_F(Server_Slow_Peer, AReaderThatDoesNotReadIsCutOff)
{
    write_local(server_.file("file"), std::string(50'000'000, 'x'));
    Raw_Peer peer(server_.port(), 4096);
    peer.send("GET /file HTTP/1.1\r\nHost: h\r\n\r\n");
    // Its end is seen without reading, in the server's own count.
    const std::string metrics = "GET /.cio/metrics HTTP/1.0\r\n\r\n";
    wait_until([&] {
        return ask(server_.port(), metrics).find("cio_timeouts_total 1\n") != std::string::npos;
    });
    EXPECT_LT(peer.read_all().size(), 50'000'000U);
}

TEST_F(Server_Slow_Peer, OthersAreServedMeanwhile)
{
    std::vector<std::unique_ptr<Raw_Peer>> slow;
    for (int i = 0; i < 200; ++i) {
        slow.push_back(std::make_unique<Raw_Peer>(server_.port()));
        slow.back()->send("GET / HTTP/1.1\r\n");
    }
    EXPECT_EQ(
        status_of(ask(server_.port(), "GET / HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n")),
        200);
}
