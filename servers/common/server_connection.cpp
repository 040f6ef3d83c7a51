#include "servers/common/server_connection.h"

#include "servers/common/blocking_work.h"
#include "servers/common/request_target.h"

#include <array>
#include <exception>

namespace asio = boost::asio;

namespace
{

/// What a peer may still send that was told to stop, before it has to read that.
constexpr std::uint64_t most_lingering = 64U << 20U;
constexpr std::chrono::seconds linger_time{5};

Peer_Deadline::Time now()
{
    return std::chrono::steady_clock::now();
}

/// The peer's address, without telling IPv4 in IPv6 form from IPv4.
asio::ip::address peer_address(const Peer_Stream::Socket& socket)
{
    boost::system::error_code ignored;
    const asio::ip::address address = socket.remote_endpoint(ignored).address();
    return address.is_v6() && address.to_v6().is_v4_mapped()
               ? asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6())
               : address;
}

/// A block for reading heads. Nothing stays in it while a connection waits, so the connections of a
/// thread share one.
std::span<char> scratch()
{
    static thread_local std::array<char, 16384> block;
    return block;
}

} // namespace

Server_Connection::Server_Connection(Server_Context& context, Peer_Stream::Socket socket,
                                     std::shared_ptr<SSL_CTX> tls, bool refused)
    : context_(context), address_(peer_address(socket).to_string()),
      is_local_(peer_address(socket).is_loopback()),
      stream_(std::move(socket), std::move(tls), deadline_), refused_(refused)
{}

asio::awaitable<void> Server_Connection::run()
{
    idle_ = true;
    deadline_.set(now(), context_.limits.head_time);
    const bool agreed = co_await stream_.handshake();
    idle_ = false;
    if (agreed)
        co_await serve_requests();
    stream_.cut();
}

void Server_Connection::check_time(Peer_Deadline::Time time)
{
    if (!deadline_.passed(time))
        return;
    deadline_.clear();
    if (!idle_)
        ++context_.metrics.timeouts;
    stream_.interrupt();
}

void Server_Connection::stop()
{
    stops_ = true;
    if (idle_)
        stream_.cut();
    else if (exchange_ != nullptr)
        exchange_->close_connection();
}

asio::awaitable<void> Server_Connection::serve_requests()
{
    bool keep = true;
    for (bool first = true; keep; first = false) {
        HTTP_Exchange exchange(stream_, deadline_, context_.limits, input_);
        idle_ = input_.empty();
        if (stops_ && idle_)
            break;
        deadline_.set(now(),
                      idle_ && !first ? context_.limits.idle_time : context_.limits.head_time);
        const Head head = co_await read_head(exchange);
        if (head == Head::end)
            break;
        const Peer_Deadline::Time start = now();
        if (head == Head::complete) {
            if (!exchange.head.keep_alive || stops_)
                exchange.close_connection();
            exchange_ = &exchange;
            co_await serve(exchange);
            exchange_ = nullptr;
        }
        record(exchange, start);
        keep = exchange.keeps_connection();
        // A connection that is closed with bytes unread is reset, and the answer may be lost with
        // it.
        const bool unread = head != Head::complete || refused_ || exchange.has_unread_body();
        if (keep || exchange.failed())
            continue;
        stream_.end_output();
        if (unread)
            co_await linger();
    }
}

asio::awaitable<Server_Connection::Head> Server_Connection::read_head(HTTP_Exchange& exchange)
{
    const HTTP_Head_Limits limits{context_.limits.head_bytes, context_.limits.head_fields};
    std::string reason;
    std::size_t used = 0;
    auto result = HTTP_Parse_Result::incomplete;
    while (true) {
        // What comes in many small pieces is looked at when it may be whole.
        if (input_.size() >= limits.bytes || input_.find("\n\n") != std::string::npos ||
            input_.find("\n\r\n") != std::string::npos)
            result = parse_request_head(input_, limits, exchange.head, used, reason);
        if (result != HTTP_Parse_Result::incomplete)
            break;
        const std::span<char> block = scratch();
        const std::int64_t n = co_await stream_.read(block);
        if (n <= 0) {
            // Silence between requests is no fault.
            if (!stream_.is_interrupted() || idle_)
                co_return Head::end;
            exchange.close_connection();
            co_await exchange.answer_error(408, "The request did not arrive in time");
            co_return Head::bad;
        }
        if (idle_)
            deadline_.set(now(), context_.limits.head_time);
        idle_ = false;
        input_.append(block.data(), static_cast<std::size_t>(n));
    }
    deadline_.clear();
    if (result == HTTP_Parse_Result::complete) {
        const std::size_t line = input_.find_first_not_of("\r\n");
        exchange.is_http_1_0 = std::string_view(input_)
                                   .substr(line, input_.find('\r', line) - line)
                                   .ends_with(" HTTP/1.0");
        input_.erase(0, used);
        co_return Head::complete;
    }
    exchange.close_connection();
    co_await exchange.answer_error(result == HTTP_Parse_Result::too_large ? 431 : 400, reason);
    co_return Head::bad;
}

asio::awaitable<void> Server_Connection::serve(HTTP_Exchange& exchange)
{
    std::string failure;
    try {
        if (refused_) {
            exchange.close_connection();
            co_await exchange.answer_error(503, "Too many connections");
            co_return;
        }
        const std::string* const expect = exchange.head.headers.get(HTTP_Headers::expect);
        if (expect != nullptr && !equal_without_case(*expect, "100-continue")) {
            co_await exchange.answer_error(417, "This expectation is not met here");
        } else if (!parse_request_target(exchange.head.target, exchange.path)) {
            co_await exchange.answer_error(400, "The request names no path");
        } else if (is_server_path(exchange.path)) {
            co_await serve_own(exchange);
        } else {
            const bool known = co_await authenticate(exchange);
            if (known)
                co_await context_.service.serve(exchange);
        }
        co_return;
    } catch (const std::exception& error) {
        failure = error.what();
    }
    exchange.close_connection();
    if (exchange.status() == 0)
        co_await exchange.answer_error(500, failure);
    else
        exchange.fail_answer();
}

asio::awaitable<bool> Server_Connection::authenticate(HTTP_Exchange& exchange)
{
    const std::shared_ptr<Authenticator> users = context_.users.load();
    if (users == nullptr) {
        // A browser sends it for a page that somebody else has written.
        if (exchange.head.headers.get("Origin") == nullptr)
            co_return true;
        co_await exchange.answer_error(403, "Pages of other servers have no access");
        co_return false;
    }
    const bool passwords = stream_.is_encrypted() || is_local_;
    const std::string* const given = exchange.head.headers.get(HTTP_Headers::authorization);
    auto verdict = Authenticator::Verdict::refused;
    if (given != nullptr && exchange.head.headers.count("Authorization") == 1)
        verdict = users->look_up(*given, passwords, exchange.account);
    if (verdict == Authenticator::Verdict::unknown_yet)
        exchange.account =
            co_await run_blocking(context_.hashing, [&] { return users->verify(*given); });
    if (exchange.account != nullptr)
        co_return true;
    if (given != nullptr)
        ++context_.metrics.authentications_failed;
    HTTP_Headers challenge;
    challenge.put("WWW-Authenticate", passwords ? "Basic realm=\"storage\", charset=\"UTF-8\""
                                                : "Bearer realm=\"storage\"");
    co_await exchange.answer_error(401, "Credentials are missing or wrong", std::move(challenge));
    co_return false;
}

asio::awaitable<void> Server_Connection::serve_own(HTTP_Exchange& exchange)
{
    const bool reads = exchange.head.method == "GET" || exchange.is_head_request();
    HTTP_Headers headers;
    if (exchange.path == ".cio/health" && reads) {
        headers.put(HTTP_Headers::content_type, "text/plain");
        co_await exchange.answer(200, std::move(headers), "ok\n");
        co_return;
    }
    const bool known = co_await authenticate(exchange);
    if (!known)
        co_return;
    if (exchange.path == ".cio/metrics" && reads) {
        headers.put(HTTP_Headers::content_type, "text/plain; version=0.0.4");
        co_await exchange.answer(200, std::move(headers),
                                 context_.metrics.text() + context_.service.metrics());
    } else {
        co_await exchange.answer_error(403, "This name is the server's own");
    }
}

asio::awaitable<void> Server_Connection::linger()
{
    deadline_.set(now(), linger_time);
    std::uint64_t size = 0;
    while (size < most_lingering) {
        const std::int64_t n = co_await stream_.read(scratch());
        if (n <= 0)
            break;
        size += static_cast<std::uint64_t>(n);
    }
    deadline_.clear();
}

void Server_Connection::record(const HTTP_Exchange& exchange, Peer_Deadline::Time start)
{
    const auto duration = now() - start;
    Server_Metrics& metrics = context_.metrics;
    metrics.bytes_received += exchange.received();
    metrics.bytes_sent += exchange.sent();
    metrics.count_request(exchange.head.method, exchange.status(), duration);
    if (context_.log != nullptr)
        context_.log->write({address_, exchange.account ? exchange.account->name : "",
                             exchange.head.method, exchange.head.target,
                             exchange.is_http_1_0 ? "HTTP/1.0" : "HTTP/1.1", exchange.status(),
                             exchange.sent(), exchange.received(), duration});
}
