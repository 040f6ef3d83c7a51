#include "tests/interop/raw_peer.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr std::chrono::seconds patience{60};

} // namespace

Raw_Peer::Raw_Peer(unsigned short port, int receive_buffer)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const struct timeval limit = {patience.count(), 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (receive_buffer > 0)
        ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    EXPECT_EQ(::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

Raw_Peer::~Raw_Peer()
{
    if (socket_ >= 0)
        ::close(socket_);
}

bool Raw_Peer::send(std::string_view bytes) const
{
    while (!bytes.empty()) {
        const ssize_t n = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n < 0) {
            EXPECT_NE(errno, EAGAIN) << "the server takes nothing and does not say why";
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

void Raw_Peer::end() const
{
    ::shutdown(socket_, SHUT_WR);
}

void Raw_Peer::reset()
{
    const struct linger now = {1, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    ::close(socket_);
    socket_ = -1;
}

std::string Raw_Peer::read_to(std::string_view text)
{
    std::string result;
    char byte = 0;
    while (!result.ends_with(text)) {
        const ssize_t n = ::recv(socket_, &byte, 1, 0);
        if (n <= 0) {
            EXPECT_FALSE(n < 0 && errno == EAGAIN) << "no answer; so far: " << result;
            break;
        }
        result += byte;
    }
    return result;
}

std::string Raw_Peer::read_all()
{
    std::string result;
    char block[65536];
    while (true) {
        const ssize_t n = ::recv(socket_, block, sizeof block, 0);
        if (n <= 0) {
            EXPECT_FALSE(n < 0 && errno == EAGAIN) << "the connection stays; so far: " << result;
            return result;
        }
        result.append(block, static_cast<std::size_t>(n));
    }
}

bool Raw_Peer::ends_within(std::chrono::milliseconds time) const
{
    const auto end = std::chrono::steady_clock::now() + time;
    char block[65536];
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        struct pollfd wait = {socket_, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&wait, 1, static_cast<int>(left.count())) == 0)
            return false;
        if (::recv(socket_, block, sizeof block, 0) <= 0)
            return true;
    }
}

std::string ask(unsigned short port, std::string_view request)
{
    Raw_Peer peer(port);
    peer.send(request);
    return peer.read_all();
}

int status_of(std::string_view text)
{
    constexpr std::string_view start = "HTTP/1.1 ";
    int status = 0;
    if (text.starts_with(start))
        std::from_chars(text.data() + start.size(), text.data() + text.size(), status);
    return status;
}
