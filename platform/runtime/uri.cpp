#include "platform/runtime/uri.h"

#include <ace/Default_Constants.h>
#include <algorithm>
#include <boost/url.hpp>
#include <charconv>
#include <cstdint>
#include <string_view>

namespace
{

namespace urls = boost::urls;

constexpr std::string_view secure_schemes[] = {
    "https",  "realtimes", "sdfss", "dedups", "wss",   "d2ts", "mtfs", "s3s",    "osss", "ksss",
    "ufiles", "coss",      "scss",  "blobs",  "s3v4s", "hbrs", "obss", "btrfss", "ftps", "lanfrees",
};

// Also shares of other hosts.
constexpr bool has_drives = ACE_DIRECTORY_SEPARATOR_CHAR_A == '\\';
constexpr auto host_chars = urls::unreserved_chars + urls::sub_delim_chars;
constexpr auto path_chars = urls::pchars + '/';

bool begins_with_drive(std::string_view path)
{
    return path.size() >= 2 && path[1] == ':' &&
           ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z'));
}

int hex_value(char c)
{
    return urls::grammar::hexdig_value(c);
}

// What is not an escape sequence stays as it is.
std::string decode(std::string_view text)
{
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hex_value(text[i + 1]) >= 0 &&
            hex_value(text[i + 2]) >= 0)
        {
            plain += static_cast<char>(hex_value(text[i + 1]) * 16 + hex_value(text[i + 2]));
            i += 2;
        } else
            plain += text[i];
    }
    return plain;
}

std::string encode(std::string_view plain, const urls::grammar::lut_chars& allowed)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(plain.size());
    for (const char c : plain) {
        const auto byte = static_cast<unsigned char>(c);
        if (allowed(byte)) {
            text += c;
            continue;
        }
        text += '%';
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

bool is_ipv6(std::string_view host)
{
    return urls::parse_ipv6_address({host.data(), host.size()}).has_value();
}

// "[::1]" is "::1"; everything else stays.
std::string_view without_brackets(std::string_view host)
{
    if (host.size() > 2 && host.front() == '[' && host.back() == ']' &&
        is_ipv6(host.substr(1, host.size() - 2)))
        return host.substr(1, host.size() - 2);
    return host;
}

// An absent or empty port is 0.
bool read_port(std::string_view digits, unsigned short& port)
{
    port = 0;
    if (digits.empty())
        return true;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, port);
    return error == std::errc() && stop == end;
}

bool parse_text(std::string_view text, URI& uri)
{
    const auto parsed = urls::parse_uri({text.data(), text.size()});
    if (!parsed)
        return false;
    const urls::url_view& url = *parsed;
    if (url.has_userinfo() || url.has_query() || url.has_fragment())
        return false;
    // The brackets of a future kind of address would be lost, and nothing could connect to it.
    if (url.host_type() == urls::host_type::ipvfuture)
        return false;

    const std::string host{std::string_view{url.encoded_host()}};
    const std::string path{std::string_view{url.encoded_path()}};
    // "file:a" and "mailto:a@b" name no place; "file:" names nothing at all.
    if (path.empty() ? !url.has_authority() : path.front() != '/')
        return false;
    if (host.find("%00") != std::string::npos || path.find("%00") != std::string::npos)
        return false;

    unsigned short port = 0;
    if (url.has_port() && !read_port(std::string_view{url.port()}, port))
        return false;

    URI result;
    result.scheme(std::string{std::string_view{url.scheme()}});
    result.host(host.c_str(), true);
    result.port(port);
    result.path(path, true);
    uri = std::move(result);
    return true;
}

} // namespace

std::string URI::host(bool encoded) const
{
    if (!encoded)
        return host_;
    return is_ipv6(host_) ? "[" + host_ + "]" : encode(host_, host_chars);
}

void URI::host(const char* value, bool encoded)
{
    std::string plain = value == nullptr ? std::string() : encoded ? decode(value) : value;
    host_ = without_brackets(plain);
}

std::string URI::path(bool encoded) const
{
    const bool local = has_drives && scheme_ == "file";
    if (encoded)
        return (local && begins_with_drive(path_) ? "/" : "") + encode(path_, path_chars);
    if (local && !host_.empty() && host_ != "localhost")
        return "//" + host_ + path_;
    if (local && !path_.empty() && begins_with_drive(std::string_view(path_).substr(1)))
        return path_.substr(1);
    return path_;
}

void URI::path(const std::string& value, bool encoded)
{
    path_ = encoded ? decode(value) : value;
}

bool URI::ssl() const
{
    return std::find(std::begin(secure_schemes), std::end(secure_schemes), scheme_) !=
           std::end(secure_schemes);
}

bool URI_Parser::parse(const char* text, URI& uri)
{
    if (text == nullptr)
        return false;
    try {
        return parse_text(text, uri);
    } catch (...) {
        return false;
    }
}
