#pragma once

#include <ace/Default_Constants.h>
#include <string>
#include <string_view>

/// The rules for names and paths. Paths inside a target always use '/'; where the user writes one
/// on Windows, '\' means the same.
namespace cio
{

inline constexpr bool is_windows = ACE_DIRECTORY_SEPARATOR_CHAR_A == '\\';
inline constexpr const char* separators = is_windows ? "/\\" : "/";

/// Whether what a target listed is a name. A target is not trusted: names that are empty, "." or
/// "..", or that hold a '/' or a NUL could lead out of the directory that they were listed in.
[[nodiscard]] bool is_entry_name(std::string_view name);

/// Whether such a name may be used as the name of a local file: it is one, and holds nothing that
/// this system's file names cannot. That is `< > : " | ? * \` and control characters on Windows.
[[nodiscard]] bool is_safe_entry_name(std::string_view name);

/// Brings a path that the user gave into the form that targets are given: names joined by one
/// '/', none of them empty or ".", no '/' at either end. The target's root becomes "".
/// Throws Usage_Error when a name is "..": such a path could leave the target.
[[nodiscard]] std::string target_path(std::string_view text);

/// "dir/name"; the name alone in the root.
[[nodiscard]] std::string join_path(std::string_view directory, std::string_view name);

/// The last name of a path, trailing separators not counted; empty for a path of separators only.
[[nodiscard]] std::string last_name(std::string_view path);

/// What stands before the last name of a path in a target; "" for names in the root.
[[nodiscard]] std::string parent_path(std::string_view path);

[[nodiscard]] bool ends_with_separator(std::string_view path);

/// Whether a destination that the user gave is the name of what is moved there, not the directory
/// that it goes into: it is neither empty nor ".", "..", nor does it end in a separator.
[[nodiscard]] bool names_entry(std::string_view destination);

} // namespace cio
