#pragma once

#include "platform/runtime/export.h"

#include <cstdint>
#include <string>

/// Converts a time in the extended or basic form of ISO 8601 ("2024-02-29T12:34:56.789+08:00",
/// "20240229T123456Z"); fractions of seconds are dropped, a time without a zone is UTC, a date
/// alone is its midnight.
/// @return POSIX seconds, 0 when @p text is not such a time
CLIENT_IO_EXPORT std::int64_t iso8601_to_posix_time(const std::string& text);
