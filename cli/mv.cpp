#include "cli/command.h"
#include "cli/path_rules.h"

namespace cio
{
namespace
{

void run_mv(Invocation& invocation)
{
    const Target target = make_target(invocation.arguments[0], invocation.options, false);
    const std::string source = target_path(invocation.arguments[1]);
    const std::string destination = target_path(invocation.arguments[2]);
    if (source.empty() || destination.empty())
        throw Usage_Error("the target's root cannot be moved or replaced");
    Connection connection(target);
    Client_IO* io = connection.open(invocation.report);
    if (io == nullptr)
        return;
    const bool overwrite = invocation.overwrite || invocation.options.overwrite;
    if (io->rename(source.c_str(), destination.c_str(), overwrite))
        invocation.report.item_done(true);
    else
        invocation.report.error(source, target_failure(*io));
}

} // namespace

const Command mv_command = {
    "mv",
    "URI SRC DST",
    "Rename a file or directory inside a target",
    "cio mv file:///mnt/backup daily/new daily/2026-11-20",
    takes_overwrite,
    3,
    3,
    run_mv,
};

} // namespace cio
