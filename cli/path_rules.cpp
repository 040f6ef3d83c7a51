#include "cli/path_rules.h"

#include "cli/failure.h"

#include <algorithm>

namespace cio
{
namespace
{

/// Whether this system's file names may hold a character. A colon would name a drive or a hidden
/// stream of another file on Windows.
bool is_allowed(char c)
{
    const bool refused = std::string_view("<>:\"|?*\\").find(c) != std::string_view::npos;
    return !is_windows || (static_cast<unsigned char>(c) >= ' ' && !refused);
}

} // namespace

bool is_entry_name(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view{"/\0", 2}) == std::string_view::npos;
}

bool is_safe_entry_name(std::string_view name)
{
    return is_entry_name(name) && std::all_of(name.begin(), name.end(), is_allowed);
}

std::string target_path(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(separators), text.size());
        const std::string_view name = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (name == "..")
            throw Usage_Error("a path in the target may not hold \"..\"");
        if (!name.empty() && name != ".")
            result = join_path(result, name);
    }
    return result;
}

std::string join_path(std::string_view directory, std::string_view name)
{
    std::string result;
    result.reserve(directory.size() + 1 + name.size());
    result = directory;
    if (!result.empty() && !ends_with_separator(result))
        result += '/';
    result += name;
    return result;
}

std::string last_name(std::string_view path)
{
    const std::size_t end = path.find_last_not_of(separators);
    if (end == std::string_view::npos)
        return {};
    path = path.substr(0, end + 1);
    const std::size_t separator = path.find_last_of(separators);
    return std::string(separator == std::string_view::npos ? path : path.substr(separator + 1));
}

std::string parent_path(std::string_view path)
{
    const std::size_t separator = path.rfind('/');
    return std::string(separator == std::string_view::npos ? "" : path.substr(0, separator));
}

bool ends_with_separator(std::string_view path)
{
    return !path.empty() && std::string_view(separators).find(path.back()) != std::string::npos;
}

bool names_entry(std::string_view destination)
{
    const std::string name = last_name(destination);
    return !name.empty() && name != "." && name != ".." && !ends_with_separator(destination);
}

} // namespace cio
