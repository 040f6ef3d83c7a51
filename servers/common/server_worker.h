#pragma once

#include "servers/common/connection_count.h"
#include "servers/common/server_connection.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <string>
#include <thread>
#include <unordered_set>

/// One of the server's threads with its loop and the connections that were handed to it.
class Server_Worker
{
public:
    Server_Worker(Server_Context& context, Connection_Count& count);
    /// Ends its connections and its thread.
    ~Server_Worker();
    Server_Worker(const Server_Worker&) = delete;
    Server_Worker& operator=(const Server_Worker&) = delete;

    boost::asio::io_context& loop() { return loop_; }

    /// The following are called on any thread.

    /// Serves a connection whose socket belongs to loop(), and counts it out at its end.
    void serve(Peer_Stream::Socket socket, std::string address, std::shared_ptr<SSL_CTX> tls,
               bool refused);
    /// Ends connections that wait for a request, the others after the present one.
    void stop();
    /// Ends all of them.
    void cut();

private:
    boost::asio::awaitable<void> run_connection(Peer_Stream::Socket socket, std::string address,
                                                std::shared_ptr<SSL_CTX> tls, bool refused);
    boost::asio::awaitable<void> sweep();

    Server_Context& context_;
    Connection_Count& count_;
    boost::asio::io_context loop_{1};
    boost::asio::steady_timer sweep_timer_{loop_};
    std::unordered_set<Server_Connection*> connections_;
    bool stops_ = false;
    std::thread thread_;
};
