#include "cli/interrupt.h"
#include "cli/listing.h"
#include "cli/path_rules.h"
#include "platform/json/json_value.h"

#include <array>
#include <charconv>

namespace cio
{
namespace
{

constexpr std::size_t size_column = 15;

class Ls
{
public:
    explicit Ls(Invocation& invocation) : invocation_(invocation) {}

    /// @param prefix  what the names are shown behind: the way from the directory that was named
    void list_directory(Client_IO& io, const std::string& path, const std::string& prefix);
    void show(std::string_view prefix, std::string_view name,
              const Client_IO_Base::Directory_Entry& entry);

private:
    Invocation& invocation_;
    std::string line_;
};

void Ls::list_directory(Client_IO& io, const std::string& path, const std::string& prefix)
{
    Entries entries;
    std::vector<std::string> directories;
    if (!list(io, path, entries, invocation_.report))
        return;
    for (const std::size_t index : order_by_name(entries)) {
        Client_IO_Base::Directory_Entry& entry = entries[index];
        if (interrupt::requested() || invocation_.out.failed())
            return;
        show(prefix, entry.name, entry);
        if (invocation_.recursive && entry.is_dir)
            directories.push_back(std::move(entry.name));
    }
    invocation_.report.item_done(false);
    // The listing's memory is free again before the directories below are listed.
    entries = Entries();
    for (const std::string& name : directories)
        list_directory(io, join_path(path, name), prefix + name + "/");
}

void Ls::show(std::string_view prefix, std::string_view name,
              const Client_IO_Base::Directory_Entry& entry)
{
    Output& out = invocation_.out;
    if (invocation_.report.json())
        return out.write_line(entry_line(std::string(prefix) + std::string(name), entry));
    line_.clear();
    if (invocation_.long_form) {
        std::array<char, 24> digits;
        const char* end = std::to_chars(digits.begin(), digits.end(), entry.size).ptr;
        const auto length = static_cast<std::size_t>(end - digits.data());
        line_ += entry.is_dir ? "d " : "f ";
        line_.append(length < size_column ? size_column - length : 0, ' ');
        line_.append(digits.data(), length);
        line_ += ' ';
        line_ += entry.name.empty() ? "-" : format_time(entry.mtime);
        line_ += ' ';
    }
    if (out.is_terminal()) {
        line_ += out.printable(prefix);
        line_ += out.printable(name);
    } else {
        line_ += prefix;
        line_ += name;
    }
    line_ += '\n';
    out.write(line_);
}

void run_ls(Invocation& invocation)
{
    const Place place = read_place(invocation);
    Connection connection(place.target);
    Client_IO* io = connection.open(invocation.report);
    if (io == nullptr)
        return;
    Failure failure;
    const std::optional<bool> directory = is_directory(*io, place.path, invocation.report);
    if (!directory)
        return;
    Ls ls(invocation);
    if (*directory)
        return ls.list_directory(*io, place.path, "");
    const auto entry = find_entry(*io, place.path, failure);
    if (!entry)
        return invocation.report.error(place.path, failure);
    ls.show("", place.path, *entry);
    invocation.report.item_done(true);
}

} // namespace

const Command ls_command = {
    "ls",
    "URI [PATH]",
    "List a directory of a target, or one file",
    "cio ls -l file:///mnt/backup daily/etc",
    takes_long | takes_recursive_upper,
    1,
    2,
    run_ls,
};

} // namespace cio
