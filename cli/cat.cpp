#include "cli/command.h"
#include "cli/interrupt.h"
#include "cli/path_rules.h"

namespace cio
{
namespace
{

void run_cat(Invocation& invocation)
{
    const Target target = make_target(invocation.arguments[0], invocation.options, false);
    const std::string path = target_path(invocation.arguments[1]);
    if (path.empty())
        throw Usage_Error("the target's root is a directory, not a file");
    Connection connection(target);
    Client_IO* io = connection.open(invocation.report);
    if (io == nullptr)
        return;
    const void* data = nullptr;
    std::uint64_t size = 0;
    if (!io->open(path.c_str(), Client_IO_Base::mode_read, 0, 0))
        return invocation.report.error(path, target_failure(*io));
    bool done = true;
    while (done && !invocation.out.failed() && !interrupt::requested()) {
        done = io->read(data, size);
        if (!done || size == 0)
            break;
        invocation.out.write({static_cast<const char*>(data), size});
        invocation.report.bytes_moved(size);
    }
    if (done)
        done = io->close();
    if (!done)
        invocation.report.error(path, stream_failure(*io));
    else
        invocation.report.item_done(true);
}

} // namespace

const Command cat_command = {
    "cat",
    "URI PATH",
    "Write a file of a target to standard output",
    "cio cat file:///mnt/backup shop.sql | psql shop",
    takes_transforms,
    2,
    2,
    run_cat,
};

} // namespace cio
