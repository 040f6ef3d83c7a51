#pragma once

#include "servers/common/secret_hash.h"

#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// Who may do what.
struct Account
{
    std::string name;
    std::string root; ///< path of the directory they see, "" = the server's root
    bool read_only = false;
};

/// One line of the users file.
struct User
{
    Account account;
    /// A password's hash, or the digest of a token: that one is random, so a fast one is enough.
    std::variant<Password_Hash, SHA256_Digest> secret;
};

/// Reads the text of a users file: lines "NAME SECRET [root=PATH] [read-only]", where SECRET is
/// "scrypt:..." or "sha256:HEX" and blanks in PATH are percent-encoded. What follows a "#" and
/// empty lines do not matter.
/// @param error  what is wrong and in which line; holds nothing of the line
[[nodiscard]] bool parse_users(std::string_view text, std::vector<User>& users, std::string& error);

/// The line of a user, without its end.
std::string to_text(const User& user);

/// Whether @p name can be a user's: not empty, at most 255 bytes, without blanks, control
/// characters, ":" and "#".
[[nodiscard]] bool is_user_name(std::string_view name);
