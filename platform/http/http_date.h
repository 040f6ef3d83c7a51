#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110, 5.6.7)
std::string http_date(std::int64_t posix_seconds);

/// Reads a date in one of the three forms of HTTP.
/// @return POSIX seconds
std::optional<std::int64_t> parse_http_date(const std::string& text);
