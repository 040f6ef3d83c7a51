#pragma once

#include <string>

/// Reads a file of at most 1 MiB that nobody but its owner may read or change.
/// @param error  why it is refused, with the file's name
[[nodiscard]] bool read_private_file(const std::string& path, std::string& text,
                                     std::string& error);
