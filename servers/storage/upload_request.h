#pragma once

#include "platform/http/http_headers.h"
#include "servers/storage/storage_tree.h"

#include <cstdint>
#include <optional>
#include <string>

/// What the fields of an upload ask for.
struct Upload_Request
{
    bool has_range = false;
    std::uint64_t first = 0;
    std::optional<std::uint64_t> size; ///< bytes of the body, as far as the range tells
    Storage_Tree::Upload_Options options;
};

/// Reads Content-Range, Last-Modified and X-Mode-Creation-Mask.
/// @return what is wrong with them, empty when nothing is
[[nodiscard]] std::string read_upload_request(const HTTP_Headers& headers, Upload_Request& request);

/// Reads a time in one of HTTP's forms, or of ISO 8601. @return POSIX seconds
[[nodiscard]] std::optional<std::int64_t> parse_time(const std::string& text);

/// Reads X-Mode-Creation-Mask: permission bits as a decimal number.
/// @return false for anything else; @p mask stays as it is without the field
[[nodiscard]] bool read_creation_mask(const HTTP_Headers& headers, unsigned& mask);
