#include "platform/http/http_session.h"

#include <algorithm>
#include <boost/asio/error.hpp>
#include <utility>

namespace
{

/// What an answer to a request without a body may hold that is read to keep its connection.
constexpr std::uint64_t max_skipped = 1048576;

unsigned short default_port(bool ssl)
{
    return ssl ? 443 : 80;
}

/// HOST[:PORT] as it stands in a URL.
std::string authority(const std::string& host, unsigned short port, bool ssl)
{
    std::string text = host.find(':') != std::string::npos ? '[' + host + ']' : host;
    if (port != default_port(ssl))
        text += ':' + std::to_string(port);
    return text;
}

} // namespace

void HTTP_Session::timeout(unsigned seconds)
{
    connect_timeout_ = send_timeout_ = receive_timeout_ = seconds;
}

HTTP_Connection::Ptr HTTP_Session::connect()
{
    bool used_before = false;
    return acquire(false, used_before);
}

HTTP_Connection::Ptr HTTP_Session::send(const HTTP_Request& request, HTTP_Response& response)
{
    HTTP_Request bare = request;
    bare.headers().remove(HTTP_Headers::name(HTTP_Headers::transfer_encoding));
    return exchange([&](HTTP_Connection& connection) {
        return connection.start(bare, host_field()) && connection.read_response_header(response) &&
               // An answer too long to be read is known by its head as well.
               (connection.skip_body(max_skipped) || connection.last_error() == 0);
    });
}

HTTP_Connection::Ptr HTTP_Session::get(const HTTP_Request& request, HTTP_Response& response)
{
    HTTP_Request bare = request;
    bare.method(HTTP_Request::GET);
    bare.headers().remove(HTTP_Headers::name(HTTP_Headers::transfer_encoding));
    bare.headers().remove(HTTP_Headers::name(HTTP_Headers::content_length));
    return exchange([&](HTTP_Connection& connection) {
        return connection.start(bare, host_field()) && connection.read_response_header(response);
    });
}

HTTP_Connection::Ptr HTTP_Session::start_post(const HTTP_Request& request)
{
    HTTP_Request post = request;
    post.method(HTTP_Request::POST);
    return start_upload(std::move(post));
}

HTTP_Connection::Ptr HTTP_Session::start_put(const HTTP_Request& request, bool* confirmed)
{
    HTTP_Request put = request;
    put.method(HTTP_Request::PUT);
    if (confirmed == nullptr)
        return start_upload(std::move(put));
    return start_confirmed(std::move(put), *confirmed);
}

/// Finds a connection that can be used again or makes one.
/// @param fresh  makes one in any case
HTTP_Connection::Ptr HTTP_Session::acquire(bool fresh, bool& used_before)
{
    error_ = {};
    used_before = false;
    HTTP_Connection::Ptr found;
    unsigned kept = 0;
    // Those that another holds are left to it; of the others, what serves no more goes.
    std::erase_if(connections_, [&](HTTP_Connection::Ptr& connection) {
        if (connection->owners() > 1)
            return false;
        if (fresh || kept == max_kept_ || !connection->reusable())
            return true;
        ++kept;
        if (found.get() == nullptr)
            found = connection;
        return false;
    });
    if (found.get() != nullptr) {
        used_before = true;
    } else {
        const std::chrono::seconds timeout(connect_timeout_);
        found =
            HTTP_Connection::connect(host_, port_, source_address_, tls_.get(), timeout, error_);
        if (found.get() == nullptr)
            return found;
        connections_.push_back(found);
    }
    found->send_timeout(send_timeout_);
    found->receive_timeout(receive_timeout_);
    return found;
}

/// @param run  carries the exchange out on a connection, as far as it shall go; false on failure
template <class Exchange>
HTTP_Connection::Ptr HTTP_Session::exchange(Exchange run)
{
    for (bool fresh = false;; fresh = true) {
        bool used_before = false;
        HTTP_Connection::Ptr connection = acquire(fresh, used_before);
        if (connection.get() == nullptr || run(*connection))
            return connection;
        error_ = {connection->last_error(), connection->error_text()};
        // A server that is slow may be at work on it.
        const bool closed = error_.code != static_cast<int>(boost::asio::error::timed_out);
        if (!used_before || !closed || connection->answered() || fresh)
            return {};
    }
}

HTTP_Connection::Ptr HTTP_Session::start_upload(HTTP_Request request)
{
    request.headers().remove(HTTP_Headers::name(HTTP_Headers::content_length));
    request.headers().remove(HTTP_Headers::name(HTTP_Headers::expect));
    return exchange(
        [&](HTTP_Connection& connection) { return connection.start(request, host_field()); });
}

HTTP_Connection::Ptr HTTP_Session::start_confirmed(HTTP_Request request, bool& confirmed)
{
    confirmed = false;
    if (confirms_) {
        request.headers().remove(HTTP_Headers::name(HTTP_Headers::content_length));
        request.headers().put(HTTP_Headers::expect, "100-continue");
        bool silent = false;
        HTTP_Connection::Ptr connection = exchange([&](HTTP_Connection& tried) {
            if (!tried.start(request, host_field()))
                return false;
            confirmed = tried.await_continue(continue_wait_);
            silent = tried.last_error() == 0 && !tried.answered();
            return tried.last_error() == 0;
        });
        if (silent)
            continue_wait_ = {};
        if (connection.get() == nullptr || !connection->refused_to_say())
            return connection;
        confirms_ = false;
    }
    return start_upload(std::move(request));
}

std::string HTTP_Session::host_field() const
{
    return authority(host_, port_, ssl());
}

HTTP_Session::Ptr HTTP_Session_Factory::create(const std::string& host, unsigned short port,
                                               bool ssl, const std::string& source_address,
                                               unsigned kept_connections,
                                               ACE_Intrusive_Auto_Ptr<TLS_Context> tls,
                                               unsigned send_timeout, unsigned receive_timeout,
                                               unsigned connect_timeout, Transport_Error* error)
{
    HTTP_Session::Ptr session(new HTTP_Session);
    session->host_ = host;
    session->port_ = port != 0 ? port : default_port(ssl);
    session->source_address_ = source_address;
    session->max_kept_ = kept_connections;
    session->send_timeout_ = send_timeout;
    session->receive_timeout_ = receive_timeout;
    session->connect_timeout_ = connect_timeout != 0 ? connect_timeout : send_timeout;
    if (!ssl)
        return session;
    Transport_Error failure;
    if (tls.get() == nullptr)
        tls = TLS_Context::create({}, failure);
    session->tls_ = tls;
    if (tls.get() != nullptr)
        return session;
    if (error != nullptr)
        *error = failure;
    return {};
}

HTTP_Session_URL::HTTP_Session_URL(const HTTP_Session& session, const std::string& uri)
    : text_((session.ssl() ? "https://" : "http://") +
            authority(session.host(), session.port(), session.ssl()) + uri)
{}
