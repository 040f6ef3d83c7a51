#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// What is stored in place of a password: the result of scrypt (RFC 7914), which is slow on
/// purpose.
struct Password_Hash
{
    unsigned log2_n = 15;
    unsigned r = 8;
    unsigned p = 1;
    std::string salt;
    std::string hash;
};

/// Hashes a password with a new salt. @return false when the system has no random bytes
[[nodiscard]] bool hash_password(std::string_view password, Password_Hash& result);

/// Takes the same time for every password.
[[nodiscard]] bool is_password(std::string_view password, const Password_Hash& expected);

/// "scrypt:15:8:1:SALT:HASH", the last two in base64.
std::string to_text(const Password_Hash& hash);

/// @return false for another form, or parameters that cost more than 256 MiB or are of no use
[[nodiscard]] bool parse_password_hash(std::string_view text, Password_Hash& hash);

using SHA256_Digest = std::array<unsigned char, 32>;

[[nodiscard]] SHA256_Digest sha256(std::string_view bytes);
[[nodiscard]] SHA256_Digest hmac_sha256(const SHA256_Digest& key, std::string_view bytes);
