#include "cli/listing.h"
#include "cli/path_rules.h"
#include "platform/json/json_value.h"

namespace cio
{
namespace
{

void run_stat(Invocation& invocation)
{
    const Place place = read_place(invocation);
    Connection connection(place.target);
    Client_IO* io = connection.open(invocation.report);
    if (io == nullptr)
        return;
    Failure failure;
    auto entry = find_entry(*io, place.path, failure);
    if (!entry)
        return invocation.report.error(place.path, failure);
    // A link to a directory is listed as what is not a directory, but can be used as one.
    if (!place.path.empty() && io->size(place.path.c_str()) == Client_IO_Base::size_of_directory)
        entry->is_dir = true;
    if (invocation.report.json()) {
        invocation.out.write_line(entry_line(place.path, *entry));
    } else {
        std::string text = "path:  " + invocation.out.printable("/" + place.path) + "\n";
        text += std::string("type:  ") + (entry->is_dir ? "directory" : "file") + "\n";
        if (!entry->is_dir)
            text += "size:  " + std::to_string(entry->size) + "\n";
        if (!place.path.empty())
            text += "mtime: " + format_time(entry->mtime) + "\n";
        invocation.out.write(text);
    }
    invocation.report.item_done(!entry->is_dir);
}

} // namespace

const Command stat_command = {
    "stat",
    "URI PATH",
    "Show what a target knows about a file or directory",
    "cio stat file:///mnt/backup daily/etc/fstab",
    0,
    2,
    2,
    run_stat,
};

} // namespace cio
