#pragma once

#include "platform/http/tcp_socket.h"
#include "platform/http/tls_context.h"

/// TLS over a connected socket, with the socket's limits of time.
class TLS_Stream
{
public:
    /// Shakes hands and verifies the peer as the context says.
    /// @param socket   outlives the result
    /// @param host     the name or address that the peer's certificate has to have
    /// @param timeout  for the whole of it
    /// @return NULL on failure (@p error)
    static std::unique_ptr<TLS_Stream> connect(TCP_Socket& socket, const TLS_Context& context,
                                               const std::string& host,
                                               std::chrono::milliseconds timeout,
                                               Transport_Error& error);
    ~TLS_Stream();

    /// As those of TCP_Socket.
    std::int64_t receive(void* buffer, std::size_t size, const Deadline& deadline,
                         Transport_Error& error);
    bool send(const void* data, std::size_t size, std::chrono::milliseconds timeout,
              std::uint64_t& sent, Transport_Error& error);
    /// Whether data of the peer are decrypted and waiting.
    bool has_bytes() const { return SSL_pending(ssl_.get()) > 0; }

private:
    struct Free
    {
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    explicit TLS_Stream(TCP_Socket& socket) : socket_(socket) {}

    bool check_pinned(const TLS_Context& context, Transport_Error& error) const;
    void take_error(int result, const char* what, Transport_Error& error);
    static BIO_METHOD* bio_method();
    static int bio_read(BIO* bio, char* buffer, std::size_t size, std::size_t* read);
    static int bio_write(BIO* bio, const char* data, std::size_t size, std::size_t* written);
    static long bio_control(BIO* bio, int command, long number, void* pointer);

    TCP_Socket& socket_;
    std::unique_ptr<SSL, Free> ssl_;
    // For the socket's operations that OpenSSL calls.
    Deadline deadline_{std::chrono::milliseconds(0)};
    std::chrono::milliseconds send_timeout_{0};
    Transport_Error error_;
};
