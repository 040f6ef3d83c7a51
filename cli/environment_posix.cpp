#include "cli/environment.h"

#include "cli/path_rules.h"

#include <cstdlib>

namespace cio
{

std::vector<std::string> program_arguments(int argc, const char* const* argv)
{
    return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

std::string environment_variable(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : value;
}

std::string user_state_directory()
{
    const std::string home = environment_variable("HOME");
    return home.empty() ? std::string() : join_path(home, ".local/state");
}

} // namespace cio
