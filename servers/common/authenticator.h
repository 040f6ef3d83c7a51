#pragma once

#include "servers/common/users_file.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

/// Knows the users and checks the credentials of requests (RFC 7617 Basic, RFC 6750 Bearer).
///
/// Who was verified once is known by a digest under a key of this object's own, so that a password
/// is hashed for a user's first request only. One object serves any number of threads.
class Authenticator
{
public:
    explicit Authenticator(const std::vector<User>& users);

    enum class Verdict
    {
        known,
        refused,
        unknown_yet, ///< verify() has to tell, which takes long
    };

    /// Looks at an Authorization field without hashing passwords.
    /// @param passwords  whether the connection is one over which passwords may come
    Verdict look_up(std::string_view authorization, bool passwords,
                    std::shared_ptr<const Account>& account);
    /// Tells whose credentials these are by hashing the password, which takes as long for a name
    /// that nobody has. Blocks for some 0.1 s.
    /// @return NULL: nobody's
    std::shared_ptr<const Account> verify(std::string_view authorization);

private:
    struct Password_User
    {
        std::shared_ptr<const Account> account;
        Password_Hash hash;
    };

    SHA256_Digest key_{};
    std::map<std::string, Password_User, std::less<>> passwords_;
    Password_Hash nobody_; ///< for the names that nobody has
    std::mutex mutex_;
    /// By the digest of the credentials. Every user has one secret, so their number bounds it.
    std::map<SHA256_Digest, std::shared_ptr<const Account>> verified_;
};
