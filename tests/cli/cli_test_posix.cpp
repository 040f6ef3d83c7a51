#include "tests/cli/cli_test.h"

#include <cstdlib>

namespace fs = std::filesystem;

void Cli_Test::make_private(const std::string& name) const
{
    fs::permissions(at(name), fs::perms::owner_read);
}

void Cli_Test::make_public(const std::string& name) const
{
    fs::permissions(at(name), fs::perms::owner_read | fs::perms::others_read);
}

Environment_Variable::Environment_Variable(const char* name, const std::string& value) : name_(name)
{
    ::setenv(name, value.c_str(), 1);
}

Environment_Variable::~Environment_Variable()
{
    ::unsetenv(name_);
}

fs::path native_path(const std::string& path)
{
    return path;
}
