#include "tests/support/log_capture.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <gtest/gtest.h>

// Published test vectors of the ciphers, through the transform.

namespace
{

std::string unhex(const std::string& hex)
{
    std::string out;
    std::string digits;
    for (const char c : hex)
        if (c != ' ')
            digits += c;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        out += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return out;
}

struct Vector
{
    std::string name;
    std::string cipher;
    std::string key;
    std::string iv;
    std::string plain;
    std::string encrypted;
    /// Bytes behind the published ones: the padding of the block modes.
    std::size_t padding = 0;
};

std::ostream& operator<<(std::ostream& out, const Vector& vector)
{
    return out << vector.name;
}

std::string vector_name(const testing::TestParamInfo<Vector>& info)
{
    return info.param.name;
}

// NIST SP 800-38A, appendix F: the four blocks of plain text and the keys of all its examples.
const std::string nist_plain = "6bc1bee22e409f96e93d7e117393172a ae2d8a571e03ac9c9eb76fac45af8e51"
                               "30c81c46a35ce411e5fbc1191a0a52ef f69f2445df4f9b17ad2b417be66c3710";
const std::string nist_128 = "2b7e151628aed2a6abf7158809cf4f3c";
const std::string nist_192 = "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b";
const std::string nist_256 = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
const std::string nist_iv = "000102030405060708090a0b0c0d0e0f";
const std::string nist_counter = "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff";

const std::vector<Vector> vectors = {
    // NIST SP 800-38A, F.2.1, F.2.3, F.2.5
    {"F_2_1_Aes128Cbc", "aes-128-cbc", nist_128, nist_iv, nist_plain,
     "7649abac8119b246cee98e9b12e9197d 5086cb9b507219ee95db113a917678b2"
     "73bed6b8e3c1743b7116e69e22229516 3ff1caa1681fac09120eca307586e1a7",
     16},
    {"F_2_3_Aes192Cbc", "aes-192-cbc", nist_192, nist_iv, nist_plain,
     "4f021db243bc633d7178183a9fa071e8 b4d9ada9ad7dedf4e5e738763f69145a"
     "571b242012fb7ae07fa9baac3df102e0 08b0e27988598881d920a9e64f5615cd",
     16},
    {"F_2_5_Aes256Cbc", "aes-256-cbc", nist_256, nist_iv, nist_plain,
     "f58c4c04d6e5f1ba779eabfb5f7bfbd6 9cfc4e967edb808d679f777bc6702c7d"
     "39f23369a9d9bacfa530e26304231461 b2eb05e2c39be9fcda6c19078c6a9d1b",
     16},
    // NIST SP 800-38A, F.3.13, F.3.15, F.3.17
    {"F_3_13_Aes128Cfb", "aes-128-cfb", nist_128, nist_iv, nist_plain,
     "3b3fd92eb72dad20333449f8e83cfb4a c8a64537a0b3a93fcde3cdad9f1ce58b"
     "26751f67a3cbb140b1808cf187a4f4df c04b05357c5d1c0eeac4c66f9ff7f2e6"},
    {"F_3_15_Aes192Cfb", "aes-192-cfb", nist_192, nist_iv, nist_plain,
     "cdc80d6fddf18cab34c25909c99a4174 67ce7f7f81173621961a2b70171d3d7a"
     "2e1e8a1dd59b88b1c8e60fed1efac4c9 c05f9f9ca9834fa042ae8fba584b09ff"},
    {"F_3_17_Aes256Cfb", "aes-256-cfb", nist_256, nist_iv, nist_plain,
     "dc7e84bfda79164b7ecd8486985d3860 39ffed143b28b1c832113c6331e5407b"
     "df10132415e54b92a13ed0a8267ae2f9 75a385741ab9cef82031623d55b1e471"},
    // NIST SP 800-38A, F.4.1, F.4.3, F.4.5
    {"F_4_1_Aes128Ofb", "aes-128-ofb", nist_128, nist_iv, nist_plain,
     "3b3fd92eb72dad20333449f8e83cfb4a 7789508d16918f03f53c52dac54ed825"
     "9740051e9c5fecf64344f7a82260edcc 304c6528f659c77866a510d9c1d6ae5e"},
    {"F_4_3_Aes192Ofb", "aes-192-ofb", nist_192, nist_iv, nist_plain,
     "cdc80d6fddf18cab34c25909c99a4174 fcc28b8d4c63837c09e81700c1100401"
     "8d9a9aeac0f6596f559c6d4daf59a5f2 6d9f200857ca6c3e9cac524bd9acc92a"},
    {"F_4_5_Aes256Ofb", "aes-256-ofb", nist_256, nist_iv, nist_plain,
     "dc7e84bfda79164b7ecd8486985d3860 4febdc6740d20b3ac88f6ad82a4fb08d"
     "71ab47a086e86eedf39d1c5bba97c408 0126141d67f37be8538f5a8be740e484"},
    // NIST SP 800-38A, F.5.1, F.5.3, F.5.5
    {"F_5_1_Aes128Ctr", "aes-128-ctr", nist_128, nist_counter, nist_plain,
     "874d6191b620e3261bef6864990db6ce 9806f66b7970fdff8617187bb9fffdff"
     "5ae4df3edbd5d35e5b4f09020db03eab 1e031dda2fbe03d1792170a0f3009cee"},
    {"F_5_3_Aes192Ctr", "aes-192-ctr", nist_192, nist_counter, nist_plain,
     "1abc932417521ca24f2b0459fe7e6e0b 090339ec0aa6faefd5ccc2c6f4ce8e94"
     "1e36b26bd1ebc670d1bd1d665620abf7 4f78a7f6d29809585a97daec58c6b050"},
    {"F_5_5_Aes256Ctr", "aes-256-ctr", nist_256, nist_counter, nist_plain,
     "601ec313775789a5b7a7f504bbf3d228 f443e3ca4d62b59aca84e990cacaf5c5"
     "2b0930daa23de94ce87017ba2d84988d dfc9c58db67aada613c2dd08457941a6"},
    // RFC 8439, section 2.4.2. The IV is the block counter, 1, as 32 bits little-endian, and then
    // the nonce.
    {"Rfc8439_ChaCha20", "chacha20",
     "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f",
     "01000000 000000000000004a00000000",
     "4c616469657320616e642047656e746c 656d656e206f662074686520636c6173"
     "73206f66202739393a20496620492063 6f756c64206f6666657220796f75206f"
     "6e6c79206f6e652074697020666f7220 746865206675747572652c2073756e73"
     "637265656e20776f756c642062652069 742e",
     "6e2e359a2568f98041ba0728dd0d6981 e97e7aec1d4360c20a27afccfd9fae0b"
     "f91b65c5524733ab8f593dabcd62b357 1639d624e65152ab8f530c359f0861d8"
     "07ca0dbf500d6a6156a38e088a22b65e 52bc514d16ccf806818ce91ab7793736"
     "5af90bbf74a35be6b40b8eedf2785e42 874d"},
    // RFC 3713, appendix A. One block encrypted without a mode is what CBC makes of it with an IV
    // of zeros.
    {"Rfc3713_Camellia128", "camellia-128-cbc", "0123456789abcdeffedcba9876543210",
     "00000000000000000000000000000000", "0123456789abcdeffedcba9876543210",
     "67673138549669730857065648eabe43", 16},
    {"Rfc3713_Camellia192", "camellia-192-cbc", "0123456789abcdeffedcba98765432100011223344556677",
     "00000000000000000000000000000000", "0123456789abcdeffedcba9876543210",
     "b4993401b3e996f84ee5cee7d79b09b9", 16},
    {"Rfc3713_Camellia256", "camellia-256-cbc",
     "0123456789abcdeffedcba987654321000112233445566778899aabbccddeeff",
     "00000000000000000000000000000000", "0123456789abcdeffedcba9876543210",
     "9acc237dff16d76c20ef7c919e3a7509", 16},
    // RFC 5528, section 4, test vector 1
    {"Rfc5528_Camellia128Ctr", "camellia-128-ctr", "ae6852f8121067cc4bf7a5765577f39e",
     "00000030000000000000000000000001", "53696e676c6520626c6f636b206d7367",
     "d09dc29a8214619a20877c76db1f0b3f"},
    // GB/T 32907-2016, appendix A.1, likewise one block with an IV of zeros
    {"Gbt32907_Sm4", "sm4-cbc", "0123456789abcdeffedcba9876543210",
     "00000000000000000000000000000000", "0123456789abcdeffedcba9876543210",
     "681edf34d206965e86b3e94f536e4246", 16},
};

class Published_Vectors : public testing::TestWithParam<Vector>
{
protected:
    Log_Capture log_;
};

INSTANTIATE_TEST_SUITE_P(Of, Published_Vectors, testing::ValuesIn(vectors), vector_name);

TEST_P(Published_Vectors, AreWhatIsStoredAndReadBack)
{
    const Vector& vector = GetParam();
    const Kind kind{vector.name, [&](auto io) {
                        return make_cipher(std::move(io), vector.cipher, unhex(vector.key),
                                           unhex(vector.iv));
                    }};
    const std::string plain = unhex(vector.plain);
    const std::string published = unhex(vector.encrypted);
    for (const std::size_t cut : {0U, 1U, 15U, 16U, 17U}) {
        const std::string stored = encoded(kind, plain, cut);
        ASSERT_EQ(stored.size(), published.size() + vector.padding);
        EXPECT_EQ(hex(stored.substr(0, published.size())), hex(published));
        for (const Form form : {Form::copying, Form::zero_copy})
            EXPECT_EQ(decoded(kind, stored, form, cut), plain);
    }
}

} // namespace
