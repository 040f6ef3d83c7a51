#include "servers/common/authenticator.h"

#include "platform/runtime/base64.h"

#include <gtest/gtest.h>

namespace
{

std::string basic(const std::string& credentials)
{
    return "Basic " + Base64_Encoder::encode(credentials.data(), credentials.size());
}

} // namespace

class Authenticator_Test : public testing::Test
{
protected:
    Authenticator_Test() : authenticator_(users()) {}

    static std::vector<User> users()
    {
        User alice;
        alice.account.name = "alice";
        EXPECT_TRUE(hash_password("secret", alice.secret.emplace<Password_Hash>()));
        User robot;
        robot.account.name = "robot";
        robot.secret = sha256("a long and random token");
        return {alice, robot};
    }
    Authenticator::Verdict look_up(const std::string& field, bool passwords = true)
    {
        account_ = nullptr;
        return authenticator_.look_up(field, passwords, account_);
    }

    Authenticator authenticator_;
    std::shared_ptr<const Account> account_;
};

TEST_F(Authenticator_Test, APasswordIsHashedOnceAndKnownFromThenOn)
{
    EXPECT_EQ(look_up(basic("alice:secret")), Authenticator::Verdict::unknown_yet);
    const auto account = authenticator_.verify(basic("alice:secret"));
    ASSERT_NE(account, nullptr);
    EXPECT_EQ(account->name, "alice");
    EXPECT_EQ(look_up(basic("alice:secret")), Authenticator::Verdict::known);
    EXPECT_EQ(account_, account);
    EXPECT_EQ(look_up(basic("alice:secre")), Authenticator::Verdict::unknown_yet);
}

TEST_F(Authenticator_Test, WrongCredentialsAreRefusedAndNotRemembered)
{
    for (const char* wrong : {"alice:wrong", "alice:", "alice", "bob:secret", ":secret", "",
                              "robot:a long and random token"})
    {
        EXPECT_EQ(authenticator_.verify(basic(wrong)), nullptr) << wrong;
        EXPECT_NE(look_up(basic(wrong)), Authenticator::Verdict::known) << wrong;
    }
    EXPECT_EQ(authenticator_.verify("Basic !!!"), nullptr);
    EXPECT_EQ(authenticator_.verify(""), nullptr);
}

TEST_F(Authenticator_Test, ATokenIsKnownAtOnce)
{
    EXPECT_EQ(look_up("Bearer a long and random token"), Authenticator::Verdict::known);
    EXPECT_EQ(account_->name, "robot");
    EXPECT_EQ(look_up("bearer  a long and random token"), Authenticator::Verdict::known);
    EXPECT_EQ(look_up("Bearer a long and random toke"), Authenticator::Verdict::refused);
    EXPECT_EQ(look_up("Bearer"), Authenticator::Verdict::refused);
    EXPECT_EQ(look_up("Bearer " + std::string(5000, 'x')), Authenticator::Verdict::refused);
}

TEST_F(Authenticator_Test, PasswordsDoNotComeOverOpenConnections)
{
    ASSERT_NE(authenticator_.verify(basic("alice:secret")), nullptr);
    EXPECT_EQ(look_up(basic("alice:secret"), false), Authenticator::Verdict::refused);
    EXPECT_EQ(look_up("Bearer a long and random token", false), Authenticator::Verdict::known);
}
