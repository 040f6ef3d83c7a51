#pragma once

#include "platform/http/http_connection.h"
#include "platform/http/http_request.h"
#include "platform/http/http_response.h"
#include "platform/http/intrusive_count.h"

#include <ace/Intrusive_Auto_Ptr.h>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

/// One server, and the connections to it.
///
/// Connections are kept and used again when their last exchange is complete, both sides agreed to
/// it, and nobody else holds them. When a connection that was used again turns out to have been
/// closed by the server before a byte of the answer came, the request is repeated once on a fresh
/// one.
///
/// Operations that fail return a null connection; last_error() and error_text() then say why. One
/// object serves one thread.
class HTTP_Session : public Intrusive_Count<HTTP_Session>
{
public:
    using Ptr = ACE_Intrusive_Auto_Ptr<HTTP_Session>;

    const std::string& host() const { return host_; }
    unsigned short port() const { return port_; }
    bool ssl() const { return tls_.get() != nullptr; }

    /// Seconds for connecting and for the TLS handshake; those of sending and receiving on
    /// connections that are made or used again from now on.
    void timeout(unsigned seconds);

    /// A connection on which nothing is under way.
    HTTP_Connection::Ptr connect();
    /// Sends a request without a body and reads the whole answer, whose body is forgotten.
    HTTP_Connection::Ptr send(const HTTP_Request& request, HTTP_Response& response);
    /// Sends a GET and reads the head of the answer.
    HTTP_Connection::Ptr get(const HTTP_Request& request, HTTP_Response& response);
    /// Send the head of a request whose body is then written to the connection.
    HTTP_Connection::Ptr start_post(const HTTP_Request& request);
    /// @param confirmed  unless NULL, the server is asked (Expect: 100-continue) to say that it has
    ///     begun before it gets the body. Set to whether it said so; a server that stays silent for
    ///     a second is sent the body all the same, and is not waited for again. One that answers
    ///     417 is not asked again.
    HTTP_Connection::Ptr start_put(const HTTP_Request& request, bool* confirmed = nullptr);
    /// Asks no more, because the server answered 417 later than it was waited for.
    /// @return whether it was asked before
    bool stop_asking() { return std::exchange(confirms_, false); }

    int last_error() const { return error_.code; }
    const std::string& error_text() const { return error_.text; }

private:
    friend class HTTP_Session_Factory;

    HTTP_Session() = default;

    HTTP_Connection::Ptr acquire(bool fresh, bool& used_before);
    template <class Exchange>
    HTTP_Connection::Ptr exchange(Exchange run);
    HTTP_Connection::Ptr start_upload(HTTP_Request request);
    HTTP_Connection::Ptr start_confirmed(HTTP_Request request, bool& confirmed);
    std::string host_field() const;

    std::string host_;
    unsigned short port_ = 0;
    std::string source_address_;
    ACE_Intrusive_Auto_Ptr<TLS_Context> tls_;
    unsigned max_kept_ = 0;
    unsigned connect_timeout_ = 0;
    unsigned send_timeout_ = 0;
    unsigned receive_timeout_ = 0;
    bool confirms_ = true; ///< whether the server may know Expect
    /// How long it may leave open whether it begins with an upload.
    std::chrono::milliseconds continue_wait_{1000};
    /// Those that a caller holds among them.
    std::vector<HTTP_Connection::Ptr> connections_;
    Transport_Error error_;
};

class HTTP_Session_Factory
{
public:
    /// @param port              0: that of the protocol, 80 or 443
    /// @param source_address    local name or address to connect from; empty: the system chooses
    /// @param kept_connections  at most so many are kept while nobody uses them
    /// @param tls               settings of TLS, null for the system's trusted certificates;
    /// without
    ///                          @p ssl not used
    /// @param send_timeout, receive_timeout  seconds, see HTTP_Connection
    /// @param connect_timeout   seconds, 0: the send timeout
    /// @return null when TLS cannot be used (@p error, unless NULL)
    static HTTP_Session::Ptr create(const std::string& host, unsigned short port, bool ssl,
                                    const std::string& source_address,
                                    unsigned kept_connections = 3,
                                    ACE_Intrusive_Auto_Ptr<TLS_Context> tls = {},
                                    unsigned send_timeout = 120, unsigned receive_timeout = 120,
                                    unsigned connect_timeout = 0, Transport_Error* error = nullptr);
};

/// The full URL of a request, for messages and for fields that want one.
class HTTP_Session_URL
{
public:
    HTTP_Session_URL(const HTTP_Session& session, const std::string& uri);

    const std::string& str() const { return text_; }
    const char* c_str() const { return text_.c_str(); }

private:
    std::string text_;
};
