#include "servers/common/server_worker.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <utility>

namespace asio = boost::asio;

namespace
{

/// How often it looks for peers that take too long.
constexpr std::chrono::milliseconds sweep_period{250};

} // namespace

Server_Worker::Server_Worker(Server_Context& context, Connection_Count& count)
    : context_(context), count_(count)
{
    asio::co_spawn(loop_, sweep(), asio::detached);
    thread_ = std::thread([this] { loop_.run(); });
}

Server_Worker::~Server_Worker()
{
    loop_.stop();
    thread_.join();
}

void Server_Worker::serve(Peer_Stream::Socket socket, std::string address,
                          std::shared_ptr<SSL_CTX> tls, bool refused)
{
    asio::co_spawn(loop_,
                   run_connection(std::move(socket), std::move(address), std::move(tls), refused),
                   asio::detached);
}

void Server_Worker::stop()
{
    asio::post(loop_, [this] {
        stops_ = true;
        for (Server_Connection* const connection : connections_)
            connection->stop();
    });
}

void Server_Worker::cut()
{
    asio::post(loop_, [this] {
        for (Server_Connection* const connection : connections_)
            connection->cut();
    });
}

asio::awaitable<void> Server_Worker::run_connection(Peer_Stream::Socket socket, std::string address,
                                                    std::shared_ptr<SSL_CTX> tls, bool refused)
{
    Server_Connection connection(context_, std::move(socket), std::move(tls), refused);
    connections_.insert(&connection);
    ++context_.metrics.connections_open;
    if (stops_)
        connection.stop();
    try {
        co_await connection.run();
    } catch (const std::exception&) {
        // Out of memory, say: this connection ends, the others go on.
        connection.cut();
    }
    --context_.metrics.connections_open;
    connections_.erase(&connection);
    count_.leave(address);
}

asio::awaitable<void> Server_Worker::sweep()
{
    while (true) {
        sweep_timer_.expires_after(sweep_period);
        co_await sweep_timer_.async_wait(asio::use_awaitable);
        const Peer_Deadline::Time now = std::chrono::steady_clock::now();
        for (Server_Connection* const connection : connections_)
            connection->check_time(now);
    }
}
