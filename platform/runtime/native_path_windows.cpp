#include "platform/runtime/native_path.h"

#include "platform/runtime/os_error.h"

#include <ace/OS_NS_errno.h>
#include <algorithm>
#include <cstdint>
#include <vector>

#include <windows.h>

namespace
{

constexpr std::wstring_view unedited = L"\\\\?\\";
constexpr std::wstring_view unedited_share = L"\\\\?\\UNC\\";
constexpr std::wstring_view device = L"\\\\.\\";

constexpr bool is_high_surrogate(std::uint32_t unit)
{
    return (unit & 0xFC00U) == 0xD800U;
}

constexpr bool is_low_surrogate(std::uint32_t unit)
{
    return (unit & 0xFC00U) == 0xDC00U;
}

// Decodes one character and takes it off the text; a surrogate alone counts as one.
bool take_character(std::string_view& text, std::uint32_t& code)
{
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned first = byte(0);
    if (first < 0x80) {
        code = first;
        text.remove_prefix(1);
        return true;
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length)
        return false;
    code = first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80U)
            return false;
        code = code << 6U | (byte(i) & 0x3FU);
    }
    text.remove_prefix(length);
    // The shortest form only: there must not be two spellings of one name.
    return code >= (length == 3 ? 0x800U : length == 4 ? 0x10000U : 0x80U) && code <= 0x10FFFFU;
}

bool refuse(int reason)
{
    ACE_OS::last_error(reason);
    return false;
}

constexpr bool is_letter(wchar_t c)
{
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
}

constexpr bool begins_with_drive(std::wstring_view path)
{
    return path.size() >= 2 && is_letter(path[0]) && path[1] == L':';
}

// The current directory of the process, or of one of its drives ("C:"), in the editable form.
std::wstring current_directory(const std::wstring& drive)
{
    const wchar_t* const relative = drive.empty() ? L"." : drive.c_str();
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            GetFullPathNameW(relative, static_cast<DWORD>(path.size()), path.data(), nullptr);
        if (length == 0)
            return {};
        const bool fits = length < path.size();
        path.resize(length);
        if (fits)
            return path;
    }
}

bool is_allowed(std::wstring_view name)
{
    for (const wchar_t c : name)
        if (c < L' ' || std::wstring_view(L"<>:\"|?*").find(c) != std::wstring_view::npos)
            return false;
    return true;
}

bool is_name(std::wstring_view name)
{
    return !name.empty() && name != L"." && name != L".." && is_allowed(name);
}

// "\\server\share" and what follows.
bool take_share(std::wstring& path, std::wstring& root)
{
    const std::size_t server_end = std::min(path.find(L'\\', 2), path.size());
    const std::wstring_view whole = path;
    const std::wstring_view server = whole.substr(2, server_end - 2);
    const std::size_t share_start = std::min(server_end + 1, path.size());
    const std::size_t share_end = std::min(path.find(L'\\', share_start), path.size());
    const std::wstring_view share = whole.substr(share_start, share_end - share_start);
    if (!is_name(server) || !is_name(share))
        return refuse(os_error::invalid_name);
    root = std::wstring(unedited_share).append(server).append(L"\\").append(share) + L'\\';
    path.erase(0, share_end);
    return true;
}

// "\\.\pipe", "\\?\Volume{...}": neither a drive nor a share. It keeps its prefix.
bool take_device(std::wstring& path, std::wstring& root)
{
    const std::size_t end = std::min(path.find(L'\\', unedited.size()), path.size());
    root = path.substr(0, end);
    if (!is_name(std::wstring_view(root).substr(unedited.size())))
        return refuse(os_error::invalid_name);
    path.erase(0, end);
    return true;
}

// What a path begins with and ".." cannot climb over; taken off the path.
bool take_root(std::wstring& path, std::wstring& root)
{
    if (path.starts_with(unedited) || path.starts_with(device)) {
        const std::wstring_view rest = std::wstring_view(path).substr(unedited.size());
        if (rest.starts_with(L"UNC\\"))
            path = L"\\\\" + std::wstring(rest.substr(4));
        else if (begins_with_drive(rest) && (rest.size() == 2 || rest[2] == L'\\'))
            path = std::wstring(rest);
        else
            return take_device(path, root);
    }
    if (path.starts_with(L"\\\\"))
        return take_share(path, root);
    if (!begins_with_drive(path))
        return refuse(os_error::invalid_name);
    root = std::wstring(unedited) + path.substr(0, 2) + L'\\';
    path.erase(0, 2);
    return true;
}

bool make_absolute(std::wstring& path)
{
    if (path.starts_with(L"\\\\") ||
        (begins_with_drive(path) && path.size() > 2 && path[2] == L'\\'))
        return true;
    const bool has_drive = begins_with_drive(path);
    std::wstring base = current_directory(has_drive ? path.substr(0, 2) : std::wstring());
    if (base.empty()) {
        ACE_OS::set_errno_to_last_error();
        return false;
    }
    if (has_drive)
        path.erase(0, 2);
    if (path.starts_with(L'\\')) {
        std::wstring root;
        std::wstring rest = base;
        if (!take_root(rest, root))
            return false;
        base.resize(base.size() - rest.size());
    }
    path = base + L'\\' + path;
    return true;
}

bool resolve_names(std::wstring_view path, std::vector<std::wstring_view>& names)
{
    while (!path.empty()) {
        const std::size_t end = std::min(path.find(L'\\'), path.size());
        const std::wstring_view name = path.substr(0, end);
        path.remove_prefix(std::min(end + 1, path.size()));
        if (name == L"..") {
            if (!names.empty())
                names.pop_back();
        } else if (!name.empty() && name != L".") {
            if (!is_allowed(name))
                return refuse(os_error::invalid_name);
            names.push_back(name);
        }
    }
    return true;
}

} // namespace

bool utf8_to_wide(std::string_view text, std::wstring& wide)
{
    wide.clear();
    wide.reserve(text.size());
    while (!text.empty()) {
        std::uint32_t code = 0;
        if (!take_character(text, code))
            return refuse(ERROR_NO_UNICODE_TRANSLATION);
        // Two halves of a pair have a spelling as one character, and only that one.
        if (is_low_surrogate(code) && !wide.empty() && is_high_surrogate(wide.back()))
            return refuse(ERROR_NO_UNICODE_TRANSLATION);
        if (code >= 0x10000U) {
            wide += static_cast<wchar_t>(0xD800U + ((code - 0x10000U) >> 10U));
            wide += static_cast<wchar_t>(0xDC00U + (code & 0x3FFU));
        } else {
            wide += static_cast<wchar_t>(code);
        }
    }
    return true;
}

std::string wide_to_utf8(std::wstring_view wide)
{
    std::string text;
    text.reserve(wide.size());
    const auto put = [&text](std::uint32_t bits) { text += static_cast<char>(bits); };
    for (std::size_t i = 0; i < wide.size(); ++i) {
        std::uint32_t code = wide[i];
        if (is_high_surrogate(code) && i + 1 < wide.size() && is_low_surrogate(wide[i + 1]))
            code = 0x10000U + ((code & 0x3FFU) << 10U) + (wide[++i] & 0x3FFU);
        if (code < 0x80U) {
            put(code);
            continue;
        }
        if (code >= 0x10000U) {
            put(0xF0U | code >> 18U);
            put(0x80U | (code >> 12U & 0x3FU));
        } else if (code >= 0x800U) {
            put(0xE0U | code >> 12U);
        }
        put(code >= 0x800U ? 0x80U | (code >> 6U & 0x3FU) : 0xC0U | code >> 6U);
        put(0x80U | (code & 0x3FU));
    }
    return text;
}

bool to_native_path(const char* path, std::wstring& native)
{
    if (path == nullptr)
        return refuse(os_error::invalid_argument);
    std::wstring wide;
    if (!utf8_to_wide(path, wide))
        return false;
    if (wide.empty())
        return refuse(os_error::no_such_directory);
    std::replace(wide.begin(), wide.end(), L'/', L'\\');
    // It makes the difference between a volume and the directory at its root.
    const bool ends_in_separator = wide.back() == L'\\';
    std::wstring root;
    std::vector<std::wstring_view> names;
    if (!make_absolute(wide) || !take_root(wide, root) || !resolve_names(wide, names))
        return false;
    native = root;
    for (const std::wstring_view name : names) {
        if (native.back() != L'\\')
            native += L'\\';
        native += name;
    }
    if (names.empty() && ends_in_separator && native.back() != L'\\')
        native += L'\\';
    return true;
}

std::string from_native_path(std::wstring_view native)
{
    if (native.starts_with(unedited_share))
        return "\\\\" + wide_to_utf8(native.substr(unedited_share.size()));
    if (native.starts_with(unedited) && begins_with_drive(native.substr(unedited.size())))
        native.remove_prefix(unedited.size());
    return wide_to_utf8(native);
}
