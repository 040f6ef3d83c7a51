#include "platform/runtime/encryption_algorithm.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <set>
#include <string>

namespace
{

constexpr int first = ENCRYPTION_AES_128_CBC;
constexpr int last = ENCRYPTION_CHACHA20;

const char* name_of(int number, bool short_name)
{
    return encryption_value_to_name(static_cast<Encryption_Algorithm>(number), short_name);
}

TEST(Encryption_Algorithm, EveryNameIsACipherOfOpenSSL)
{
    for (int number = first; number <= last; ++number) {
        const char* const long_name = name_of(number, false);
        const char* const short_name = name_of(number, true);
        ASSERT_NE(long_name, nullptr) << number;
        ASSERT_NE(short_name, nullptr) << number;
        const EVP_CIPHER* const by_long = EVP_get_cipherbyname(long_name);
        const EVP_CIPHER* const by_short = EVP_get_cipherbyname(short_name);
        ASSERT_NE(by_long, nullptr) << long_name;
        ASSERT_NE(by_short, nullptr) << short_name;
        EXPECT_EQ(EVP_CIPHER_get_nid(by_long), EVP_CIPHER_get_nid(by_short)) << long_name;
        EXPECT_EQ(OBJ_ln2nid(long_name), EVP_CIPHER_get_nid(by_long)) << long_name;
        EXPECT_EQ(OBJ_sn2nid(short_name), EVP_CIPHER_get_nid(by_long)) << short_name;
    }
}

TEST(Encryption_Algorithm, NoCipherNeedsATag)
{
    const std::set<int> plain_modes = {EVP_CIPH_CBC_MODE, EVP_CIPH_CTR_MODE, EVP_CIPH_CFB_MODE,
                                       EVP_CIPH_OFB_MODE, EVP_CIPH_STREAM_CIPHER};
    for (int number = first; number <= last; ++number) {
        const EVP_CIPHER* const cipher = EVP_get_cipherbyname(name_of(number, false));
        ASSERT_NE(cipher, nullptr);
        EXPECT_EQ(EVP_CIPHER_get_flags(cipher) & EVP_CIPH_FLAG_AEAD_CIPHER, 0U) << number;
        EXPECT_EQ(plain_modes.count(EVP_CIPHER_get_mode(cipher)), 1U) << number;
        EXPECT_LE(EVP_CIPHER_get_key_length(cipher), 64) << number;
        EXPECT_LE(EVP_CIPHER_get_iv_length(cipher), 16) << number;
    }
}

TEST(Encryption_Algorithm, NumbersStandForTheCipherThatTheirEnumeratorNames)
{
    EXPECT_STREQ(name_of(ENCRYPTION_AES_128_CBC, false), "aes-128-cbc");
    EXPECT_STREQ(name_of(ENCRYPTION_AES_256_CTR, true), "AES-256-CTR");
    EXPECT_STREQ(name_of(ENCRYPTION_AES_192_CFB, false), "aes-192-cfb");
    EXPECT_STREQ(name_of(ENCRYPTION_AES_256_OFB, false), "aes-256-ofb");
    EXPECT_STREQ(name_of(ENCRYPTION_SM4_CBC, true), "SM4-CBC");
    EXPECT_STREQ(name_of(ENCRYPTION_SM4_OFB, false), "sm4-ofb");
    EXPECT_STREQ(name_of(ENCRYPTION_CAMELLIA_128_CBC, true), "CAMELLIA-128-CBC");
    EXPECT_STREQ(name_of(ENCRYPTION_CAMELLIA_256_OFB, false), "camellia-256-ofb");
    EXPECT_STREQ(name_of(ENCRYPTION_CHACHA20, false), "chacha20");
    EXPECT_STREQ(name_of(ENCRYPTION_CHACHA20, true), "ChaCha20");
}

TEST(Encryption_Algorithm, NumbersAreThoseOfTheInterface)
{
    EXPECT_EQ(encryption_name_to_value("aes-128-cbc", -1), 1);
    EXPECT_EQ(encryption_name_to_value("aes-256-cbc", -1), 3);
    EXPECT_EQ(encryption_name_to_value("aes-256-ofb", -1), 12);
    EXPECT_EQ(encryption_name_to_value("sm4-cbc", -1), 13);
    EXPECT_EQ(encryption_name_to_value("camellia-128-cbc", -1), 17);
    EXPECT_EQ(encryption_name_to_value("chacha20", -1), 29);
}

TEST(Encryption_Algorithm, EveryNameLeadsBackToItsNumber)
{
    for (int number = first; number <= last; ++number) {
        EXPECT_EQ(encryption_name_to_value(name_of(number, false), -1), number);
        EXPECT_EQ(encryption_name_to_value(name_of(number, true), -1), number);
    }
}

TEST(Encryption_Algorithm, NoneHasTheNumberZeroAndNoName)
{
    EXPECT_EQ(encryption_name_to_value("", -1), 0);
    EXPECT_EQ(encryption_name_to_value("none", -1), 0);
    EXPECT_EQ(encryption_name_to_value("NONE", -1), 0);
    EXPECT_EQ(name_of(0, false), nullptr);
    EXPECT_EQ(name_of(0, true), nullptr);
}

TEST(Encryption_Algorithm, UnknownNamesGiveTheDefault)
{
    for (const char* name : {"aes", "aes-256", "aes256", "aes-256-gcm", "aes-256-ccm",
                             "chacha20-poly1305", "aes-256-ecb", "aes-256-cbc ", "des", "rc4"})
        EXPECT_EQ(encryption_name_to_value(name, -1), -1) << name;
    EXPECT_EQ(encryption_name_to_value(nullptr, 6), 6);
}

TEST(Encryption_Algorithm, NumbersWithoutNameGiveNull)
{
    EXPECT_EQ(name_of(-1, false), nullptr);
    EXPECT_EQ(name_of(last + 1, false), nullptr);
}

} // namespace
