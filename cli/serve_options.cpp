#include "cli/serve_options.h"

#include "cli/failure.h"

#include <charconv>
#include <string_view>

namespace cio
{
namespace
{

bool parse_number(std::string_view text, unsigned long long& number)
{
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end;
}

} // namespace

const std::array<Serve_Option, 21> serve_options = {{
    {"--root", "DIR", "The directory that is served (user: the one that the user sees)"},
    {"--listen", "ADDR:PORT", "Where to listen (default 127.0.0.1:8080; port 0: any free one)"},
    {"--tls-cert", "FILE", "Certificate chain in PEM form: serve https://"},
    {"--tls-key", "FILE", "The certificate's private key"},
    {"--users", "FILE", "Who may do what, in lines as `cio serve user` makes them"},
    {"--allow-anonymous", nullptr, "Serve other machines without users"},
    {"--read-only", nullptr, "Refuse changes (user: of this user)"},
    {"--token", nullptr, "user: the secret is a random token (Bearer), no password"},
    {"--quota", "SIZE", "Most bytes of all files together (suffixes K, M, G, T)"},
    {"--no-sync", nullptr, "Do not wait until the disk has what was uploaded"},
    {"--access-log", "FILE", "Write a line for each request"},
    {"--threads", "N", "Threads for connections (default: one for each processor)"},
    {"--max-connections", "N", "Most connections at once (default 10000, 0 = no limit)"},
    {"--max-per-address", "N", "Most connections of one address (default 0 = no limit)"},
    {"--max-head", "BYTES", "Largest head of a request (default 65536)"},
    {"--max-fields", "N", "Most header fields of a request (default 256)"},
    {"--head-time", "SECONDS", "Longest time for the head of a request (default 20)"},
    {"--body-time", "SECONDS", "Longest time below the least rate (default 30)"},
    {"--least-rate", "BYTES", "Least bytes per second of a body or an answer (default 1024)"},
    {"--idle-time", "SECONDS", "How long a connection is kept without a request (default 75)"},
    {"--stop-time", "SECONDS", "How long what is under way may go on after SIGTERM (default 30)"},
}};

unsigned long long number_option(const Serve_Options& options, const char* name,
                                 unsigned long long fallback, unsigned long long least,
                                 unsigned long long most)
{
    const auto found = options.find(name);
    if (found == options.end())
        return fallback;
    unsigned long long number = 0;
    if (!parse_number(found->second, number) || number < least || number > most)
        throw Usage_Error(std::string(name) + ": '" + found->second + "' is no number from " +
                          std::to_string(least) + " to " + std::to_string(most));
    return number;
}

void parse_listen(const std::string& text, std::string& address, unsigned short& port)
{
    const std::size_t colon = text.rfind(':');
    unsigned long long number = 0;
    if (colon == std::string::npos ||
        !parse_number(std::string_view(text).substr(colon + 1), number) || number > 65535)
        throw Usage_Error("--listen: '" + text + "' is not of the form ADDR:PORT");
    address = text.substr(0, colon);
    port = static_cast<unsigned short>(number);
    if (address.starts_with('[') && address.ends_with(']'))
        address = address.substr(1, address.size() - 2);
}

} // namespace cio
