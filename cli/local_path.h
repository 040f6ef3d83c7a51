#pragma once

#include <string>
#include <string_view>

/// Paths of this machine's files, as the user writes them. Windows takes '\' as well as '/', and
/// "C:" in front names a drive.
namespace cio
{

/// The last name of a path, trailing separators not counted; empty when it holds separators (and a
/// drive) only.
[[nodiscard]] std::string local_name(std::string_view path);

/// What stands before the last separator: "a" for "a/b", "/" for "/b"; "" when there is none.
[[nodiscard]] std::string local_parent(std::string_view path);

/// Whether a destination that the user gave is the name of what is moved there, not the directory
/// that it goes into: it is neither empty nor ".", "..", nor does it end in a separator.
[[nodiscard]] bool names_local_entry(std::string_view destination);

/// The spelling that all names have in common which lead to one local file: on Windows, which does
/// not tell capital letters from small ones, that in capitals.
[[nodiscard]] std::string local_spelling(const std::string& name);

/// The one absolute path of what stands at @p path, or would if it existed, without links; the path
/// itself when that cannot be told.
[[nodiscard]] std::string absolute_path(const std::string& path);

/// Whether @p first is @p second or lies inside it; both local directories, which need not exist.
[[nodiscard]] bool is_inside(const std::string& first, const std::string& second);

} // namespace cio
