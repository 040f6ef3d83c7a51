#pragma once

#include "platform/runtime/export.h"

#include <cstdint>
#include <string>
#include <string_view>

/// Base64 of RFC 4648, with padding, on one line.
class CLIENT_IO_EXPORT Base64_Encoder
{
public:
    static std::string encode(const void* data, std::uint64_t size);
};

/// Strict reader of the same form: white space around the text is allowed, nothing else that
/// the encoder would not write (missing or misplaced padding, other characters, set spare bits).
class CLIENT_IO_EXPORT Base64_Decoder
{
public:
    /// @param out  replaced by the decoded bytes; empty after a failure
    /// @return false when @p text is not base64; the empty text decodes to no bytes
    [[nodiscard]] static bool decode(std::string_view text, std::string& out);
};
