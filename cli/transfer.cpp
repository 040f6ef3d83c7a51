#include "cli/transfer.h"

#include "cli/interrupt.h"
#include "cli/path_rules.h"
#include "cli/resume.h"

#include <ace/OS_NS_stdlib.h>
#include <ace/os_include/os_limits.h>
#include <array>

namespace cio
{
namespace
{

std::string real_path(std::string path)
{
    std::array<char, PATH_MAX + 1> resolved{};
    std::string rest;
    while (ACE_OS::realpath(path.empty() ? "." : path.c_str(), resolved.data()) == nullptr) {
        if (last_name(path).empty())
            return {};
        rest = join_path(last_name(path), rest);
        while (ends_with_separator(path))
            path.pop_back();
        path.resize(path.size() - last_name(path).size());
    }
    return join_path(resolved.data(), rest);
}

} // namespace

bool shall_stop(std::uint64_t position, std::uint64_t size)
{
    if (!interrupt::requested())
        return false;
    const bool nearly_done = size != Client_IO_Base::size_unknown && position <= size &&
                             size - position < worth_continuing;
    return !nearly_done;
}

bool is_inside(const std::string& first, const std::string& second)
{
    const std::string outer = join_path(real_path(second), "");
    return !outer.empty() && join_path(real_path(first), "").starts_with(outer);
}

} // namespace cio
