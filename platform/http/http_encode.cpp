#include "platform/http/http_encode.h"

#include <array>

namespace
{

/// The bits of http_encode_string()'s mask.
constexpr std::array<std::string_view, 19> classes = {
    "", // bytes outside ASCII and control characters
    " \"<>\\^`{|}",
    "0123456789",
    "ABCDEFGHIJKLMNOPQRSTUVWXYZ",
    "abcdefghijklmnopqrstuvwxyz",
    "-",
    ".",
    "_~",
    "%?#[]", // they would end the path or begin an escape
    "/",
    "!",
    "$",
    "&",
    "'",
    "()",
    "*+",
    ",;",
    "=",
    ":@",
};

constexpr std::array<std::uint32_t, 256> make_bits()
{
    std::array<std::uint32_t, 256> bits = {};
    bits.fill(1U);
    for (std::size_t index = 1; index < classes.size(); ++index)
        for (const char c : classes[index])
            bits[static_cast<unsigned char>(c)] = 1U << index;
    return bits;
}

constexpr std::array<std::uint32_t, 256> class_of = make_bits();

int hexadecimal_digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

} // namespace

std::string http_encode_string(std::string_view text, std::uint32_t mask)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((class_of[byte] & mask) != 0) {
            encoded += c;
        } else {
            encoded += '%';
            encoded += digits[byte >> 4U];
            encoded += digits[byte & 0xFU];
        }
    }
    return encoded;
}

bool http_decode_string(std::string_view text, std::string& plain)
{
    plain.clear();
    plain.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            plain += text[at];
            continue;
        }
        const int high = text.size() - at > 2 ? hexadecimal_digit(text[at + 1]) : -1;
        const int low = text.size() - at > 2 ? hexadecimal_digit(text[at + 2]) : -1;
        if (high < 0 || low < 0)
            return false;
        plain += static_cast<char>(high * 16 + low);
        at += 2;
    }
    return true;
}
