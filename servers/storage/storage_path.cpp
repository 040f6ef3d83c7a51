#include "servers/storage/storage_path.h"

#include "servers/storage/storage_tree.h"

#include <climits>

namespace
{

constexpr unsigned first_stand_in = 0xF780; // of byte 0x80
constexpr unsigned last_stand_in = 0xF7FF;  // of byte 0xFF

unsigned byte_at(std::string_view text, std::size_t at)
{
    return static_cast<unsigned char>(text[at]);
}

/// Length in bytes of the UTF-8 character at a place, 0 when there is none. RFC 3629: no longer
/// forms than needed, no surrogates, nothing above U+10FFFF.
std::size_t character_at(std::string_view text, std::size_t at, unsigned& code)
{
    const unsigned lead = byte_at(text, at);
    if (lead < 0x80) {
        code = lead;
        return 1;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() - at < length)
        return 0;
    code = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned next = byte_at(text, at + i);
        if ((next & 0xC0U) != 0x80)
            return 0;
        code = code << 6U | (next & 0x3FU);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return overlong || surrogate || code > 0x10FFFF ? 0 : length;
}

bool is_stand_in(unsigned code)
{
    return code >= first_stand_in && code <= last_stand_in;
}

void append_stand_in(std::string& text, unsigned byte)
{
    const unsigned code = first_stand_in + (byte - 0x80);
    text += static_cast<char>(0xE0U | code >> 12U);
    text += static_cast<char>(0x80U | (code >> 6U & 0x3FU));
    text += static_cast<char>(0x80U | (code & 0x3FU));
}

} // namespace

bool is_reserved(std::string_view name)
{
    return name.starts_with(Storage_Path::reserved);
}

bool Storage_Path::parse(std::string_view path)
{
    // Looked at in the form in which the system gets it: what the listed form hides counts.
    const std::string meant = Storage_Tree::meant_name(path);
    text_.clear();
    for (std::size_t start = 0; start < meant.size();) {
        const std::size_t end = std::min(meant.find('/', start), meant.size());
        const std::string_view name = std::string_view(meant).substr(start, end - start);
        start = end + 1;
        if (name.empty())
            continue;
        if (name == "." || name == ".." || is_reserved(name) || name.size() > NAME_MAX ||
            name.find('\0') != std::string_view::npos)
            return false;
        if (!text_.empty())
            text_ += '/';
        text_ += name;
    }
    return true;
}

std::string_view Storage_Path::parent() const
{
    const std::size_t end = text_.rfind('/');
    return std::string_view(text_).substr(0, end == std::string::npos ? 0 : end);
}

const char* Storage_Path::name() const
{
    const std::size_t end = text_.rfind('/');
    return text_.c_str() + (end == std::string::npos ? 0 : end + 1);
}

bool Storage_Path::is_below(const Storage_Path& other) const
{
    return text_.size() > other.text_.size() && text_.starts_with(other.text_) &&
           (other.is_root() || text_[other.text_.size()] == '/');
}

std::string Storage_Tree::listed_name(std::string_view name)
{
    std::string listed;
    for (std::size_t at = 0; at < name.size();) {
        unsigned code = 0;
        const std::size_t length = character_at(name, at, code);
        const std::size_t taken = length == 0 ? 1 : length;
        if (length != 0 && !is_stand_in(code))
            listed += name.substr(at, length);
        else
            for (std::size_t i = 0; i < taken; ++i)
                append_stand_in(listed, byte_at(name, at + i));
        at += taken;
    }
    return listed;
}

std::string Storage_Tree::meant_name(std::string_view listed)
{
    std::string name;
    for (std::size_t at = 0; at < listed.size();) {
        unsigned code = 0;
        const std::size_t length = character_at(listed, at, code);
        const std::size_t taken = length == 0 ? 1 : length;
        if (length != 0 && is_stand_in(code))
            name += static_cast<char>(code & 0xFFU);
        else
            name += listed.substr(at, taken);
        at += taken;
    }
    return name;
}
