#pragma once

#include "platform/runtime/export.h"

#include <functional>
#include <string>

/// Creates a directory and every missing parent.
///
/// @param mode      permission bits of each directory that is created, less the process's umask
/// @param callback  called with each path that was created, outermost first; may be empty
/// @return 0 on success, also when the directory was there already; -1 on failure
///         (ACE_OS::last_error()), also when something else bears the name
[[nodiscard]] CLIENT_IO_EXPORT int mkdir_p(const char* path, unsigned short mode,
                                           const std::function<void(const char*)>& callback);

/// Takes the directory part of a path: what stands before the last separator.
///
/// "a/b" gives "a", "/b" gives "/", "a/" gives "a".
/// @return false, with @p result empty, when the path has no separator
CLIENT_IO_EXPORT bool dirname_string(const std::string& path, std::string& result, char separator);
