#pragma once

#include "platform/runtime/export.h"

#include <functional>
#include <string>

/// Creates a directory and every missing parent.
///
/// @param mode      permission bits of each directory that is created, less the process's umask
/// @param callback  called with each path that was created, outermost first; may be empty
/// @return 0 on success, also when the directory was there already; -1 on failure
///         (ACE_OS::last_error()): ENOTDIR or EEXIST when something else bears the name
[[nodiscard]] CLIENT_IO_EXPORT int mkdir_p(const char* path, unsigned short mode,
                                           const std::function<void(const char*)>& callback);

/// Gives a directory exactly these permission bits, also those that the umask held back when it was
/// made; a group that its entries inherit stays. Nothing happens where the file system or the
/// system has no such bits.
CLIENT_IO_EXPORT void set_directory_permissions(const char* path, unsigned short mode);

/// Renames a file or directory unless the new name is taken. Where the system and file system can
/// tell, two renames to one name cannot both succeed.
/// @return false on failure (ACE_OS::last_error()), EEXIST when @p dst exists
[[nodiscard]] CLIENT_IO_EXPORT bool rename_new(const char* src, const char* dst);

/// Whether two paths lead to one file (through links too); false when one of them cannot be
/// examined.
[[nodiscard]] CLIENT_IO_EXPORT bool is_same_file(const char* first, const char* second);

/// Takes the directory part of a path: what stands before the last separator.
///
/// "a/b" gives "a", "/b" gives "/", "a/" gives "a".
/// @return false, with @p result empty, when the path has no separator
CLIENT_IO_EXPORT bool dirname_string(const std::string& path, std::string& result, char separator);
