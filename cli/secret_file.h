#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace cio
{

/// Reads a small file that holds a secret: into the caller's memory and nowhere else, so that the
/// caller can wipe it.
/// @param size     bytes that were read; a file that fills @p buffer may go on
/// @param exposed  whether the file's permissions let other users read it: on Windows whether its
///                 access list lets Everyone, Authenticated Users or Users
/// @return false on failure (ACE_OS::last_error())
[[nodiscard]] bool read_secret_file(const std::string& path, std::span<char> buffer,
                                    std::size_t& size, bool& exposed);

} // namespace cio
