#include "platform/http/tls_stream.h"

#include "platform/runtime/ssl_errors.h"

#include <boost/asio/error.hpp>
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/sha.h>
#include <openssl/sslerr.h>
#include <openssl/x509_vfy.h>

// The socket stands below OpenSSL as a BIO of its own, because OpenSSL's knows no limits of time
// and raises SIGPIPE.

int TLS_Stream::bio_read(BIO* bio, char* buffer, std::size_t size, std::size_t* read)
{
    auto& stream = *static_cast<TLS_Stream*>(BIO_get_data(bio));
    const std::int64_t n = stream.socket_.receive(buffer, size, stream.deadline_, stream.error_);
    *read = n > 0 ? static_cast<std::size_t>(n) : 0;
    BIO_clear_retry_flags(bio);
    if (n == 0)
        BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
    else if (n < 0 && stream.error_.code == static_cast<int>(boost::asio::error::timed_out))
        BIO_set_retry_read(bio); // reading may go on where it stopped
    return n > 0 ? 1 : 0;
}

int TLS_Stream::bio_write(BIO* bio, const char* data, std::size_t size, std::size_t* written)
{
    auto& stream = *static_cast<TLS_Stream*>(BIO_get_data(bio));
    const TCP_Socket::Piece piece = {data, size};
    std::uint64_t sent = 0;
    const bool done = stream.socket_.send(&piece, 1, stream.send_timeout_, sent, stream.error_);
    *written = static_cast<std::size_t>(sent);
    return done ? 1 : 0;
}

long TLS_Stream::bio_control(BIO* bio, int command, long, void*)
{
    switch (command) {
    case BIO_CTRL_FLUSH:
        return 1;
    case BIO_CTRL_EOF:
        return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
    default:
        return 0;
    }
}

BIO_METHOD* TLS_Stream::bio_method()
{
    // Lives as long as the process, as OpenSSL's own do.
    static BIO_METHOD* const method = [] {
        BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "client_io");
        if (made != nullptr) {
            BIO_meth_set_read_ex(made, bio_read);
            BIO_meth_set_write_ex(made, bio_write);
            BIO_meth_set_ctrl(made, bio_control);
        }
        return made;
    }();
    return method;
}

TLS_Stream::~TLS_Stream() = default;

std::unique_ptr<TLS_Stream> TLS_Stream::connect(TCP_Socket& socket, const TLS_Context& context,
                                                const std::string& host,
                                                std::chrono::milliseconds timeout,
                                                Transport_Error& error)
{
    static_cast<void>(SSL_Errors());
    std::unique_ptr<TLS_Stream> stream(new TLS_Stream(socket));
    stream->ssl_.reset(SSL_new(context.get()));
    SSL* ssl = stream->ssl_.get();
    BIO* bio = bio_method() != nullptr && ssl != nullptr ? BIO_new(bio_method()) : nullptr;
    if (bio == nullptr) {
        stream->take_error(-1, "TLS cannot be used", error);
        return nullptr;
    }
    BIO_set_data(bio, stream.get());
    BIO_set_init(bio, 1);
    SSL_set_bio(ssl, bio, bio);

    // An address is no name that may be announced (RFC 6066, 3).
    X509_VERIFY_PARAM* wanted = SSL_get0_param(ssl);
    if (X509_VERIFY_PARAM_set1_ip_asc(wanted, host.c_str()) != 1) {
        static_cast<void>(SSL_Errors());
        if (SSL_set1_host(ssl, host.c_str()) != 1 ||
            SSL_set_tlsext_host_name(ssl, host.c_str()) != 1) {
            stream->take_error(-1, "The host cannot be verified", error);
            return nullptr;
        }
    }
    stream->deadline_ = Deadline(timeout);
    stream->send_timeout_ = timeout;
    const int result = SSL_connect(ssl);
    if (result != 1) {
        stream->take_error(result, "TLS handshake failed", error);
        const long verified = SSL_get_verify_result(ssl);
        if (context.verify() && verified != X509_V_OK)
            error.text = std::string("the server's certificate is not accepted: ") +
                         X509_verify_cert_error_string(verified);
        return nullptr;
    }
    return stream->check_pinned(context, error) ? std::move(stream) : nullptr;
}

std::int64_t TLS_Stream::receive(void* buffer, std::size_t size, const Deadline& deadline,
                                 Transport_Error& error)
{
    deadline_ = deadline;
    send_timeout_ = deadline.left();
    error_ = {};
    std::size_t n = 0;
    const int result = SSL_read_ex(ssl_.get(), buffer, size, &n);
    if (result == 1)
        return static_cast<std::int64_t>(n);
    if (SSL_get_error(ssl_.get(), result) == SSL_ERROR_ZERO_RETURN)
        return 0;
    take_error(result, "TLS failed", error);
    return -1;
}

bool TLS_Stream::send(const void* data, std::size_t size, std::chrono::milliseconds timeout,
                      std::uint64_t& sent, Transport_Error& error)
{
    deadline_ = Deadline(timeout);
    send_timeout_ = timeout;
    error_ = {};
    sent = 0;
    if (size == 0)
        return true;
    std::size_t n = 0;
    const int result = SSL_write_ex(ssl_.get(), data, size, &n);
    if (result != 1) {
        take_error(result, "TLS failed", error);
        return false;
    }
    sent = n;
    return true;
}

bool TLS_Stream::check_pinned(const TLS_Context& context, Transport_Error& error) const
{
    if (context.pinned().empty())
        return true;
    unsigned char digest[SHA256_DIGEST_LENGTH] = {};
    unsigned size = sizeof(digest);
    const X509* certificate = SSL_get0_peer_certificate(ssl_.get());
    if (certificate != nullptr && X509_digest(certificate, EVP_sha256(), digest, &size) == 1 &&
        size == context.pinned().size() &&
        CRYPTO_memcmp(digest, context.pinned().data(), size) == 0)
        return true;
    error.code = static_cast<int>(boost::asio::error::access_denied);
    error.text = "the server's certificate is not the pinned one";
    return false;
}

/// Tells the socket's failure where there was one, else what OpenSSL has to say.
void TLS_Stream::take_error(int result, const char* what, Transport_Error& error)
{
    const int kind = ssl_ != nullptr ? SSL_get_error(ssl_.get(), result) : SSL_ERROR_SSL;
    const bool cut = ERR_GET_REASON(ERR_peek_last_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING;
    const std::string reasons = SSL_Errors().str();
    if (error_.code != 0) {
        error = error_;
        return;
    }
    const bool ended = cut || kind == SSL_ERROR_SYSCALL || kind == SSL_ERROR_ZERO_RETURN;
    error.code = static_cast<int>(ended ? boost::asio::error::connection_reset
                                        : boost::asio::error::connection_aborted);
    error.text = ended ? std::string() : what + reasons;
}
