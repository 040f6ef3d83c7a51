#include "platform/http/http_session.h"

#include <arpa/inet.h>
#include <boost/asio/error.hpp>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

class Socket
{
public:
    Socket() : handle_(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)) {}
    ~Socket() { close(handle_); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int get() const { return handle_; }

private:
    int handle_;
};

TEST(HTTP_Connect_Posix, AConnectIsWaitedForNoLongerThanTheLimit)
{
    // Linux answers no more connects once as many wait to be accepted as may.
    const Socket listener;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(bind(listener.get(), any, size), 0);
    ASSERT_EQ(listen(listener.get(), 0), 0);
    ASSERT_EQ(getsockname(listener.get(), any, &size), 0);
    const Socket first;
    const Socket second;
    connect(first.get(), any, size);
    connect(second.get(), any, size);

    const HTTP_Session::Ptr session = HTTP_Session_Factory::create(
        "127.0.0.1", ntohs(address.sin_port), false, "", 3, {}, 20, 20, 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(session->connect().get(), nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(950));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(session->last_error(), static_cast<int>(boost::asio::error::timed_out));
}

} // namespace
