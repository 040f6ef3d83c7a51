#include "servers/common/authenticator.h"

#include "platform/http/http_headers.h"
#include "platform/runtime/base64.h"

#include <algorithm>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <stdexcept>

namespace
{

constexpr std::size_t longest_secret = 1024;

/// Splits "SCHEME CREDENTIALS".
bool split(std::string_view authorization, std::string_view scheme, std::string_view& credentials)
{
    const std::size_t blank = std::min(authorization.find(' '), authorization.size());
    if (!equal_without_case(authorization.substr(0, blank), scheme))
        return false;
    credentials = authorization.substr(blank);
    credentials.remove_prefix(std::min(credentials.find_first_not_of(' '), credentials.size()));
    return !credentials.empty() && credentials.size() <= 2 * longest_secret;
}

std::string_view bytes_of(const SHA256_Digest& digest)
{
    return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

} // namespace

Authenticator::Authenticator(const std::vector<User>& users)
{
    if (RAND_bytes(key_.data(), static_cast<int>(key_.size())) != 1 ||
        !hash_password(bytes_of(key_), nobody_))
        throw std::runtime_error("the system has no random bytes");
    for (const User& user : users) {
        auto account = std::make_shared<const Account>(user.account);
        if (const auto* const digest = std::get_if<SHA256_Digest>(&user.secret))
            verified_[hmac_sha256(key_, bytes_of(*digest))] = std::move(account);
        else
            passwords_[user.account.name] = {std::move(account),
                                             std::get<Password_Hash>(user.secret)};
    }
}

Authenticator::Verdict Authenticator::look_up(std::string_view authorization, bool passwords,
                                              std::shared_ptr<const Account>& account)
{
    std::string_view credentials;
    SHA256_Digest proof;
    bool is_password = false;
    if (split(authorization, "Bearer", credentials)) {
        proof = hmac_sha256(key_, bytes_of(sha256(credentials)));
    } else if (passwords && split(authorization, "Basic", credentials)) {
        // Longer than a digest by its name, so that it is never one of a token.
        proof = hmac_sha256(key_, "basic " + std::string(bytes_of(sha256(credentials))));
        is_password = true;
    } else {
        return Verdict::refused;
    }
    const std::lock_guard lock(mutex_);
    const auto found = verified_.find(proof);
    if (found == verified_.end())
        return is_password ? Verdict::unknown_yet : Verdict::refused;
    account = found->second;
    return Verdict::known;
}

std::shared_ptr<const Account> Authenticator::verify(std::string_view authorization)
{
    std::string_view credentials;
    std::string plain;
    if (!split(authorization, "Basic", credentials) || !Base64_Decoder::decode(credentials, plain))
        return nullptr;
    const std::size_t colon = std::min(plain.find(':'), plain.size());
    const auto user = passwords_.find(std::string_view(plain).substr(0, colon));
    const bool known = user != passwords_.end();
    const std::string_view password =
        std::string_view(plain).substr(std::min(colon + 1, plain.size()));
    const bool right = is_password(password, known ? user->second.hash : nobody_) && known;
    OPENSSL_cleanse(plain.data(), plain.size());
    if (!right)
        return nullptr;
    const SHA256_Digest proof =
        hmac_sha256(key_, "basic " + std::string(bytes_of(sha256(credentials))));
    const std::lock_guard lock(mutex_);
    return verified_[proof] = user->second.account;
}
