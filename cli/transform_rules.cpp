#include "cli/transform_rules.h"

#include "cli/failure.h"
#include "platform/json/json_value.h"
#include "platform/runtime/base64.h"
#include "platform/runtime/compression_method.h"
#include "platform/runtime/encryption_algorithm.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <zstd.h>

namespace cio
{
namespace
{

using json_spirit::Object;
using json_spirit::Value;

const std::string* find_text(const Object& settings, const char* key)
{
    const auto found = settings.find(key);
    return found == settings.end() ? nullptr : found->second.get_ptr<const std::string*>();
}

std::string origin_of(const Setting_Origins& origins, const char* key)
{
    const auto found = origins.find(key);
    return found == origins.end() ? "option '" + std::string(key) + "'" : found->second;
}

void check_compression(const Object& settings, const Setting_Origins& origins)
{
    const std::string* name = find_text(settings, "compression");
    const int method = name == nullptr ? COMPRESSION_NONE
                                       : compression_name_to_value(name->c_str(), COMPRESSION_NONE);
    const auto level = settings.find("compression_level");
    if (level == settings.end())
        return;
    const std::string origin = origin_of(origins, "compression_level");
    if (method == COMPRESSION_NONE) {
        // From other sources it may stand there for the day on which it is needed.
        if (origin == "--level")
            throw Usage_Error("--level needs a compression (--compress auto, lzop or zstd)");
        return;
    }
    const bool lzop = method == COMPRESSION_LZOP;
    // "auto" may meet either method; zstd has every level that lzop has.
    const int least = lzop ? 1 : ZSTD_minCLevel();
    const int most = lzop ? 9 : ZSTD_maxCLevel();
    const auto value = level->second.get<std::int64_t>();
    if (value != 0 && (value < least || value > most))
        throw Usage_Error(origin + ": " + (lzop ? "lzop" : "zstd") + " has the levels " +
                          std::to_string(least) + " to " + std::to_string(most) +
                          " (0: its default), but not " + std::to_string(value));
}

/// @param length  bytes that the cipher wants
void check_length(const Object& settings, const Setting_Origins& origins, const char* key,
                  const std::string& what, int length)
{
    const std::string* text = find_text(settings, key);
    std::string bytes;
    if (text != nullptr)
        (void)Base64_Decoder::decode(*text, bytes);
    const std::size_t size = bytes.size();
    OPENSSL_cleanse(bytes.data(), bytes.size());
    if (size == static_cast<std::size_t>(length))
        return;
    const std::string wanted = what + " of " + std::to_string(length) + " bytes, but ";
    if (size == 0)
        throw Usage_Error(wanted + "none is given (--key-file, option '" + key + "' or " +
                          (std::string(key) == "iv" ? "CIO_ENCRYPTION_IV" : "CIO_ENCRYPTION_KEY") +
                          ")");
    throw Usage_Error(wanted + origin_of(origins, key) + " holds " + std::to_string(size));
}

void check_encryption(const Object& settings, const Setting_Origins& origins)
{
    const std::string* text = find_text(settings, "encryption");
    const int algorithm =
        text == nullptr ? ENCRYPTION_NONE : encryption_name_to_value(text->c_str(), -1);
    if (algorithm == ENCRYPTION_NONE) {
        if (origin_of(origins, "key") == "--key-file")
            throw Usage_Error("--key-file needs a cipher (--encrypt CIPHER)");
        return;
    }
    const char* name =
        encryption_value_to_name(static_cast<Encryption_Algorithm>(algorithm), false);
    const EVP_CIPHER* cipher = name == nullptr ? nullptr : EVP_get_cipherbyname(name);
    if (cipher == nullptr)
        throw Usage_Error("the OpenSSL library of this machine lacks the cipher " + *text);
    const std::string takes = "cipher " + std::string(name) + " takes ";
    check_length(settings, origins, "key", takes + "a key", EVP_CIPHER_get_key_length(cipher));
    check_length(settings, origins, "iv", takes + "an IV", EVP_CIPHER_get_iv_length(cipher));
}

} // namespace

void check_transforms(const Object& settings, const Setting_Origins& origins)
{
    check_compression(settings, origins);
    check_encryption(settings, origins);
}

} // namespace cio
