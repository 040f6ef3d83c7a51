#include "cli/local_path.h"

namespace cio
{

std::string local_spelling(const std::string& name)
{
    return name;
}

} // namespace cio
