#include "cli/interrupt.h"
#include "cli/listing.h"
#include "cli/path_rules.h"
#include "platform/json/json_value.h"

namespace cio
{
namespace
{

struct Usage
{
    std::uint64_t bytes = 0;
    std::uint64_t files = 0;
};

void show(const std::string& path, const Usage& usage, Invocation& invocation)
{
    if (invocation.report.json()) {
        json_spirit::Object line{{"type", "entry"}, {"size", usage.bytes}, {"files", usage.files}};
        add_bytes(line, "path", path);
        return invocation.out.write_line(line);
    }
    invocation.out.write(std::to_string(usage.bytes) + "\t" + std::to_string(usage.files) + "\t" +
                         invocation.out.printable("/" + path) + "\n");
}

Usage add_up(Client_IO& io, const std::string& path, Invocation& invocation, bool top)
{
    Usage usage;
    std::vector<std::string> directories;
    {
        Entries entries;
        if (!list(io, path, entries, invocation.report))
            return usage;
        invocation.report.item_done(false);
        for (const std::size_t index : order_by_name(entries)) {
            Client_IO_Base::Directory_Entry& entry = entries[index];
            if (entry.is_dir) {
                directories.push_back(std::move(entry.name));
            } else {
                usage.bytes += entry.size;
                ++usage.files;
            }
        }
    }
    for (const std::string& name : directories) {
        if (interrupt::requested() || invocation.out.failed())
            return usage;
        const Usage below = add_up(io, join_path(path, name), invocation, false);
        usage.bytes += below.bytes;
        usage.files += below.files;
    }
    if (top || !invocation.summarize)
        show(path, usage, invocation);
    return usage;
}

void run_du(Invocation& invocation)
{
    const Place place = read_place(invocation);
    Connection connection(place.target);
    Client_IO* io = connection.open(invocation.report);
    if (io == nullptr)
        return;
    const std::optional<bool> directory = is_directory(*io, place.path, invocation.report);
    if (!directory)
        return;
    if (*directory) {
        add_up(*io, place.path, invocation, true);
        return;
    }
    show(place.path, {io->size(place.path.c_str()), 1}, invocation);
    invocation.report.item_done(true);
}

} // namespace

const Command du_command = {
    "du",
    "URI [PATH]",
    "Add up bytes and files of each directory, the named one last",
    "cio du -s file:///mnt/backup daily",
    takes_summarize,
    1,
    2,
    run_du,
};

} // namespace cio
