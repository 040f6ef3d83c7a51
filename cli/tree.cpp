#include "cli/interrupt.h"
#include "cli/listing.h"
#include "cli/path_rules.h"
#include "platform/json/json_value.h"

namespace cio
{
namespace
{

struct Counts
{
    std::uint64_t directories = 0;
    std::uint64_t files = 0;
};

void show(Client_IO& io, const std::string& path, std::size_t depth, Invocation& invocation,
          Counts& counts)
{
    Entries entries;
    if (!list(io, path, entries, invocation.report))
        return;
    invocation.report.item_done(false);
    for (const std::size_t index : order_by_name(entries)) {
        const Client_IO_Base::Directory_Entry& entry = entries[index];
        if (interrupt::requested() || invocation.out.failed())
            return;
        const std::string below = join_path(path, entry.name);
        if (invocation.report.json())
            invocation.out.write_line(entry_line(below, entry));
        else
            invocation.out.write(std::string(2 * depth, ' ') +
                                 invocation.out.printable(entry.name) +
                                 (entry.is_dir ? "/\n" : "\n"));
        ++(entry.is_dir ? counts.directories : counts.files);
        if (entry.is_dir)
            show(io, below, depth + 1, invocation, counts);
    }
}

void run_tree(Invocation& invocation)
{
    const Place place = read_place(invocation);
    Connection connection(place.target);
    Client_IO* io = connection.open(invocation.report);
    if (io == nullptr)
        return;
    const std::optional<bool> directory = is_directory(*io, place.path, invocation.report);
    if (!directory)
        return;
    if (!*directory)
        return invocation.report.error(place.path, {exit_failed, "Is a file, not a directory"});
    Counts counts;
    if (!invocation.report.json())
        invocation.out.write(invocation.out.printable(place.path) + "/\n");
    show(*io, place.path, 1, invocation, counts);
    if (!invocation.report.json())
        invocation.out.write(std::string("\n") + std::to_string(counts.directories) +
                             " directories, " + std::to_string(counts.files) + " files\n");
}

} // namespace

const Command tree_command = {
    "tree",
    "URI [PATH]",
    "Show the directories and files of a target as a tree",
    "cio tree file:///mnt/backup daily",
    0,
    1,
    2,
    run_tree,
};

} // namespace cio
