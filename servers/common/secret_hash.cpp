#include "servers/common/secret_hash.h"

#include "platform/runtime/base64.h"

#include <charconv>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <stdexcept>

namespace
{

constexpr std::size_t salt_size = 16;
constexpr std::size_t hash_size = 32;
constexpr std::uint64_t most_memory = 256ULL << 20U;

bool run_scrypt(std::string_view password, const Password_Hash& with, std::string& hash)
{
    hash.resize(hash_size);
    return EVP_PBE_scrypt(password.data(), password.size(),
                          reinterpret_cast<const unsigned char*>(with.salt.data()),
                          with.salt.size(), 1ULL << with.log2_n, with.r, with.p,
                          // Beside the table of 128 * r * n bytes it needs a little more.
                          2 * most_memory, reinterpret_cast<unsigned char*>(hash.data()),
                          hash.size()) == 1;
}

/// Takes the part of @p text in front of the next colon.
std::string_view take_part(std::string_view& text)
{
    const std::string_view part = text.substr(0, text.find(':'));
    text.remove_prefix(part.size() + (part.size() < text.size() ? 1 : 0));
    return part;
}

bool take_number(std::string_view& text, unsigned most, unsigned& number)
{
    const std::string_view part = take_part(text);
    const char* const end = part.data() + part.size();
    const auto [rest, error] = std::from_chars(part.data(), end, number);
    return error == std::errc() && rest == end && number >= 1 && number <= most;
}

} // namespace

bool hash_password(std::string_view password, Password_Hash& result)
{
    result.salt.resize(salt_size);
    return RAND_bytes(reinterpret_cast<unsigned char*>(result.salt.data()),
                      static_cast<int>(result.salt.size())) == 1 &&
           run_scrypt(password, result, result.hash);
}

bool is_password(std::string_view password, const Password_Hash& expected)
{
    std::string hash;
    return run_scrypt(password, expected, hash) &&
           CRYPTO_memcmp(hash.data(), expected.hash.data(), hash_size) == 0;
}

std::string to_text(const Password_Hash& hash)
{
    return "scrypt:" + std::to_string(hash.log2_n) + ":" + std::to_string(hash.r) + ":" +
           std::to_string(hash.p) + ":" +
           Base64_Encoder::encode(hash.salt.data(), hash.salt.size()) + ":" +
           Base64_Encoder::encode(hash.hash.data(), hash.hash.size());
}

bool parse_password_hash(std::string_view text, Password_Hash& hash)
{
    return take_part(text) == "scrypt" && take_number(text, 20, hash.log2_n) && hash.log2_n >= 10 &&
           take_number(text, 64, hash.r) && take_number(text, 16, hash.p) &&
           (128ULL * hash.r << hash.log2_n) <= most_memory &&
           Base64_Decoder::decode(take_part(text), hash.salt) && hash.salt.size() >= 8 &&
           Base64_Decoder::decode(text, hash.hash) && hash.hash.size() == hash_size;
}

SHA256_Digest sha256(std::string_view bytes)
{
    SHA256_Digest digest;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not available");
    return digest;
}

SHA256_Digest hmac_sha256(const SHA256_Digest& key, std::string_view bytes)
{
    SHA256_Digest digest;
    unsigned size = 0;
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
             reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data(),
             &size) == nullptr)
        throw std::runtime_error("SHA-256 is not available");
    return digest;
}
