#include "platform/runtime/encryption_algorithm.h"

#include "platform/runtime/name_table.h"

namespace
{

struct Name
{
    Encryption_Algorithm algorithm;
    const char* long_name;  // OpenSSL's LN_...
    const char* short_name; // OpenSSL's SN_...
};

constexpr Name names[] = {
    {ENCRYPTION_AES_128_CBC, "aes-128-cbc", "AES-128-CBC"},
    {ENCRYPTION_AES_192_CBC, "aes-192-cbc", "AES-192-CBC"},
    {ENCRYPTION_AES_256_CBC, "aes-256-cbc", "AES-256-CBC"},
    {ENCRYPTION_AES_128_CTR, "aes-128-ctr", "AES-128-CTR"},
    {ENCRYPTION_AES_192_CTR, "aes-192-ctr", "AES-192-CTR"},
    {ENCRYPTION_AES_256_CTR, "aes-256-ctr", "AES-256-CTR"},
    {ENCRYPTION_AES_128_CFB, "aes-128-cfb", "AES-128-CFB"},
    {ENCRYPTION_AES_192_CFB, "aes-192-cfb", "AES-192-CFB"},
    {ENCRYPTION_AES_256_CFB, "aes-256-cfb", "AES-256-CFB"},
    {ENCRYPTION_AES_128_OFB, "aes-128-ofb", "AES-128-OFB"},
    {ENCRYPTION_AES_192_OFB, "aes-192-ofb", "AES-192-OFB"},
    {ENCRYPTION_AES_256_OFB, "aes-256-ofb", "AES-256-OFB"},
    {ENCRYPTION_SM4_CBC, "sm4-cbc", "SM4-CBC"},
    {ENCRYPTION_SM4_CTR, "sm4-ctr", "SM4-CTR"},
    {ENCRYPTION_SM4_CFB, "sm4-cfb", "SM4-CFB"},
    {ENCRYPTION_SM4_OFB, "sm4-ofb", "SM4-OFB"},
    {ENCRYPTION_CAMELLIA_128_CBC, "camellia-128-cbc", "CAMELLIA-128-CBC"},
    {ENCRYPTION_CAMELLIA_192_CBC, "camellia-192-cbc", "CAMELLIA-192-CBC"},
    {ENCRYPTION_CAMELLIA_256_CBC, "camellia-256-cbc", "CAMELLIA-256-CBC"},
    {ENCRYPTION_CAMELLIA_128_CTR, "camellia-128-ctr", "CAMELLIA-128-CTR"},
    {ENCRYPTION_CAMELLIA_192_CTR, "camellia-192-ctr", "CAMELLIA-192-CTR"},
    {ENCRYPTION_CAMELLIA_256_CTR, "camellia-256-ctr", "CAMELLIA-256-CTR"},
    {ENCRYPTION_CAMELLIA_128_CFB, "camellia-128-cfb", "CAMELLIA-128-CFB"},
    {ENCRYPTION_CAMELLIA_192_CFB, "camellia-192-cfb", "CAMELLIA-192-CFB"},
    {ENCRYPTION_CAMELLIA_256_CFB, "camellia-256-cfb", "CAMELLIA-256-CFB"},
    {ENCRYPTION_CAMELLIA_128_OFB, "camellia-128-ofb", "CAMELLIA-128-OFB"},
    {ENCRYPTION_CAMELLIA_192_OFB, "camellia-192-ofb", "CAMELLIA-192-OFB"},
    {ENCRYPTION_CAMELLIA_256_OFB, "camellia-256-ofb", "CAMELLIA-256-OFB"},
    {ENCRYPTION_CHACHA20, "chacha20", "ChaCha20"},
};

} // namespace

int encryption_name_to_value(const char* name, int default_value)
{
    if (name == nullptr)
        return default_value;
    if (*name == '\0' || equal_names("none", name))
        return ENCRYPTION_NONE;
    // Both names of a cipher differ in case only.
    for (const Name& known : names)
        if (equal_names(known.long_name, name))
            return known.algorithm;
    return default_value;
}

const char* encryption_value_to_name(Encryption_Algorithm algorithm, bool short_name)
{
    for (const Name& known : names)
        if (known.algorithm == algorithm)
            return short_name ? known.short_name : known.long_name;
    return nullptr;
}
