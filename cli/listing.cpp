#include "cli/listing.h"

#include "cli/path_rules.h"
#include "platform/json/json_value.h"

#include <algorithm>
#include <string_view>

namespace cio
{
namespace
{

/// The first eight bytes of a name as a number that orders like them.
std::uint64_t leading_bytes(std::string_view name)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i)
        value = value << 8U | (i < name.size() ? static_cast<unsigned char>(name[i]) : 0U);
    return value;
}

std::size_t shared_prefix(const Entries& entries)
{
    if (entries.empty())
        return 0;
    const std::string& first = entries.front().name;
    std::size_t shared = first.size();
    for (const Client_IO_Base::Directory_Entry& entry : entries) {
        const std::size_t most = std::min(shared, entry.name.size());
        shared = 0;
        while (shared < most && entry.name[shared] == first[shared])
            ++shared;
    }
    return shared;
}

} // namespace

std::vector<std::size_t> order_by_name(const Entries& entries)
{
    // Small keys are sorted instead of the entries: with a million of them the moves and the
    // reads of names that lie apart would take longer than the listing itself.
    struct Key
    {
        std::uint64_t leading;
        std::size_t index;
    };
    std::vector<Key> keys;
    keys.reserve(entries.size());
    // Names of one directory often begin alike, which would make their leading bytes useless.
    const std::size_t shared = shared_prefix(entries);
    for (std::size_t i = 0; i < entries.size(); ++i)
        keys.push_back({leading_bytes(std::string_view(entries[i].name).substr(shared)), i});
    std::sort(keys.begin(), keys.end(), [&entries](const Key& a, const Key& b) {
        return a.leading != b.leading ? a.leading < b.leading
                                      : entries[a.index].name < entries[b.index].name;
    });
    std::vector<std::size_t> order;
    order.reserve(keys.size());
    for (const Key& key : keys)
        order.push_back(key.index);
    return order;
}

Place read_place(const Invocation& invocation)
{
    const std::vector<std::string>& arguments = invocation.arguments;
    return {make_target(arguments[0], invocation.options, false),
            target_path(arguments.size() > 1 ? arguments[1] : "")};
}

std::optional<bool> is_directory(Client_IO& io, const std::string& path, Reporter& report)
{
    if (path.empty())
        return true;
    const std::uint64_t size = io.size(path.c_str());
    if (size == Client_IO_Base::size_of_directory)
        return true;
    if (size != Client_IO_Base::size_unknown)
        return false;
    // Some targets have no size for a directory, and a failed listing tells the reason.
    Entries entries;
    if (io.get_dir(path.c_str(), entries))
        return true;
    report.error(path, target_failure(io));
    return std::nullopt;
}

bool list(Client_IO& io, const std::string& path, Entries& entries, Reporter& report)
{
    const bool listed = io.get_dir(path.c_str(), entries);
    if (!listed)
        report.error(path, target_failure(io));
    return listed;
}

json_spirit::Object entry_line(const std::string& path,
                               const Client_IO_Base::Directory_Entry& entry)
{
    json_spirit::Object line{{"type", "entry"}, {"kind", entry.is_dir ? "directory" : "file"}};
    add_bytes(line, "path", path);
    if (!entry.is_dir)
        line["size"] = entry.size;
    if (!entry.name.empty())
        line["mtime"] = format_time(entry.mtime);
    return line;
}

} // namespace cio
