#pragma once

#include "servers/common/peer_deadline.h"

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <memory>
#include <openssl/ssl.h>
#include <span>
#include <string_view>

/// One connection's bytes, with or without TLS.
///
/// Tries first and waits when the system has nothing to give, so a fast peer costs one system call
/// a buffer. Used on its worker's thread only; so are interrupt() and cut(), which end a wait.
class Peer_Stream
{
public:
    using Socket = boost::asio::ip::tcp::socket;

    /// @param tls  NULL: without TLS
    Peer_Stream(Socket socket, std::shared_ptr<SSL_CTX> tls, Peer_Deadline& deadline);

    bool is_encrypted() const { return ssl_ != nullptr; }
    /// Agrees upon keys; nothing to do without TLS.
    boost::asio::awaitable<bool> handshake();

    /// Reads what there is, at least one byte. The buffer is not touched while this waits, so
    /// connections of one thread may share one.
    /// @return bytes; 0 at the end; -1 on failure
    boost::asio::awaitable<std::int64_t> read(std::span<char> buffer);
    /// Writes everything. @param more  more follows at once, so packets need not go out yet
    boost::asio::awaitable<bool> write(std::string_view data, bool more = false);
    /// Sends from a file without copying; not with TLS.
    /// @return false on failure, also when the file ends before
    boost::asio::awaitable<bool> send_file(int file, std::uint64_t offset, std::uint64_t size);

    /// Says that nothing more is written; the peer may still be.
    void end_output();
    /// Whether the peer has closed its side, or the connection is broken.
    bool is_peer_gone();

    /// The present wait, and every operation up to resume(), fails.
    void interrupt();
    bool is_interrupted() const { return interrupted_; }
    void resume() { interrupted_ = false; }
    /// Ends the connection: every operation fails from now on.
    void cut();
    bool is_cut() const { return !socket_.is_open(); }

private:
    struct Free
    {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    bool is_usable() const { return !interrupted_ && socket_.is_open(); }
    boost::asio::awaitable<bool> wait(Socket::wait_type what);
    /// After an operation of TLS: waits for what it needs. @return whether to try again
    boost::asio::awaitable<bool> wait_for_tls(int result);
    /// Lets others have the thread when this connection had it for long.
    boost::asio::awaitable<void> take_turn();
    void moved(std::uint64_t bytes);

    Socket socket_;
    std::shared_ptr<SSL_CTX> tls_;
    std::unique_ptr<SSL, Free> ssl_;
    Peer_Deadline& deadline_;
    std::uint64_t since_wait_ = 0; ///< bytes
    bool interrupted_ = false;
};
