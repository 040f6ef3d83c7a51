#include "servers/common/server_tls.h"

#include <openssl/err.h>
#include <string_view>

namespace
{

constexpr const char* ciphers_of_1_2 = "ECDHE+AESGCM:ECDHE+CHACHA20";
constexpr std::string_view http_1_1 = "\x08http/1.1";

int choose_protocol(SSL* /*ssl*/, const unsigned char** out, unsigned char* out_length,
                    const unsigned char* in, unsigned in_length, void* /*unused*/)
{
    unsigned char* chosen = nullptr;
    const int found = SSL_select_next_proto(&chosen, out_length,
                                            reinterpret_cast<const unsigned char*>(http_1_1.data()),
                                            static_cast<unsigned>(http_1_1.size()), in, in_length);
    *out = chosen;
    return found == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_ALERT_FATAL;
}

std::string openssl_reason()
{
    const char* const reason = ERR_reason_error_string(ERR_peek_last_error());
    std::string text = reason != nullptr ? reason : "unknown reason";
    ERR_clear_error();
    return text;
}

} // namespace

std::shared_ptr<SSL_CTX> make_server_tls(const std::string& certificate_file,
                                         const std::string& key_file, std::string& error)
{
    ERR_clear_error();
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    if (context == nullptr || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1 ||
        SSL_CTX_set_cipher_list(context.get(), ciphers_of_1_2) != 1)
    {
        error = "TLS cannot be set up: " + openssl_reason();
        return nullptr;
    }
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION);
    // What waits to be sent again may lie elsewhere by then; idle connections keep no buffers.
    SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE |
                                        SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                        SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_alpn_select_cb(context.get(), choose_protocol, nullptr);
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificate_file.c_str()) != 1) {
        error = "the certificate " + certificate_file + " cannot be used: " + openssl_reason();
        return nullptr;
    }
    if (SSL_CTX_use_PrivateKey_file(context.get(), key_file.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(context.get()) != 1)
    {
        error = "the key " + key_file + " cannot be used: " + openssl_reason();
        return nullptr;
    }
    return context;
}
