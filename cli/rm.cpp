#include "cli/interrupt.h"
#include "cli/listing.h"
#include "cli/path_rules.h"

namespace cio
{
namespace
{

/// Removes a directory and everything in it, the deepest first.
/// @return false when something could not be removed, which was reported
bool remove_tree(Client_IO& io, const std::string& path, Reporter& report)
{
    std::vector<std::string> directories;
    bool all = true;
    {
        Entries entries;
        if (!list(io, path, entries, report))
            return false;
        for (Client_IO_Base::Directory_Entry& entry : entries) {
            if (interrupt::requested())
                return false;
            // A target could otherwise have files removed that are not below the directory.
            const std::string below = join_path(path, entry.name);
            if (!is_safe_entry_name(entry.name)) {
                report.error(below, {exit_failed, "The target lists a name that is not one"});
                all = false;
            } else if (entry.is_dir) {
                directories.push_back(std::move(entry.name));
            } else if (io.remove(below.c_str())) {
                report.item_done(true);
            } else {
                report.error(below, target_failure(io));
                all = false;
            }
        }
    }
    for (const std::string& name : directories)
        all = remove_tree(io, join_path(path, name), report) && all;
    if (!all || interrupt::requested())
        return false;
    if (io.remove(path.c_str())) {
        report.item_done(false);
        return true;
    }
    report.error(path, target_failure(io));
    return false;
}

void run_rm(Invocation& invocation)
{
    const Target target = make_target(invocation.arguments[0], invocation.options, false);
    std::vector<std::string> paths;
    for (std::size_t i = 1; i < invocation.arguments.size(); ++i) {
        paths.push_back(target_path(invocation.arguments[i]));
        if (paths.back().empty())
            throw Usage_Error("the target's root is not removed");
    }
    Connection connection(target);
    Client_IO* io = connection.open(invocation.report);
    if (io == nullptr)
        return;
    Failure failure;
    for (const std::string& path : paths) {
        if (interrupt::requested())
            return;
        // The listing tells a directory from a link to one, whose contents stay.
        const auto entry = invocation.recursive ? find_entry(*io, path, failure) : std::nullopt;
        if (entry && entry->is_dir)
            (void)remove_tree(*io, path, invocation.report);
        else if (io->remove(path.c_str()))
            invocation.report.item_done(true);
        else
            invocation.report.error(path, target_failure(*io));
    }
}

} // namespace

const Command rm_command = {
    "rm",
    "URI PATH...",
    "Remove files and empty directories (-r: directories with all they hold)",
    "cio rm -r file:///mnt/backup daily/2025",
    takes_recursive,
    2,
    any_number,
    run_rm,
};

} // namespace cio
