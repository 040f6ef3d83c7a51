#include "platform/runtime/ssl_errors.h"

#include <gmock/gmock.h>
#include <memory>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <thread>

namespace
{

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// Decrypts five bytes with a cipher of sixteen-byte blocks.
void finish_decryption_inside_a_block()
{
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
        EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    const unsigned char key[32] = "topsecretkey";
    const unsigned char iv[16] = {};
    unsigned char out[64];
    int size = 0;
    ASSERT_EQ(EVP_DecryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key, iv), 1);
    ASSERT_EQ(EVP_DecryptUpdate(context.get(), out, &size, key, 5), 1);
    ASSERT_NE(EVP_DecryptFinal_ex(context.get(), out, &size), 1);
}

void fetch_a_cipher_that_does_not_exist()
{
    ASSERT_EQ(EVP_CIPHER_fetch(nullptr, "no-such-cipher", nullptr), nullptr);
}

class SSL_Errors_Test : public testing::Test
{
protected:
    void SetUp() override { ERR_clear_error(); }
    void TearDown() override { EXPECT_EQ(ERR_peek_error(), 0UL) << "an error was left behind"; }
};

TEST_F(SSL_Errors_Test, NothingWrongIsAnEmptyText)
{
    const SSL_Errors errors;
    EXPECT_EQ(errors.str(), "");
    EXPECT_STREQ(errors.c_str(), "");
}

TEST_F(SSL_Errors_Test, TextFollowsAnotherOneAndNamesTheReason)
{
    finish_decryption_inside_a_block();
    ASSERT_NE(ERR_peek_error(), 0UL);
    const SSL_Errors errors;
    EXPECT_THAT(errors.str(), StartsWith(": error:"));
    EXPECT_THAT(errors.str(), HasSubstr("wrong final block length"));
    EXPECT_EQ(errors.c_str(), errors.str());
    EXPECT_EQ(ERR_peek_error(), 0UL) << "the queue was taken";
    EXPECT_EQ(SSL_Errors().str(), "") << "what was reported is not reported again";
}

TEST_F(SSL_Errors_Test, TextHoldsNoKeyAndNoDataOfTheFailedCall)
{
    finish_decryption_inside_a_block();
    fetch_a_cipher_that_does_not_exist();
    const SSL_Errors errors;
    EXPECT_THAT(errors.str(), Not(HasSubstr("topsecret")));
    EXPECT_THAT(errors.str(), Not(HasSubstr("no-such-cipher")));
}

TEST_F(SSL_Errors_Test, SeveralErrorsAreToldTheOldestFirst)
{
    finish_decryption_inside_a_block();
    const std::string first = SSL_Errors().str();
    fetch_a_cipher_that_does_not_exist();
    const std::string second = SSL_Errors().str();
    ASSERT_NE(first, second);
    finish_decryption_inside_a_block();
    fetch_a_cipher_that_does_not_exist();
    EXPECT_EQ(SSL_Errors().str(), first + second);
    fetch_a_cipher_that_does_not_exist();
    finish_decryption_inside_a_block();
    EXPECT_EQ(SSL_Errors().str(), second + first);
}

TEST_F(SSL_Errors_Test, MoreErrorsThanTheQueueHoldsLeaveTheNewest)
{
    fetch_a_cipher_that_does_not_exist();
    for (int i = 0; i < 100; ++i)
        finish_decryption_inside_a_block();
    const SSL_Errors errors;
    EXPECT_THAT(errors.str(), HasSubstr("wrong final block length"));
    EXPECT_THAT(errors.str(), Not(HasSubstr("unsupported")));
}

TEST_F(SSL_Errors_Test, ErrorsOfAnotherThreadAreLeftAlone)
{
    finish_decryption_inside_a_block();
    std::string other = "not set";
    std::thread([&] { other = SSL_Errors().str(); }).join();
    EXPECT_EQ(other, "");
    EXPECT_NE(SSL_Errors().str(), "");
}

} // namespace
