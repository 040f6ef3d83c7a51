#include "platform/http/tls_context.h"

#include "platform/runtime/ssl_errors.h"

#include <boost/asio/error.hpp>
#include <openssl/crypto.h>
#include <openssl/sha.h>

namespace
{

void set_error(Transport_Error& error, const std::string& what)
{
    error.code = static_cast<int>(boost::asio::error::invalid_argument);
    error.text = what + SSL_Errors().str();
}

/// @return whether @p text is a digest of SHA-256
bool parse_digest(const std::string& text, std::string& digest)
{
    std::string digits;
    for (const char c : text)
        if (c != ':')
            digits += c;
    long size = 0;
    unsigned char* bytes = OPENSSL_hexstr2buf(digits.c_str(), &size);
    if (bytes == nullptr)
        return false;
    digest.assign(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
    OPENSSL_free(bytes);
    return digest.size() == SHA256_DIGEST_LENGTH;
}

} // namespace

TLS_Context::~TLS_Context() = default;

ACE_Intrusive_Auto_Ptr<TLS_Context> TLS_Context::create(const TLS_Settings& settings,
                                                        Transport_Error& error)
{
    static_cast<void>(SSL_Errors()); // what others left is not ours to tell
    const ACE_Intrusive_Auto_Ptr<TLS_Context> none;
    ACE_Intrusive_Auto_Ptr<TLS_Context> result(new TLS_Context);
    result->context_.reset(SSL_CTX_new(TLS_client_method()));
    SSL_CTX* context = result->context_.get();
    if (context == nullptr || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1) {
        set_error(error, "TLS cannot be used");
        return none;
    }
    SSL_CTX_set_mode(context, SSL_MODE_AUTO_RETRY);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION);

    if (!settings.pinned_sha256.empty()) {
        if (!parse_digest(settings.pinned_sha256, result->pinned_)) {
            static_cast<void>(SSL_Errors());
            set_error(error, "The pinned certificate is no SHA-256 in hexadecimal digits");
            return none;
        }
        result->verify_ = false;
    } else if (!settings.verify) {
        result->verify_ = false;
    } else if (!settings.ca_file.empty()) {
        if (SSL_CTX_load_verify_locations(context, settings.ca_file.c_str(), nullptr) != 1) {
            set_error(error, "The file of trusted certificates cannot be used");
            return none;
        }
    } else if (!use_system_certificates(context)) {
        set_error(error, "The system's trusted certificates cannot be used");
        return none;
    }
    SSL_CTX_set_verify(context, result->verify_ ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
    return result;
}
