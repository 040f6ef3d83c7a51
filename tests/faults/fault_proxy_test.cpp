#include "tests/faults/fault_proxy.h"

#include "tests/support/scripted_server.h"

#include <boost/asio.hpp>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace
{

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using Connection = Scripted_Server::Connection;
using enum Proxy_Fault_Kind;
using enum Proxy_Direction;

/// A client of a proxy. Wine tells it now and then of an orderly end where it was reset.
class Client
{
public:
    explicit Client(const Fault_Proxy& proxy)
    {
        socket_.connect({asio::ip::address_v4::loopback(), proxy.port()}, error_);
    }

    void send(const std::string& data) { asio::write(socket_, asio::buffer(data), error_); }
    std::string receive(std::size_t size)
    {
        std::string data(size, '\0');
        data.resize(asio::read(socket_, asio::buffer(data), error_));
        return data;
    }
    std::string receive_all() { return receive(1000000); }
    void half_close() { socket_.shutdown(tcp::socket::shutdown_send); }
    /// How the last operation ended.
    error_code error() const { return error_; }
    tcp::socket& socket() { return socket_; }

private:
    asio::io_context context_;
    tcp::socket socket_{context_};
    error_code error_;
};

const std::string request = "GET / HTTP/1.1\r\n\r\n"; // 18 bytes
const std::string upload = "PUT / HTTP/1.1\r\nContent-Length: 10\r\n\r\n0123456789";
const std::size_t upload_head = upload.size() - 10;

/// The same fault for the first connection, none for the others.
Proxy_Plan at_first(const Proxy_Fault& fault)
{
    return [fault](std::uint64_t connection) { return connection == 0 ? fault : Proxy_Fault(); };
}

void answer(Connection& connection)
{
    connection.request();
    connection.send("answer");
}

TEST(Fault_Proxy_Test, WithoutAFaultItIsNotNoticed)
{
    const std::string body(3000000, 'b');
    Scripted_Server server({[&](Connection& connection) {
        connection.request();
        connection.send(body);
        connection.half_close();
    }});
    Fault_Proxy proxy(server.port());
    {
        Client client(proxy);
        const std::string head = "PUT / HTTP/1.1\r\nContent-Length: 3000000\r\n\r\n";
        client.send(head + body);
        EXPECT_TRUE(client.receive(body.size()) == body);
        EXPECT_EQ(client.receive(1), "");
        EXPECT_EQ(client.error(), asio::error::eof);
        const Fault_Proxy::Counts counts = proxy.counts();
        EXPECT_EQ(counts.connections, 1U);
        EXPECT_EQ(counts.bytes_to_server, head.size() + body.size());
        EXPECT_EQ(counts.bytes_to_client, body.size());
        for (std::size_t kind = 0; kind < proxy_fault_kinds; ++kind)
            EXPECT_EQ(counts.faults.at(kind), 0U) << kind;
    }
    server.finish();
    EXPECT_TRUE(server.requests().at(0).body == body);
}

TEST(Fault_Proxy_Test, AHalfClosedConnectionIsForwarded)
{
    Scripted_Server server({[](Connection& connection) {
        connection.request();
        connection.send("answer");
    }});
    Fault_Proxy proxy(server.port());
    {
        Client client(proxy);
        client.send(request);
        client.half_close();
        EXPECT_EQ(client.receive_all(), "answer");
    }
    server.finish();
}

TEST(Fault_Proxy_Test, ARefusedConnectionDoesNotReachTheServer)
{
    Scripted_Server server({answer});
    Fault_Proxy proxy(server.port(), at_first({.kind = refuse}));
    {
        Client refused(proxy);
        EXPECT_EQ(refused.receive(1), "");
        Client client(proxy);
        client.send(request);
        EXPECT_EQ(client.receive(6), "answer");
    }
    server.finish();
    EXPECT_EQ(server.connections(), 1U);
    EXPECT_EQ(proxy.counts().of(refuse), 1U);
    EXPECT_EQ(proxy.counts().connections, 2U);
}

TEST(Fault_Proxy_Test, AConnectionWhoseServerIsNotThereEnds)
{
    Fault_Proxy nobody(1);
    nobody.set_listening(false);
    Fault_Proxy proxy(nobody.port());
    Client client(proxy);
    EXPECT_EQ(client.receive(1), "");
}

TEST(Fault_Proxy_Test, WhileItDoesNotListenTheSystemRefuses)
{
    Scripted_Server server({answer});
    Fault_Proxy proxy(server.port());
    proxy.set_listening(false);
    EXPECT_EQ(Client(proxy).error(), asio::error::connection_refused);
    proxy.set_listening(true);
    {
        Client client(proxy);
        client.send(request);
        EXPECT_EQ(client.receive(6), "answer");
    }
    server.finish();
    EXPECT_EQ(proxy.counts().connections, 1U);
}

TEST(Fault_Proxy_Test, UploadsBreakAtTheirPlace)
{
    for (const Proxy_Fault_Kind kind : {cut, reset, half_close})
        for (const std::size_t size : {0U, 1U, 9U}) {
            SCOPED_TRACE(std::string(name_of(kind)) + ' ' + std::to_string(size));
            std::string came;
            Scripted_Server server({[&](Connection& connection) {
                connection.head();
                came = connection.part_of_body(size).body;
                // An answer to what came before the fault could overtake it.
                connection.stall();
                connection.send("answer"); // which a half-closed connection still forwards
                connection.half_close();
            }});
            Fault_Proxy proxy(server.port(),
                              at_first({.kind = kind,
                                        .direction = to_server,
                                        .after = upload_head + size,
                                        .when_it_happens = [&] { server.release(); }}));
            {
                Client client(proxy);
                client.send(upload);
                EXPECT_EQ(client.receive_all(), kind == half_close ? "answer" : "");
            }
            server.finish();
            EXPECT_EQ(came, upload.substr(upload_head, size));
            EXPECT_EQ(proxy.counts().of(kind), 1U);
            EXPECT_EQ(proxy.counts().bytes_to_server, upload_head + size);
        }
}

TEST(Fault_Proxy_Test, AnswersBreakAtTheirPlace)
{
    for (const Proxy_Fault_Kind kind : {cut, reset, half_close})
        for (const std::size_t size : {1U, 5U, 6U}) {
            SCOPED_TRACE(std::string(name_of(kind)) + ' ' + std::to_string(size));
            Scripted_Server server({answer});
            const Proxy_Fault fault{.kind = kind, .direction = to_client, .after = size};
            Fault_Proxy proxy(server.port(), at_first(fault));
            {
                Client client(proxy);
                client.send(request);
                const std::string came = client.receive_all();
                // A reset may overtake what was sent before it, or come as an end behind that.
                if (kind != reset) {
                    EXPECT_EQ(came, std::string("answer").substr(0, size));
                    EXPECT_EQ(client.error(), asio::error::eof);
                }
            }
            server.finish();
            EXPECT_EQ(server.requests().at(0).head, request);
            EXPECT_EQ(proxy.counts().of(kind), 1U);
            EXPECT_EQ(proxy.counts().bytes_to_client, size);
        }
}

TEST(Fault_Proxy_Test, AFaultBeforeTheFirstByteNeedsNone)
{
    Scripted_Server server({[](Connection&) {}});
    Fault_Proxy proxy(server.port(), at_first({.kind = cut, .direction = to_client, .after = 0}));
    EXPECT_EQ(Client(proxy).receive_all(), "");
    server.finish();
    EXPECT_EQ(proxy.counts().of(cut), 1U);
}

TEST(Fault_Proxy_Test, AFaultBehindTheLastByteDoesNotHappen)
{
    Scripted_Server server({answer});
    Fault_Proxy proxy(server.port(), at_first({.kind = reset, .after = request.size() + 1}));
    {
        Client client(proxy);
        client.send(request);
        EXPECT_EQ(client.receive(6), "answer");
    }
    server.finish();
    EXPECT_EQ(proxy.counts().of(reset), 0U);
}

TEST(Fault_Proxy_Test, AStalledUploadGoesOnWhenItIsReleased)
{
    Scripted_Server server({[](Connection& connection) {
        connection.head();
        connection.part_of_body(4);
        connection.send("four");
        connection.body();
        connection.send("all");
    }});
    Fault_Proxy proxy(server.port(), at_first({.kind = stall, .after = upload_head + 4}));
    {
        Client client(proxy);
        client.send(upload);
        EXPECT_EQ(client.receive(4), "four");
        EXPECT_EQ(proxy.counts().bytes_to_server, upload_head + 4);
        proxy.release();
        EXPECT_EQ(client.receive(3), "all");
    }
    server.finish();
    EXPECT_EQ(server.requests().at(0).body, "0123456789");
    EXPECT_EQ(proxy.counts().of(stall), 1U);
}

TEST(Fault_Proxy_Test, AStalledAnswerComesWhenItIsReleased)
{
    Scripted_Server server({answer});
    Fault_Proxy proxy(server.port(), at_first({.kind = stall, .direction = to_client, .after = 2}));
    {
        Client client(proxy);
        client.send(request);
        EXPECT_EQ(client.receive(2), "an");
        proxy.release();
        EXPECT_EQ(client.receive(4), "swer");
    }
    server.finish();
}

TEST(Fault_Proxy_Test, AClientThatGivesUpEndsAStalledConnection)
{
    std::size_t came = 0;
    Scripted_Server server({
        [&](Connection& connection) {
            connection.head();
            came = connection.part_of_body(4).body.size();
        },
        answer,
    });
    Fault_Proxy proxy(server.port(), [](std::uint64_t connection) {
        return connection == 0 ? Proxy_Fault{.kind = stall, .after = upload_head + 4}
                               : Proxy_Fault{.kind = stall, .direction = to_client, .after = 0};
    });
    {
        Client client(proxy);
        client.send(upload);
        Client other(proxy);
        other.send(request);
        while (proxy.counts().bytes_to_server < upload_head + 4 + request.size())
            std::this_thread::yield();
    }
    // Waits for the server to see the end of both.
    server.finish();
    EXPECT_EQ(came, 4U);
    EXPECT_EQ(proxy.counts().of(stall), 2U);
    EXPECT_EQ(proxy.counts().bytes_to_client, 0U);
}

TEST(Fault_Proxy_Test, WhatIsLateComesWhenAnotherConnectionWasAnswered)
{
    std::string before_the_answer;
    Scripted_Server* running = nullptr;
    Scripted_Server server({
        [](Connection& connection) {
            connection.head();
            connection.part_of_body(4);
            connection.body();
        },
        [&](Connection& connection) {
            connection.request();
            before_the_answer = running->requests().at(0).body;
            connection.send("answer");
        },
    });
    running = &server;
    Fault_Proxy proxy(server.port(), at_first({.kind = late, .after = upload_head + 4}));
    {
        Client reset(proxy);
        reset.send(upload);
        EXPECT_EQ(reset.receive_all(), "");
        while (server.requests().empty() || server.requests()[0].body.size() < 4)
            std::this_thread::yield();
        Client client(proxy);
        client.send(request);
        EXPECT_EQ(client.receive(6), "answer");
    }
    server.finish();
    EXPECT_EQ(before_the_answer, "0123");
    EXPECT_EQ(server.requests()[0].body, "0123456789");
    EXPECT_EQ(proxy.counts().of(late), 1U);
}

TEST(Fault_Proxy_Test, WhatDripsArrivesWhole)
{
    Scripted_Server server({[](Connection& connection) {
        connection.request();
        connection.send("a longer answer");
    }});
    Fault_Proxy proxy(server.port(), at_first({.kind = drip, .direction = to_client, .after = 2}));
    {
        Client client(proxy);
        client.send(upload);
        EXPECT_EQ(client.receive(15), "a longer answer");
    }
    server.finish();
    EXPECT_EQ(proxy.counts().of(drip), 1U);
    EXPECT_EQ(proxy.counts().bytes_to_client, 15U);
}

TEST(Fault_Proxy_Test, ARepeatedAnswerComesTwice)
{
    Scripted_Server server({[](Connection& connection) {
        connection.request();
        connection.send("one");
        connection.request();
        connection.send("two");
        connection.request();
        connection.send("three");
    }});
    Fault_Proxy proxy(server.port(),
                      at_first({.kind = repeat, .direction = to_client, .after = 5}));
    {
        Client client(proxy);
        client.send(request);
        EXPECT_EQ(client.receive(3), "one");
        client.send(request);
        EXPECT_EQ(client.receive(6), "twotwo");
        client.send(request);
        EXPECT_EQ(client.receive(5), "three");
    }
    server.finish();
    EXPECT_EQ(proxy.counts().of(repeat), 1U);
    EXPECT_EQ(proxy.counts().bytes_to_client, 14U);
}

TEST(Fault_Proxy_Test, WhatHappensCanMoveTheServer)
{
    Scripted_Server old_server({[](Connection& connection) { connection.head(); }});
    Scripted_Server new_server({answer});
    Fault_Proxy* running = nullptr;
    Fault_Proxy proxy(old_server.port(),
                      at_first({.kind = cut, .after = upload_head, .when_it_happens = [&] {
                                    running->set_server(new_server.port());
                                }}));
    running = &proxy;
    {
        Client first(proxy);
        first.send(upload);
        EXPECT_EQ(first.receive_all(), "");
        Client second(proxy);
        second.send(request);
        EXPECT_EQ(second.receive(6), "answer");
    }
    old_server.finish();
    new_server.finish();
    EXPECT_EQ(new_server.connections(), 1U);
}

TEST(Fault_Proxy_Test, APlanCountsItsOwnConnections)
{
    std::vector<std::uint64_t> asked;
    const Proxy_Plan plan = [&](std::uint64_t connection) {
        asked.push_back(connection);
        return Proxy_Fault{.kind = refuse};
    };
    Fault_Proxy proxy(1, plan);
    Client(proxy).receive(1);
    Client(proxy).receive(1);
    proxy.set_plan(plan);
    Client(proxy).receive(1);
    EXPECT_EQ(proxy.counts().of(refuse), 3U);
    EXPECT_EQ(asked, (std::vector<std::uint64_t>{0, 1, 0}));
}

TEST(Fault_Proxy_Test, ItsEndCutsWhatIsLeft)
{
    Scripted_Server server({answer, answer});
    auto proxy = std::make_unique<Fault_Proxy>(
        server.port(), at_first({.kind = stall, .direction = to_client, .after = 0}));
    Client stalled(*proxy);
    stalled.send(request);
    Client idle(*proxy);
    idle.send(request);
    EXPECT_EQ(idle.receive(6), "answer");
    proxy.reset();
    EXPECT_EQ(stalled.receive_all(), "");
    EXPECT_EQ(idle.receive_all(), "");
    server.finish();
}

TEST(Random_Proxy_Fault, DependsOnTheSeedAlone)
{
    const std::vector<Proxy_Fault_Kind> kinds = {refuse, cut,  reset, half_close,
                                                 late,   drip, repeat};
    const auto drawn = [&](std::uint64_t seed) {
        std::mt19937_64 random(seed);
        std::ostringstream text;
        for (int i = 0; i < 200; ++i)
            text << random_proxy_fault(random, kinds, 100000) << '\n';
        return text.str();
    };
    EXPECT_EQ(drawn(1), drawn(1));
    EXPECT_NE(drawn(1), drawn(2));
    for (const Proxy_Fault_Kind kind : kinds)
        EXPECT_NE(drawn(1).find(name_of(kind)), std::string::npos) << name_of(kind);
    EXPECT_EQ(drawn(1).find("late to client"), std::string::npos);
    EXPECT_EQ(drawn(1).find("repeat to server"), std::string::npos);
}

} // namespace
