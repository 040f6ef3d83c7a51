#include "cli/local_path.h"

#include "cli/path_rules.h"
#include "platform/runtime/file_system.h"

#include <ace/Default_Constants.h>

namespace cio
{
namespace
{

constexpr char separator = ACE_DIRECTORY_SEPARATOR_CHAR_A;

std::string_view without_drive(std::string_view path)
{
    const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    const bool has_drive = is_windows && path.size() >= 2 && path[1] == ':' && letter(path.front());
    return has_drive ? path.substr(2) : path;
}

std::string with_separator(std::string path)
{
    if (!ends_with_separator(path))
        path += separator;
    return path;
}

} // namespace

std::string local_name(std::string_view path)
{
    return last_name(without_drive(path));
}

std::string local_parent(std::string_view path)
{
    const std::size_t end = path.find_last_of(separators);
    return std::string(end == std::string_view::npos ? "" : path.substr(0, end == 0 ? 1 : end));
}

bool names_local_entry(std::string_view destination)
{
    return names_entry(without_drive(destination));
}

std::string absolute_path(const std::string& path)
{
    // From the path towards its root until something stands.
    std::string standing = path;
    std::string rest;
    std::string resolved;
    while (!file_system::real_path(standing.empty() ? "." : standing.c_str(), resolved)) {
        const std::string name = local_name(standing);
        if (name.empty())
            return path;
        rest = rest.empty() ? name : with_separator(name).append(rest);
        while (ends_with_separator(standing))
            standing.pop_back();
        standing.resize(standing.size() - name.size());
    }
    return rest.empty() ? resolved : with_separator(resolved) + rest;
}

bool is_inside(const std::string& first, const std::string& second)
{
    return with_separator(absolute_path(first)).starts_with(with_separator(absolute_path(second)));
}

} // namespace cio
