#pragma once

#include <string>
#include <vector>

/// Names that this system's files may have, and that are not like any other.
extern const std::vector<std::string> names_of_this_system;

/// Whether its files of names that differ in case only are one.
extern const bool file_names_ignore_case;
