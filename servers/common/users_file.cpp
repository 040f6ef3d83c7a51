#include "servers/common/users_file.h"

#include "platform/http/http_encode.h"

#include <algorithm>
#include <set>

namespace
{

constexpr std::string_view token_start = "sha256:";
constexpr std::string_view root_start = "root=";
constexpr std::string_view hex_digits = "0123456789abcdef";

std::string_view take_word(std::string_view& line)
{
    constexpr std::string_view blanks = " \t\r";
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return word;
}

bool parse_digest(std::string_view hex, SHA256_Digest& digest)
{
    if (hex.size() != 2 * digest.size())
        return false;
    for (std::size_t i = 0; i < digest.size(); ++i) {
        const std::size_t high = hex_digits.find(hex[2 * i]);
        const std::size_t low = hex_digits.find(hex[2 * i + 1]);
        if (high == std::string_view::npos || low == std::string_view::npos)
            return false;
        digest[i] = static_cast<unsigned char>(high * 16 + low);
    }
    return true;
}

bool parse_secret(std::string_view word, User& user)
{
    if (word.starts_with(token_start))
        return parse_digest(word.substr(token_start.size()), user.secret.emplace<SHA256_Digest>());
    return parse_password_hash(word, user.secret.emplace<Password_Hash>());
}

/// @return what is wrong, NULL when nothing is
const char* parse_line(std::string_view line, User& user)
{
    user.account.name = take_word(line);
    if (!is_user_name(user.account.name))
        return "this is no name of a user";
    if (!parse_secret(take_word(line), user))
        return "the secret is neither scrypt:LOG2N:R:P:SALT:HASH nor sha256:HEX";
    while (true) {
        const std::string_view word = take_word(line);
        if (word.empty())
            return nullptr;
        if (word == "read-only")
            user.account.read_only = true;
        else if (!word.starts_with(root_start) ||
                 !http_decode_string(word.substr(root_start.size()), user.account.root) ||
                 user.account.root.empty()) // or a slip would give away everything
            return "behind the secret only root=PATH and read-only may follow";
    }
}

} // namespace

bool parse_users(std::string_view text, std::vector<User>& users, std::string& error)
{
    std::set<std::string> names;
    users.clear();
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        line = line.substr(0, line.find('#'));
        if (line.find_first_not_of(" \t\r") == std::string_view::npos)
            continue;
        User user;
        const char* wrong = parse_line(line, user);
        if (wrong == nullptr && !names.insert(user.account.name).second)
            wrong = "this user has a line already";
        if (wrong != nullptr) {
            error = "line " + std::to_string(number) + ": " + wrong;
            return false;
        }
        users.push_back(std::move(user));
    }
    return true;
}

std::string to_text(const User& user)
{
    // Of what a path may hold, a "#" alone would begin a comment, and that is always encoded.
    std::string line = user.account.name + ' ';
    if (const auto* const digest = std::get_if<SHA256_Digest>(&user.secret)) {
        line += token_start;
        for (const unsigned char byte : *digest) {
            line += hex_digits[byte >> 4U];
            line += hex_digits[byte & 15U];
        }
    } else {
        line += to_text(std::get<Password_Hash>(user.secret));
    }
    if (!user.account.root.empty())
        line += ' ' + std::string(root_start) +
                http_encode_string(user.account.root, http_path_characters);
    if (user.account.read_only)
        line += " read-only";
    return line;
}

bool is_user_name(std::string_view name)
{
    return !name.empty() && name.size() <= 255 && std::all_of(name.begin(), name.end(), [](char c) {
        return static_cast<unsigned char>(c) > ' ' && c != '\x7F' && c != ':' && c != '#';
    });
}
