#pragma once

#include "platform/runtime/export.h"

#include <string>

/// Copies a file's contents and permission bits on the local system.
///
/// The system's kernel moves the bytes where it can. The copy is written beside @p dst under a
/// temporary name (".client_io-copy-...") and takes its place only when it is complete, so a
/// failed copy leaves an existing @p dst as it was, and copying a file onto itself is harmless.
///
/// @param share  sharing on Windows: 1 read, 2 write, 4 delete, added up; unused on POSIX
/// @param error    receives the text of a failure; may be NULL
/// @param replace  false: fail with EEXIST when @p dst exists, also when it came into being during
///                 the copy
/// @return false on failure (ACE_OS::last_error())
[[nodiscard]] CLIENT_IO_EXPORT bool copy_file(const char* src, const char* dst, int share,
                                              std::string* error, bool replace = true);
