#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace cio
{

/// Bytes of a secret, wiped when they go.
class Secret_Bytes
{
public:
    static constexpr std::size_t capacity = 64;

    Secret_Bytes() = default;
    ~Secret_Bytes();
    Secret_Bytes(const Secret_Bytes&) = delete;
    Secret_Bytes& operator=(const Secret_Bytes&) = delete;

    /// @return false when there is no room left
    [[nodiscard]] bool append(unsigned char byte);
    const unsigned char* data() const { return bytes_.data(); }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }

private:
    std::array<unsigned char, capacity> bytes_{};
    std::size_t size_ = 0;
};

struct Key_Material
{
    Secret_Bytes key;
    Secret_Bytes iv;
};

/// Reads the text of a key file: lines "key=HEX" and "iv=HEX", once each, as `openssl enc -P`
/// prints them. Blanks do not matter, nor does what follows a '#'; a line "salt=..." is ignored.
/// Throws Usage_Error, whose text begins with @p name and never holds anything of the file.
void parse_key_file(std::string_view text, const std::string& name, Key_Material& material);

/// Reads a key file of at most 4 KiB. Throws Usage_Error likewise.
/// @return what the user should know about the file, empty when there is nothing
[[nodiscard]] std::string read_key_file(const std::string& path, Key_Material& material);

} // namespace cio
