#pragma once

#include "servers/common/access_log.h"
#include "servers/common/authenticator.h"
#include "servers/common/http_exchange.h"
#include "servers/common/http_service.h"
#include "servers/common/peer_stream.h"
#include "servers/common/server_metrics.h"

#include <boost/asio/awaitable.hpp>
#include <boost/asio/thread_pool.hpp>
#include <memory>
#include <string>

/// What the connections of a server have in common.
struct Server_Context
{
    Server_Context(const Server_Limits& own_limits, HTTP_Service& own_service)
        : limits(own_limits), service(own_service)
    {}

    const Server_Limits& limits;
    HTTP_Service& service;
    Server_Metrics metrics;
    Access_Log* log = nullptr; ///< NULL: none
    /// Where passwords are hashed: one at a time, so that guesses hold nobody up but guessers.
    boost::asio::thread_pool hashing{1};
    /// NULL: everybody may do everything. Replaced as a whole.
    std::atomic<std::shared_ptr<Authenticator>> users;
};

/// One connection from its beginning to its end. Used on its worker's thread only.
class Server_Connection
{
public:
    /// @param refused  one too many: it is told so, and that is all
    Server_Connection(Server_Context& context, Peer_Stream::Socket socket,
                      std::shared_ptr<SSL_CTX> tls, bool refused);
    Server_Connection(const Server_Connection&) = delete;
    Server_Connection& operator=(const Server_Connection&) = delete;

    boost::asio::awaitable<void> run();

    /// Called from time to time: ends what takes the peer too long.
    void check_time(Peer_Deadline::Time time);
    /// Ends the connection when it waits for a request, else after the present one.
    void stop();
    /// Ends it at once.
    void cut() { stream_.cut(); }

private:
    enum class Head
    {
        complete,
        end, ///< the peer wants no more, or has gone
        bad,
    };

    boost::asio::awaitable<void> serve_requests();
    boost::asio::awaitable<Head> read_head(HTTP_Exchange& exchange);
    boost::asio::awaitable<void> serve(HTTP_Exchange& exchange);
    boost::asio::awaitable<bool> authenticate(HTTP_Exchange& exchange);
    boost::asio::awaitable<void> serve_own(HTTP_Exchange& exchange);
    boost::asio::awaitable<void> linger();
    void record(const HTTP_Exchange& exchange, Peer_Deadline::Time start);

    Server_Context& context_;
    Peer_Deadline deadline_;
    std::string address_;
    bool is_local_ = false; ///< the peer is this machine
    Peer_Stream stream_;
    bool refused_;
    std::string input_;                 ///< what was read and not yet used
    HTTP_Exchange* exchange_ = nullptr; ///< the request that is being served
    bool idle_ = false;                 ///< waits for a request's first byte
    bool stops_ = false;
};
