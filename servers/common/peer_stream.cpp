#include "servers/common/peer_stream.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <cerrno>
#include <openssl/err.h>
#include <poll.h>
#include <sys/sendfile.h>
#include <sys/socket.h>

namespace asio = boost::asio;

namespace
{

/// So many bytes in a row, then it is somebody else's turn.
constexpr std::uint64_t turn = 4U << 20U;
constexpr std::uint64_t most_at_once = 1U << 20U;

bool would_block()
{
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

} // namespace

Peer_Stream::Peer_Stream(Socket socket, std::shared_ptr<SSL_CTX> tls, Peer_Deadline& deadline)
    : socket_(std::move(socket)), tls_(std::move(tls)), deadline_(deadline)
{
    boost::system::error_code ignored;
    socket_.non_blocking(true, ignored);
    socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
    socket_.set_option(asio::socket_base::keep_alive(true), ignored);
    if (tls_ == nullptr)
        return;
    ssl_.reset(SSL_new(tls_.get()));
    if (ssl_ == nullptr || SSL_set_fd(ssl_.get(), socket_.native_handle()) != 1)
        cut();
}

asio::awaitable<bool> Peer_Stream::handshake()
{
    if (ssl_ == nullptr)
        co_return is_usable();
    while (is_usable()) {
        ERR_clear_error();
        const int result = SSL_accept(ssl_.get());
        if (result == 1)
            co_return true;
        const bool again = co_await wait_for_tls(result);
        if (!again)
            break;
    }
    co_return false;
}

asio::awaitable<std::int64_t> Peer_Stream::read(std::span<char> buffer)
{
    // Not behind the system call: what was read has to be handed out without a wait.
    co_await take_turn();
    while (is_usable()) {
        if (ssl_ == nullptr) {
            const ssize_t n = ::recv(socket_.native_handle(), buffer.data(), buffer.size(), 0);
            if (n >= 0) {
                moved(static_cast<std::uint64_t>(n));
                co_return n;
            }
            if (errno == EINTR)
                continue;
            if (!would_block())
                break;
            const bool ready = co_await wait(Socket::wait_read);
            if (!ready)
                break;
            continue;
        }
        // TLS hands out a record at a time; several fill the buffer.
        std::size_t size = 0;
        int result = 1;
        while (result > 0 && size < buffer.size()) {
            std::size_t n = 0;
            ERR_clear_error();
            result = SSL_read_ex(ssl_.get(), buffer.data() + size, buffer.size() - size, &n);
            size += result > 0 ? n : 0;
        }
        if (size > 0) {
            moved(size);
            co_return static_cast<std::int64_t>(size);
        }
        if (SSL_get_error(ssl_.get(), result) == SSL_ERROR_ZERO_RETURN)
            co_return 0;
        const bool again = co_await wait_for_tls(result);
        if (!again)
            break;
    }
    co_return -1;
}

asio::awaitable<bool> Peer_Stream::write(std::string_view data, bool more)
{
    while (!data.empty() && is_usable()) {
        co_await take_turn();
        std::size_t n = 0;
        if (ssl_ != nullptr) {
            ERR_clear_error();
            const int result = SSL_write_ex(ssl_.get(), data.data(), data.size(), &n);
            if (result <= 0) {
                const bool again = co_await wait_for_tls(result);
                if (!again)
                    co_return false;
                continue;
            }
        } else {
            const ssize_t sent = ::send(socket_.native_handle(), data.data(), data.size(),
                                        MSG_NOSIGNAL | (more ? MSG_MORE : 0));
            if (sent < 0) {
                if (errno == EINTR)
                    continue;
                if (!would_block())
                    co_return false;
                const bool ready = co_await wait(Socket::wait_write);
                if (!ready)
                    co_return false;
                continue;
            }
            n = static_cast<std::size_t>(sent);
        }
        data.remove_prefix(n);
        moved(n);
    }
    const bool written = data.empty();
    co_return written;
}

asio::awaitable<bool> Peer_Stream::send_file(int file, std::uint64_t offset, std::uint64_t size)
{
    auto place = static_cast<off_t>(offset);
    while (size > 0 && is_usable()) {
        co_await take_turn();
        const ssize_t n = ::sendfile(socket_.native_handle(), file, &place,
                                     static_cast<std::size_t>(std::min(size, most_at_once)));
        if (n > 0) {
            size -= static_cast<std::uint64_t>(n);
            moved(static_cast<std::uint64_t>(n));
            continue;
        }
        if (n == 0)
            co_return false;
        if (errno == EINTR)
            continue;
        if (!would_block())
            co_return false;
        const bool ready = co_await wait(Socket::wait_write);
        if (!ready)
            co_return false;
    }
    co_return size == 0;
}

bool Peer_Stream::is_peer_gone()
{
    pollfd peer = {socket_.native_handle(), POLLRDHUP, 0};
    return ::poll(&peer, 1, 0) > 0;
}

void Peer_Stream::end_output()
{
    boost::system::error_code ignored;
    if (ssl_ != nullptr && is_usable()) {
        ERR_clear_error();
        (void)SSL_shutdown(ssl_.get());
    }
    socket_.shutdown(Socket::shutdown_send, ignored);
}

void Peer_Stream::interrupt()
{
    boost::system::error_code ignored;
    interrupted_ = true;
    socket_.cancel(ignored);
}

void Peer_Stream::cut()
{
    boost::system::error_code ignored;
    socket_.close(ignored);
}

asio::awaitable<bool> Peer_Stream::wait(Socket::wait_type what)
{
    boost::system::error_code error;
    since_wait_ = 0;
    co_await socket_.async_wait(what, asio::redirect_error(asio::use_awaitable, error));
    co_return !error && is_usable();
}

asio::awaitable<bool> Peer_Stream::wait_for_tls(int result)
{
    switch (SSL_get_error(ssl_.get(), result)) {
    case SSL_ERROR_WANT_READ:
        co_return co_await wait(Socket::wait_read);
    case SSL_ERROR_WANT_WRITE:
        co_return co_await wait(Socket::wait_write);
    default:
        co_return false;
    }
}

asio::awaitable<void> Peer_Stream::take_turn()
{
    if (since_wait_ < turn)
        co_return;
    since_wait_ = 0;
    co_await asio::post(socket_.get_executor(), asio::use_awaitable);
}

void Peer_Stream::moved(std::uint64_t bytes)
{
    deadline_.moved(bytes);
    since_wait_ += bytes;
}
