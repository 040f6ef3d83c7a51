#pragma once

#include "platform/runtime/export.h"

/// The symmetric ciphers that an encrypted stream may use. The numbers are part of the interface.
///
/// Modes with an authentication tag (GCM, CCM, OCB, ChaCha20-Poly1305) are absent: the stream
/// keeps no tag.
enum Encryption_Algorithm : int
{
    ENCRYPTION_NONE = 0,
    ENCRYPTION_AES_128_CBC = 1,
    ENCRYPTION_AES_192_CBC = 2,
    ENCRYPTION_AES_256_CBC = 3,
    ENCRYPTION_AES_128_CTR = 4,
    ENCRYPTION_AES_192_CTR = 5,
    ENCRYPTION_AES_256_CTR = 6,
    ENCRYPTION_AES_128_CFB = 7,
    ENCRYPTION_AES_192_CFB = 8,
    ENCRYPTION_AES_256_CFB = 9,
    ENCRYPTION_AES_128_OFB = 10,
    ENCRYPTION_AES_192_OFB = 11,
    ENCRYPTION_AES_256_OFB = 12,
    ENCRYPTION_SM4_CBC = 13,
    ENCRYPTION_SM4_CTR = 14,
    ENCRYPTION_SM4_CFB = 15,
    ENCRYPTION_SM4_OFB = 16,
    ENCRYPTION_CAMELLIA_128_CBC = 17,
    ENCRYPTION_CAMELLIA_192_CBC = 18,
    ENCRYPTION_CAMELLIA_256_CBC = 19,
    ENCRYPTION_CAMELLIA_128_CTR = 20,
    ENCRYPTION_CAMELLIA_192_CTR = 21,
    ENCRYPTION_CAMELLIA_256_CTR = 22,
    ENCRYPTION_CAMELLIA_128_CFB = 23,
    ENCRYPTION_CAMELLIA_192_CFB = 24,
    ENCRYPTION_CAMELLIA_256_CFB = 25,
    ENCRYPTION_CAMELLIA_128_OFB = 26,
    ENCRYPTION_CAMELLIA_192_OFB = 27,
    ENCRYPTION_CAMELLIA_256_OFB = 28,
    ENCRYPTION_CHACHA20 = 29,
};

/// Maps OpenSSL's name of a cipher ("aes-256-cbc", "chacha20"; letter case does not matter) to
/// its number; "" and "none" are 0.
/// @return @p default_value for other names and for NULL
CLIENT_IO_EXPORT int encryption_name_to_value(const char* name, int default_value);

/// @param short_name  false: OpenSSL's long name ("aes-256-cbc"); true: its short name, which is
///                    in capitals for most ciphers ("AES-256-CBC", "ChaCha20")
/// @return a static text; NULL for 0 and for values without a name
CLIENT_IO_EXPORT const char* encryption_value_to_name(Encryption_Algorithm algorithm,
                                                      bool short_name);
