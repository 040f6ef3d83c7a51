#include "servers/common/request_target.h"

#include "platform/http/http_encode.h"
#include "platform/http/http_headers.h"

#include <algorithm>

namespace
{

constexpr std::string_view own_name = ".cio";

} // namespace

bool parse_request_target(std::string_view target, std::string& path)
{
    std::string_view scheme;
    std::string_view authority;
    std::string_view rest = target;
    std::string name;
    path.clear();
    if (!target.starts_with('/') && !split_url(target, scheme, authority, rest))
        return false;
    if (rest.find_first_of("?#") != std::string_view::npos)
        return false;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('/'), rest.size());
        if (!http_decode_string(rest.substr(0, end), name) ||
            name.find_first_of(std::string_view("/\0", 2)) != std::string::npos)
            return false;
        if (!name.empty())
            path += (path.empty() ? "" : "/") + name;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return true;
}

bool is_server_path(std::string_view path)
{
    return path == own_name || (path.starts_with(own_name) && path[own_name.size()] == '/');
}

bool split_url(std::string_view url, std::string_view& scheme, std::string_view& authority,
               std::string_view& target)
{
    const std::size_t colon = url.find("://");
    if (colon == std::string_view::npos)
        return false;
    scheme = url.substr(0, colon);
    url.remove_prefix(colon + 3);
    const std::size_t end = std::min(url.find_first_of("/?#"), url.size());
    authority = url.substr(0, end);
    target = end == url.size() ? "/" : url.substr(end);
    return (equal_without_case(scheme, "http") || equal_without_case(scheme, "https")) &&
           !authority.empty() && target.starts_with('/');
}

bool same_authority(std::string_view scheme, std::string_view one, std::string_view other)
{
    const std::string_view port = equal_without_case(scheme, "https") ? ":443" : ":80";
    const auto without_port = [port](std::string_view authority) {
        return authority.ends_with(port) ? authority.substr(0, authority.size() - port.size())
                                         : authority;
    };
    return equal_without_case(without_port(one), without_port(other));
}
