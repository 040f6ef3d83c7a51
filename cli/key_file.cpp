#include "cli/key_file.h"

#include "cli/failure.h"
#include "cli/secret_file.h"
#include "platform/runtime/posix_error.h"

#include <ace/OS_NS_errno.h>
#include <openssl/crypto.h>

namespace cio
{
namespace
{

constexpr std::size_t largest_file = 4096;

/// The file's text, wiped when it goes. One byte more than allowed shows that there is more.
struct Text
{
    Text() = default;
    ~Text() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    std::array<char, largest_file + 1> bytes{};
    std::size_t size = 0;
};

std::string_view trimmed(std::string_view text)
{
    constexpr const char* blanks = " \t\r";
    const std::size_t start = text.find_first_not_of(blanks);
    if (start == std::string_view::npos)
        return {};
    return text.substr(start, text.find_last_not_of(blanks) + 1 - start);
}

/// @return its value, -1 for other characters
int hexadecimal(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

void parse_hexadecimal(std::string_view digits, const std::string& where, Secret_Bytes& bytes)
{
    if (digits.empty() || digits.size() % 2 != 0)
        throw Usage_Error(where + "the value is no even number of hexadecimal digits");
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const int high = hexadecimal(digits[i]);
        const int low = hexadecimal(digits[i + 1]);
        if (high < 0 || low < 0)
            throw Usage_Error(where + "the value holds what is no hexadecimal digit");
        if (!bytes.append(static_cast<unsigned char>(high * 16 + low)))
            throw Usage_Error(where + "the value is longer than " +
                              std::to_string(Secret_Bytes::capacity) + " bytes");
    }
}

} // namespace

Secret_Bytes::~Secret_Bytes()
{
    OPENSSL_cleanse(bytes_.data(), bytes_.size());
}

bool Secret_Bytes::append(unsigned char byte)
{
    if (size_ == capacity)
        return false;
    bytes_[size_++] = byte;
    return true;
}

void parse_key_file(std::string_view text, const std::string& name, Key_Material& material)
{
    std::size_t number = 0;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view whole = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++number;
        const std::string_view line = trimmed(whole.substr(0, whole.find('#')));
        if (line.empty())
            continue;
        const std::string where = name + ", line " + std::to_string(number) + ": ";
        const std::size_t equals = line.find('=');
        const std::string_view member = trimmed(line.substr(0, equals));
        if (member == "salt" && equals != std::string_view::npos)
            continue;
        if ((member != "key" && member != "iv") || equals == std::string_view::npos)
            throw Usage_Error(where + "neither key=HEX nor iv=HEX");
        Secret_Bytes& bytes = member == "key" ? material.key : material.iv;
        if (!bytes.empty())
            throw Usage_Error(where + "a second " + std::string(member));
        parse_hexadecimal(trimmed(line.substr(equals + 1)), where, bytes);
    }
    if (material.key.empty() || material.iv.empty())
        throw Usage_Error(name + " holds no " + (material.key.empty() ? "key" : "iv") +
                          " (a line " + (material.key.empty() ? "key" : "iv") + "=HEX)");
}

std::string read_key_file(const std::string& path, Key_Material& material)
{
    const std::string name = "key file " + path;
    Text text;
    bool exposed = false;
    if (!read_secret_file(path, text.bytes, text.size, exposed))
        throw Usage_Error(name + ": " + POSIX_Error(ACE_OS::last_error(), 1).str());
    if (text.size > largest_file)
        throw Usage_Error(name + " is larger than 4 KiB");
    parse_key_file({text.bytes.data(), text.size}, name, material);
    return exposed ? name + " can be read by other users" : std::string();
}

} // namespace cio
