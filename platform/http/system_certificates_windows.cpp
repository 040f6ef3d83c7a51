#include "platform/http/tls_context.h"

// clang-format off: the second needs the first
#include <wincrypt.h>
#include <windows.h>
// clang-format on
#include <openssl/err.h>
#include <openssl/x509.h>

// OpenSSL knows no store of Windows before 3.2, and the folders that it was built with are empty.
bool use_system_certificates(SSL_CTX* context)
{
    const HCERTSTORE roots = CertOpenSystemStoreW(0, L"ROOT");
    if (roots == nullptr)
        return false;
    X509_STORE* trusted = SSL_CTX_get_cert_store(context);
    PCCERT_CONTEXT entry = nullptr;
    while ((entry = CertEnumCertificatesInStore(roots, entry)) != nullptr) {
        const unsigned char* bytes = entry->pbCertEncoded;
        X509* certificate = d2i_X509(nullptr, &bytes, static_cast<long>(entry->cbCertEncoded));
        if (certificate == nullptr)
            continue;
        X509_STORE_add_cert(trusted, certificate);
        X509_free(certificate);
    }
    CertCloseStore(roots, 0);
    ERR_clear_error(); // one that cannot be read is just not trusted
    return true;
}
