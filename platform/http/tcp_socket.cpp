#include "platform/http/tcp_socket.h"

#include "platform/runtime/format.h"

#include <ace/ACE.h>
#include <ace/OS_NS_errno.h>
#include <ace/Time_Value.h>
#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/system/system_error.hpp>
#include <utility>
#include <vector>

namespace asio = boost::asio;
using boost::system::error_code;
using std::chrono::milliseconds;

namespace
{

using Endpoints = std::vector<asio::ip::tcp::endpoint>;

/// @param text  what to say where the number is not one of the system's
void set_error(Transport_Error& error, const error_code& code)
{
    // The resolver has numbers of its own.
    const bool of_system = code.category() == boost::system::system_category();
    error.code = of_system ? code.value() : static_cast<int>(asio::error::host_unreachable);
    error.text = of_system ? std::string() : code.message();
}

void set_timed_out(Transport_Error& error)
{
    error.code = static_cast<int>(asio::error::timed_out);
    error.text.clear();
}

Endpoints look_up(asio::io_context& io, const std::string& host, unsigned short port,
                  error_code& code)
{
    asio::ip::tcp::resolver resolver(io);
    Endpoints endpoints;
    for (const auto& found : resolver.resolve(host, std::to_string(port),
                                              asio::ip::resolver_base::numeric_service, code))
        endpoints.push_back(found.endpoint());
    return endpoints;
}

/// Binds the socket to the address of its family among those given.
void bind_to(asio::ip::tcp::socket& socket, const Endpoints& sources,
             const asio::ip::tcp::endpoint& destination, error_code& code)
{
    code = {};
    if (sources.empty())
        return;
    code = asio::error::address_family_not_supported;
    for (const auto& source : sources) {
        if (source.protocol() != destination.protocol())
            continue;
        socket.bind(source, code);
        if (!code)
            return;
    }
}

} // namespace

milliseconds Deadline::left() const
{
    // Rounded up, so that what is left never becomes a wait of 0 that begins over and over.
    return std::max(std::chrono::ceil<milliseconds>(end_ - Clock::now()), milliseconds(0));
}

struct TCP_Socket::Connected
{
    asio::io_context io{1};
    asio::ip::tcp::socket socket{io};

    void connect(const asio::ip::tcp::endpoint& endpoint, const Endpoints& sources,
                 milliseconds timeout, error_code& code);
};

void TCP_Socket::Connected::connect(const asio::ip::tcp::endpoint& endpoint,
                                    const Endpoints& sources, milliseconds timeout,
                                    error_code& code)
{
    error_code ignored;
    socket.close(ignored);
    socket.open(endpoint.protocol(), code);
    if (code)
        return;
    bind_to(socket, sources, endpoint, code);
    if (code)
        return;
    code = asio::error::would_block;
    socket.async_connect(endpoint, [&code](const error_code& result) { code = result; });
    io.restart();
    io.run_for(timeout);
    if (code == asio::error::would_block) {
        socket.close(ignored);
        io.restart();
        io.run(); // the handler refers to what is ours
        code = asio::error::timed_out;
    }
}

TCP_Socket::TCP_Socket(std::unique_ptr<Connected> connected) : connected_(std::move(connected)) {}

TCP_Socket::~TCP_Socket() = default;

std::unique_ptr<TCP_Socket> TCP_Socket::connect(const std::string& host, unsigned short port,
                                                const std::string& source_address,
                                                milliseconds timeout, Transport_Error& error)
try {
    auto connected = std::make_unique<Connected>();
    error_code code;
    Endpoints sources;
    if (!source_address.empty())
        sources = look_up(connected->io, source_address, 0, code);
    const Endpoints endpoints = code ? Endpoints() : look_up(connected->io, host, port, code);
    if (!code && endpoints.empty())
        code = asio::error::host_not_found;

    const Deadline deadline(timeout);
    for (std::size_t tried = 0; tried < endpoints.size(); ++tried) {
        const auto share = deadline.left() / static_cast<int>(endpoints.size() - tried);
        connected->connect(endpoints[tried], sources, share, code);
        if (code)
            continue;
        connected->socket.non_blocking(true, code);
        error_code ignored; // it only saves time
        connected->socket.set_option(asio::ip::tcp::no_delay(true), ignored);
        if (!code)
            return std::unique_ptr<TCP_Socket>(new TCP_Socket(std::move(connected)));
    }
    set_error(error, code);
    return nullptr;
} catch (const boost::system::system_error& failure) {
    set_error(error, failure.code()); // no handle is left
    return nullptr;
}

std::int64_t TCP_Socket::receive(void* buffer, std::size_t size, const Deadline& deadline,
                                 Transport_Error& error)
{
    for (;;) {
        error_code code;
        const std::size_t n = connected_->socket.read_some(asio::buffer(buffer, size), code);
        if (!code)
            return static_cast<std::int64_t>(n);
        if (code == asio::error::eof)
            return 0;
        if (code == asio::error::interrupted)
            continue;
        if (code != asio::error::would_block) {
            set_error(error, code);
            return -1;
        }
        if (!wait(true, deadline.left(), error))
            return -1;
    }
}

bool TCP_Socket::send(const Piece* pieces, std::size_t count, milliseconds timeout,
                      std::uint64_t& sent, Transport_Error& error)
{
    constexpr std::size_t most = 3;
    std::array<asio::const_buffer, most> buffers;
    for (std::size_t index = 0; index < std::min(count, most); ++index)
        buffers[index] = asio::buffer(pieces[index].data, pieces[index].size);
    const auto advance = [&buffers](std::size_t n) {
        for (asio::const_buffer& buffer : buffers) {
            const std::size_t taken = std::min(n, buffer.size());
            buffer += taken;
            n -= taken;
        }
    };
    sent = 0;
    while (asio::buffer_size(buffers) != 0) {
        error_code code;
        const std::size_t n = connected_->socket.write_some(buffers, code);
        sent += n;
        advance(n);
        if (!code || code == asio::error::interrupted)
            continue;
        if (code != asio::error::would_block) {
            set_error(error, code);
            return false;
        }
        if (!wait(false, timeout, error))
            return false;
    }
    return true;
}

bool TCP_Socket::is_readable() const
{
    Transport_Error ignored;
    return wait(true, milliseconds(0), ignored);
}

bool TCP_Socket::has_bytes()
{
    char first = 0;
    error_code code;
    return connected_->socket.receive(asio::buffer(&first, 1), asio::socket_base::message_peek,
                                      code) != 0;
}

bool TCP_Socket::wait(bool to_read, milliseconds timeout, Transport_Error& error) const
{
    const Deadline deadline(timeout);
    const ACE_SOCKET socket = connected_->socket.native_handle();
    const auto handle = (ACE_HANDLE)socket; // of another type on Windows
    for (;;) {
        const auto left = deadline.left();
        ACE_Time_Value time(static_cast<time_t>(left.count() / 1000),
                            static_cast<suseconds_t>(left.count() % 1000 * 1000));
        const int ready = ACE::handle_ready(handle, &time, to_read, !to_read, false);
        if (ready > 0)
            return true;
        if (ready == 0 || left.count() == 0) {
            set_timed_out(error);
            return false;
        }
        if (errno != EINTR && errno != ETIME) {
            set_error(error, error_code(ACE_OS::last_error(), boost::system::system_category()));
            return false;
        }
    }
}
