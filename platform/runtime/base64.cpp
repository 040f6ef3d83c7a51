#include "platform/runtime/base64.h"

#include <algorithm>
#include <new>
#include <openssl/evp.h>

namespace
{

constexpr std::string_view white_space = " \t\r\n\v\f";
// OpenSSL counts in int, so long data goes through it in pieces; 3 bytes make 4 characters.
constexpr std::uint64_t piece_bytes = 3U << 20U;
constexpr std::uint64_t piece_characters = piece_bytes / 3 * 4;

std::string_view trim(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(white_space);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(white_space) - first + 1);
}

// The number that a character stands for, -1 for characters outside the alphabet.
constexpr int value_of(char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    return c == '/' ? 63 : -1;
}

// OpenSSL's decoder skips what it does not know at both ends and keeps spare bits, so the text
// is judged before it gets there. `digits` is the text without its padding.
bool is_strict(std::string_view digits, std::size_t padding)
{
    if (padding > 2 || (digits.size() + padding) % 4 != 0)
        return false;
    if (!std::all_of(digits.begin(), digits.end(), [](char c) { return value_of(c) >= 0; }))
        return false;
    const int spare_bits = padding == 1 ? 0x03 : 0x0F;
    return padding == 0 || (value_of(digits.back()) & spare_bits) == 0;
}

} // namespace

std::string Base64_Encoder::encode(const void* data, std::uint64_t size)
{
    std::string text;
    if (data == nullptr || size == 0)
        return text;
    const auto* from = static_cast<const unsigned char*>(data);
    // EVP_EncodeBlock also writes a terminating NUL; the string has room for the last one.
    text.resize((size + 2) / 3 * 4);
    auto* to = reinterpret_cast<unsigned char*>(text.data());
    while (size > 0) {
        const std::uint64_t piece = std::min(size, piece_bytes);
        to += EVP_EncodeBlock(to, from, static_cast<int>(piece));
        from += piece;
        size -= piece;
    }
    return text;
}

bool Base64_Decoder::decode(std::string_view text, std::string& out)
{
    // Filled aside and put in place at the end, since `text` may lie inside `out`.
    std::string bytes;
    text = trim(text);
    std::string_view digits = text;
    while (!digits.empty() && digits.back() == '=')
        digits.remove_suffix(1);
    const std::size_t padding = text.size() - digits.size();
    bool decoded = is_strict(digits, padding);
    try {
        if (decoded)
            bytes.resize(text.size() / 4 * 3);
    } catch (const std::bad_alloc&) {
        decoded = false;
    }
    auto* to = reinterpret_cast<unsigned char*>(bytes.data());
    while (decoded && !text.empty()) {
        const std::string_view piece = text.substr(0, piece_characters);
        const int count = EVP_DecodeBlock(to, reinterpret_cast<const unsigned char*>(piece.data()),
                                          static_cast<int>(piece.size()));
        decoded = count >= 0;
        to += count;
        text.remove_prefix(piece.size());
    }
    // The decoder counts padding as zero bytes.
    bytes.resize(decoded ? bytes.size() - padding : 0);
    out = std::move(bytes);
    return decoded;
}
