#pragma once

#include <string>
#include <vector>

/// What the process was started with, as UTF-8 on Windows and as bytes elsewhere.
namespace cio
{

/// What the command line holds behind the program's own name.
[[nodiscard]] std::vector<std::string> program_arguments(int argc, const char* const* argv);

/// The value of an environment variable, empty when it is not set.
[[nodiscard]] std::string environment_variable(const char* name);

/// Where this system keeps what a program remembers for its user, empty when it has no such place.
[[nodiscard]] std::string user_state_directory();

} // namespace cio
