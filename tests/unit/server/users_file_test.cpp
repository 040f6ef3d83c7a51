#include "servers/common/users_file.h"

#include <gtest/gtest.h>

namespace
{

/// Made with `printf secret | sha256sum`.
constexpr const char* digest_of_secret =
    "2bb80d537b1da3e38bd30361aa855686bde0eacd7162fef6a25fe97bf527a25b";

std::string error_of(const std::string& text)
{
    std::vector<User> users;
    std::string error;
    EXPECT_FALSE(parse_users(text, users, error)) << text;
    return error;
}

} // namespace

TEST(Users_File, LinesAreRead)
{
    std::vector<User> users;
    std::string error;
    const std::string text = std::string("# comment\n\n  alice sha256:") + digest_of_secret +
                             " root=a%20b/c read-only # more\r\nbob sha256:" + digest_of_secret;
    ASSERT_TRUE(parse_users(text, users, error)) << error;
    ASSERT_EQ(users.size(), 2U);
    EXPECT_EQ(users[0].account.name, "alice");
    EXPECT_EQ(users[0].account.root, "a b/c");
    EXPECT_TRUE(users[0].account.read_only);
    EXPECT_EQ(std::get<SHA256_Digest>(users[0].secret), sha256("secret"));
    EXPECT_EQ(users[1].account.root, "");
    EXPECT_FALSE(users[1].account.read_only);
}

TEST(Users_File, WhatIsWrittenIsReadBack)
{
    User user;
    user.account = {"alice", "a #b", true};
    ASSERT_TRUE(hash_password("secret", user.secret.emplace<Password_Hash>()));
    std::vector<User> users;
    std::string error;
    ASSERT_TRUE(parse_users(to_text(user), users, error)) << error << to_text(user);
    ASSERT_EQ(users.size(), 1U);
    EXPECT_EQ(users[0].account.root, "a #b");
    EXPECT_TRUE(users[0].account.read_only);
    EXPECT_TRUE(is_password("secret", std::get<Password_Hash>(users[0].secret)));
    EXPECT_FALSE(is_password("secret ", std::get<Password_Hash>(users[0].secret)));
    EXPECT_FALSE(is_password("", std::get<Password_Hash>(users[0].secret)));
}

TEST(Users_File, TheHashIsThatOfScrypt)
{
    // RFC 7914, 12: "pleaseletmein" with "SodiumChloride", N = 16384, r = 8, p = 1; its first half.
    Password_Hash hash;
    ASSERT_TRUE(parse_password_hash("scrypt:14:8:1:U29kaXVtQ2hsb3JpZGU=:"
                                    "cCO9yzr9c0hGHAbNgf046/2o+7qQT44+qbVD9lRdofI=",
                                    hash));
    EXPECT_TRUE(is_password("pleaseletmein", hash));
    EXPECT_FALSE(is_password("pleaseletmeout", hash));
}

TEST(Users_File, WhatIsWrongIsToldWithItsLineAndNothingOfIt)
{
    const std::string digest = digest_of_secret;
    EXPECT_EQ(error_of("alice\n"), "line 1: the secret is neither scrypt:LOG2N:R:P:SALT:HASH nor "
                                   "sha256:HEX");
    EXPECT_EQ(error_of("\n\na:b sha256:" + digest), "line 3: this is no name of a user");
    for (const std::string& secret :
         {"sha256:" + digest.substr(1), "sha256:" + digest + "0", "sha256:g" + digest.substr(1),
          std::string("md5:x"), std::string("scrypt:15:8:1::"),
          std::string("scrypt:63:8:1:AAAA:AAAA"),
          std::string("scrypt:20:64:1:AAAAAAAAAAA=:") + std::string(44, 'A')})
        EXPECT_NE(error_of("alice " + secret).find("line 1: the secret is neither"),
                  std::string::npos)
            << secret;
    EXPECT_NE(error_of("alice sha256:" + digest + " rw").find("only root=PATH"), std::string::npos);
    EXPECT_NE(error_of("alice sha256:" + digest + " root=").find("only root=PATH"),
              std::string::npos);
    EXPECT_NE(error_of("alice sha256:" + digest + " root=%").find("only root=PATH"),
              std::string::npos);
    EXPECT_EQ(error_of("a sha256:" + digest + "\na sha256:" + digest),
              "line 2: this user has a line already");
}
