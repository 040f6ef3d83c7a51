#pragma once

#include "cli/command.h"

#include <optional>
#include <string>
#include <vector>

/// What the commands that show a target share.
namespace cio
{

using Entries = std::vector<Client_IO_Base::Directory_Entry>;

/// The indices of entries in the order of their names' bytes.
[[nodiscard]] std::vector<std::size_t> order_by_name(const Entries& entries);

/// A connection together with the path that a command was given.
struct Place
{
    Target target;
    std::string path; ///< of target_path()'s form
};

/// Reads the arguments URI [PATH].
[[nodiscard]] Place read_place(const Invocation& invocation);

/// Whether @p path is a directory of the target; nothing when neither that nor a file is there
/// (the failure was reported).
[[nodiscard]] std::optional<bool> is_directory(Client_IO& io, const std::string& path,
                                               Reporter& report);

/// Lists a directory. @return false on failure, which was reported
[[nodiscard]] bool list(Client_IO& io, const std::string& path, Entries& entries, Reporter& report);

/// The JSON form of one entry.
[[nodiscard]] json_spirit::Object entry_line(const std::string& path,
                                             const Client_IO_Base::Directory_Entry& entry);

} // namespace cio
