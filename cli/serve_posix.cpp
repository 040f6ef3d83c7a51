#include "cli/serve.h"

#include "cli/interrupt.h"
#include "cli/size_text.h"
#include "servers/common/users_file.h"
#include "servers/storage/storage_server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <initializer_list>
#include <limits>
#include <openssl/crypto.h>
#include <string_view>
#include <termios.h>
#include <unistd.h>

namespace cio
{
namespace
{

constexpr unsigned long long longest_time = 86400;
constexpr unsigned long long most = std::numeric_limits<std::uint32_t>::max();
/// So short a token can be guessed, and its digest is fast to compute.
constexpr std::size_t shortest_token = 22;

bool has(const Serve_Options& options, const char* name)
{
    return options.contains(name);
}

std::string value(const Serve_Options& options, const char* name)
{
    const auto found = options.find(name);
    return found == options.end() ? std::string() : found->second;
}

void refuse_others(const Serve_Options& given, const char* command,
                   std::initializer_list<std::string_view> names, bool allowed)
{
    for (const auto& [name, unused] : given)
        if ((std::find(names.begin(), names.end(), name) != names.end()) != allowed)
            throw Usage_Error(name + " is no option of 'cio serve " + command + "'");
}

Server_Limits read_limits(const Serve_Options& given)
{
    Server_Limits limits;
    const auto number = [&given](const char* name, auto& field, unsigned long long least) {
        field = number_option(given, name, field, least, most);
    };
    const auto time = [&given](const char* name, std::chrono::seconds& field) {
        const auto usual = static_cast<unsigned long long>(field.count());
        field = std::chrono::seconds(number_option(given, name, usual, 1, longest_time));
    };
    number("--max-connections", limits.connections, 0);
    number("--max-per-address", limits.connections_per_address, 0);
    number("--max-head", limits.head_bytes, 256);
    number("--max-fields", limits.head_fields, 1);
    number("--least-rate", limits.least_rate, 0);
    time("--head-time", limits.head_time);
    time("--body-time", limits.body_time);
    time("--idle-time", limits.idle_time);
    time("--stop-time", limits.stop_time);
    return limits;
}

Storage_Server::Options read_server_options(const Serve_Options& given)
{
    constexpr unsigned long long most_threads = 256;
    refuse_others(given, "http", {"--token"}, false);
    Storage_Server::Options options;
    if (has(given, "--listen"))
        parse_listen(value(given, "--listen"), options.http.address, options.http.port);
    options.http.certificate_file = value(given, "--tls-cert");
    options.http.key_file = value(given, "--tls-key");
    options.http.users_file = value(given, "--users");
    options.http.allow_anonymous = has(given, "--allow-anonymous");
    options.http.access_log = value(given, "--access-log");
    options.http.threads =
        static_cast<unsigned>(number_option(given, "--threads", 0, 1, most_threads));
    options.http.limits = read_limits(given);
    options.tree.root = value(given, "--root");
    options.tree.sync = !has(given, "--no-sync");
    if (has(given, "--quota"))
        options.tree.quota = parse_size(value(given, "--quota"));
    options.read_only = has(given, "--read-only");
    if (options.tree.root.empty())
        throw Usage_Error("--root is missing");
    if (options.http.certificate_file.empty() != options.http.key_file.empty())
        throw Usage_Error("--tls-cert and --tls-key belong together");
    if (options.http.allow_anonymous && !options.http.users_file.empty())
        throw Usage_Error("--allow-anonymous and --users contradict each other");
    return options;
}

/// Keeps a terminal from showing what is typed, while the object lives.
class Silent_Terminal
{
public:
    Silent_Terminal() : is_terminal_(::tcgetattr(STDIN_FILENO, &before_) == 0)
    {
        struct termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        if (is_terminal_)
            (void)::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~Silent_Terminal()
    {
        if (is_terminal_)
            (void)::tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }
    Silent_Terminal(const Silent_Terminal&) = delete;
    Silent_Terminal& operator=(const Silent_Terminal&) = delete;

private:
    struct termios before_ = {};
    bool is_terminal_;
};

/// The first line of standard input, wiped when it goes.
class Secret_Line
{
public:
    Secret_Line()
    {
        const Silent_Terminal silent;
        ssize_t n = 0;
        do {
            n = ::read(STDIN_FILENO, bytes_.data() + size_, bytes_.size() - size_);
            size_ += n > 0 ? static_cast<std::size_t>(n) : 0;
        } while ((n > 0 && size_ < bytes_.size() && text().find('\n') == std::string_view::npos) ||
                 (n < 0 && errno == EINTR && !interrupt::requested()));
        size_ = std::min(text().find('\n'), size_);
        if (size_ == bytes_.size())
            throw Usage_Error("the secret has more than 1023 bytes");
        if (size_ > 0 && bytes_[size_ - 1] == '\r')
            --size_;
    }
    ~Secret_Line() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }
    Secret_Line(const Secret_Line&) = delete;
    Secret_Line& operator=(const Secret_Line&) = delete;

    std::string_view text() const { return {bytes_.data(), size_}; }

private:
    std::array<char, 1024> bytes_{};
    std::size_t size_ = 0;
};

} // namespace

void serve_http(const Invocation& invocation)
{
    const Storage_Server::Options options = read_server_options(invocation.server);
    std::string error;
    Storage_Server server(
        options, [&invocation](const std::string& text) { invocation.report.warning(text); });
    if (!server.start(error)) {
        invocation.report.error("", {exit_failed, error});
        return;
    }
    invocation.out.write("listening on " + server.url() + "\n");
    invocation.out.flush();
    server.run();
}

void serve_user(const Invocation& invocation, const std::string& name)
{
    refuse_others(invocation.server, "user", {"--root", "--read-only", "--token"}, true);
    if (!is_user_name(name))
        throw Usage_Error("a user's name has no blanks, control characters, ':' and '#'");
    const Secret_Line secret;
    const bool is_token = has(invocation.server, "--token");
    if (secret.text().size() < (is_token ? shortest_token : 1))
        throw Usage_Error(is_token ? "a token has to be random and have 22 characters or more"
                                   : "standard input holds no password");
    User user;
    user.account = {name, value(invocation.server, "--root"),
                    has(invocation.server, "--read-only")};
    if (is_token)
        user.secret = sha256(secret.text());
    else if (!hash_password(secret.text(), user.secret.emplace<Password_Hash>()))
        throw std::runtime_error("the system has no random bytes");
    invocation.out.write(to_text(user) + "\n");
}

} // namespace cio
