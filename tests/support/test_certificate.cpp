#include "tests/support/test_certificate.h"

#include <array>
#include <cstdlib>
#include <memory>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace
{

template <auto release>
struct Release
{
    template <class T>
    void operator()(T* object) const
    {
        release(object);
    }
};
using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using Memory = std::unique_ptr<BIO, Release<BIO_free_all>>;

/// Tests cannot go on without what OpenSSL was asked for.
void require(bool done)
{
    if (!done)
        std::abort();
}

void add_extension(X509& certificate, int number, const std::string& value)
{
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, &certificate, &certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, &context, number, value.c_str()));
    require(extension != nullptr && X509_add_ext(&certificate, extension.get(), -1) == 1);
}

std::string text_of(BIO& memory)
{
    char* data = nullptr;
    const long size = BIO_get_mem_data(&memory, &data);
    return {data, static_cast<std::size_t>(size)};
}

} // namespace

Test_Certificate::Test_Certificate(const std::string& host)
{
    const Key key(EVP_EC_gen("P-256"));
    const Certificate certificate(X509_new());
    require(key != nullptr && certificate != nullptr);

    std::uint64_t serial = 0;
    require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1);
    constexpr long day = 24L * 60 * 60;
    X509_NAME* const name = X509_get_subject_name(certificate.get());
    require(X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
            ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serial) == 1 &&
            X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -day) != nullptr &&
            X509_gmtime_adj(X509_getm_notAfter(certificate.get()), day) != nullptr &&
            X509_set_pubkey(certificate.get(), key.get()) == 1 &&
            X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(host.c_str()), -1, -1,
                                       0) == 1 &&
            X509_set_issuer_name(certificate.get(), name) == 1);
    add_extension(*certificate, NID_basic_constraints, "critical,CA:TRUE");
    add_extension(*certificate, NID_subject_alt_name,
                  "DNS:" + host + (host == "localhost" ? ",IP:127.0.0.1,IP:::1" : ""));
    require(X509_sign(certificate.get(), key.get(), EVP_sha256()) > 0);

    const Memory memory(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509(memory.get(), certificate.get()) == 1);
    pem_ = text_of(*memory);
    require(BIO_reset(memory.get()) == 1 &&
            PEM_write_bio_PrivateKey(memory.get(), key.get(), nullptr, nullptr, 0, nullptr,
                                     nullptr) == 1);
    key_pem_ = text_of(*memory);

    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    require(X509_digest(certificate.get(), EVP_sha256(), digest.data(), &size) == 1);
    for (unsigned i = 0; i < size; ++i) {
        constexpr auto digits = "0123456789abcdef";
        sha256_ += digits[digest[i] >> 4U];
        sha256_ += digits[digest[i] & 15U];
    }
}
