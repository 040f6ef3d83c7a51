#include "cli/command.h"
#include "cli/path_rules.h"

namespace cio
{
namespace
{

constexpr unsigned short directory_mode = 0750;

void run_mkdir(Invocation& invocation)
{
    const Target target = make_target(invocation.arguments[0], invocation.options, true);
    const std::string path = target_path(invocation.arguments[1]);
    if (path.empty())
        throw Usage_Error("the target's root needs no making");
    Connection connection(target);
    Client_IO* io = connection.open(invocation.report);
    if (io == nullptr)
        return;
    if (io->make_dir(path.c_str(), directory_mode))
        invocation.report.item_done(false);
    else
        invocation.report.error(path, target_failure(*io));
}

} // namespace

const Command mkdir_command = {
    "mkdir",
    "URI PATH",
    "Make a directory and its missing parents",
    "cio mkdir file:///mnt/backup daily/2026",
    0,
    2,
    2,
    run_mkdir,
};

} // namespace cio
