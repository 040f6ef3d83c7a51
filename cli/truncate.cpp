#include "cli/command.h"
#include "cli/path_rules.h"
#include "cli/size_text.h"

namespace cio
{
namespace
{

void run_truncate(Invocation& invocation)
{
    const Target target = make_target(invocation.arguments[0], invocation.options, false);
    const std::string path = target_path(invocation.arguments[1]);
    const std::uint64_t size = parse_size(invocation.arguments[2]);
    if (path.empty())
        throw Usage_Error("the target's root is a directory, not a file");
    if (target.transforms(path))
        throw Usage_Error("a compressed or encrypted file cannot be cut or extended");
    Connection connection(target);
    Client_IO* io = connection.open(invocation.report);
    if (io == nullptr)
        return;
    if (io->truncate(path.c_str(), size))
        invocation.report.item_done(true);
    else
        invocation.report.error(path, target_failure(*io));
}

} // namespace

const Command truncate_command = {
    "truncate",
    "URI PATH SIZE",
    "Cut or extend a file to SIZE bytes (suffixes K, M, G, T: powers of 1024)",
    "cio truncate file:///mnt/backup disk.img 10G",
    0,
    3,
    3,
    run_truncate,
};

} // namespace cio
