#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Classes of characters, as bits of a mask.
///
/// Bytes outside ASCII and control characters (bit 0), and characters that RFC 3986 allows nowhere
/// (bit 1: space " < > \ ^ ` { | }) belong in no mask.
constexpr std::uint32_t http_path_characters = 0x7FEFC;

/// Percent-encodes every byte whose class is not in @p mask. http_path_characters leaves what a
/// path may hold (RFC 3986, 3.3) and the `/` between its segments.
std::string http_encode_string(std::string_view text, std::uint32_t mask);

/// Undoes percent-encoding.
/// @return false, with @p plain undefined, when a "%" is not followed by two hexadecimal digits
[[nodiscard]] bool http_decode_string(std::string_view text, std::string& plain);
