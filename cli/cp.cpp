#include "cli/interrupt.h"
#include "cli/listing.h"
#include "cli/path_rules.h"

namespace cio
{
namespace
{

constexpr unsigned short directory_mode = 0750;

class Copy
{
public:
    Copy(Client_IO& io, Reporter& report, bool overwrite)
        : io_(io), report_(report), overwrite_(overwrite)
    {}

    void file(const std::string& source, const std::string& destination)
    {
        if (io_.copy(source.c_str(), destination.c_str(), overwrite_))
            report_.item_done(true);
        else
            report_.error(source, target_failure(io_));
    }

    void tree(const std::string& source, const std::string& destination)
    {
        Entries entries;
        if (!list(io_, source, entries, report_))
            return;
        if (!io_.make_dir(destination.c_str(), directory_mode))
            return report_.error(destination, target_failure(io_));
        report_.item_done(false);
        for (const Client_IO_Base::Directory_Entry& entry : entries) {
            if (interrupt::requested())
                return;
            const std::string below = join_path(source, entry.name);
            if (!is_entry_name(entry.name))
                report_.error(below, {exit_failed, "The target lists a name that is not one"});
            else if (entry.is_dir)
                tree(below, join_path(destination, entry.name));
            else
                file(below, join_path(destination, entry.name));
        }
    }

private:
    Client_IO& io_;
    Reporter& report_;
    bool overwrite_;
};

void run_cp(Invocation& invocation)
{
    const Target target = make_target(invocation.arguments[0], invocation.options, false);
    const std::string source = target_path(invocation.arguments[1]);
    const std::string destination = target_path(invocation.arguments[2]);
    if (source.empty() || destination.empty())
        throw Usage_Error("the target's root cannot be copied or replaced");
    if ((destination + "/").starts_with(source + "/") && source != destination)
        throw Usage_Error("'" + source + "' cannot be copied into itself");
    Connection connection(target);
    Client_IO* io = connection.open(invocation.report);
    if (io == nullptr)
        return;
    const std::optional<bool> directory = is_directory(*io, source, invocation.report);
    if (!directory)
        return;
    const bool overwrite = invocation.overwrite || invocation.options.overwrite;
    Copy copy(*io, invocation.report, overwrite);
    if (!*directory)
        return copy.file(source, destination);
    if (!overwrite && io->size(destination.c_str()) != Client_IO_Base::size_unknown)
        return invocation.report.error(destination, {exit_exists, "Exists already"});
    copy.tree(source, destination);
}

} // namespace

const Command cp_command = {
    "cp",
    "URI SRC DST",
    "Copy a file or directory inside a target",
    "cio cp file:///mnt/backup daily/etc kept/etc",
    takes_overwrite,
    3,
    3,
    run_cp,
};

} // namespace cio
