#pragma once

#include "platform/http/intrusive_count.h"
#include "platform/http/tcp_socket.h"

#include <ace/Intrusive_Auto_Ptr.h>
#include <memory>
#include <openssl/ssl.h>
#include <string>

/// How a peer proves who it is.
struct TLS_Settings
{
    /// A file of certificates in PEM form that are trusted in place of the system's.
    std::string ca_file;
    /// The SHA-256 of the peer's own certificate (DER form) in hexadecimal digits, with or without
    /// colons. Where it is set it alone decides.
    std::string pinned_sha256;
    /// false: any peer is taken, which protects from nobody who can change what is sent.
    bool verify = true;

    bool operator==(const TLS_Settings&) const = default;
};

/// What the TLS connections to one peer have in common: TLS 1.2 or 1.3, and how it is verified. By
/// default against the certificates that the system trusts, with the host's name or address.
class TLS_Context : public Intrusive_Count<TLS_Context>
{
public:
    /// @return NULL when the settings cannot be used (@p error)
    static ACE_Intrusive_Auto_Ptr<TLS_Context> create(const TLS_Settings& settings,
                                                      Transport_Error& error);
    ~TLS_Context();

    SSL_CTX* get() const { return context_.get(); }
    /// The bytes of the pinned digest, empty without one.
    const std::string& pinned() const { return pinned_; }
    bool verify() const { return verify_; }

private:
    struct Free
    {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };

    TLS_Context() = default;

    std::unique_ptr<SSL_CTX, Free> context_;
    std::string pinned_;
    bool verify_ = true;
};

/// Lets a context trust what the system trusts.
[[nodiscard]] bool use_system_certificates(SSL_CTX* context);
