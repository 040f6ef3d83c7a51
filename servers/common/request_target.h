#pragma once

#include <string>
#include <string_view>

/// Reads the path that a request names: in origin form ("/a%20b") or absolute form
/// ("http://host/a%20b").
/// @param path  decoded, without slashes at its ends, one between names; "" is the root. Names "."
///              and ".." stay, to be refused by what the path is looked up in.
/// @return false for other forms, queries, fragments, wrong escapes, and escapes of "/" and NUL,
///         which are part of no name
[[nodiscard]] bool parse_request_target(std::string_view target, std::string& path);

/// Whether a path is the server's own, `.cio` or below it.
[[nodiscard]] bool is_server_path(std::string_view path);

/// Splits an absolute URL. @return false when @p url is none
[[nodiscard]] bool split_url(std::string_view url, std::string_view& scheme,
                             std::string_view& authority, std::string_view& target);

/// Whether two authorities, such as those of Host and Destination, name the same place for URLs of
/// @p scheme.
[[nodiscard]] bool same_authority(std::string_view scheme, std::string_view one,
                                  std::string_view other);
