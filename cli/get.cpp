#include "cli/command.h"
#include "cli/get_worker.h"
#include "cli/interrupt.h"
#include "cli/limit.h"
#include "cli/local_path.h"
#include "cli/path_rules.h"
#include "cli/worker_pool.h"
#include "platform/runtime/file_system.h"
#include "platform/runtime/path.h"

#include <ace/OS_NS_errno.h>
#include <algorithm>
#include <set>

namespace cio
{
namespace
{

constexpr unsigned short directory_mode = 0777; // less the umask

class Get
{
public:
    Get(Transfer& transfer, unsigned jobs)
        : transfer_(transfer), connection_(transfer.target),
          pool_(
              jobs,
              [&transfer](unsigned workers) {
                  return std::make_unique<Get_Worker>(transfer, workers);
              },
              has_limit(transfer.target.options))
    {}

    /// @param paths  as the user wrote them: a '/' at the end asks for a directory's contents
    void run(const std::vector<std::string>& paths, const std::string& local);

private:
    void get_one(Client_IO& io, const std::string& path, const std::string& local,
                 bool local_names_tree, bool local_is_directory);
    bool continue_recorded(const std::string& remote, const std::string& local, bool inside);
    void get_named_file(const std::string& remote, const std::string& local, bool inside,
                        const Client_IO_Base::Directory_Entry& entry);
    void walk(Client_IO& io, const std::string& remote, const std::string& local);
    bool make_top_directory(const std::string& path);
    bool make_directory(const std::string& path);

    Transfer& transfer_;
    Connection connection_;
    Worker_Pool<Get_Worker, Get_Job> pool_;
};

void check_names(const std::vector<std::string>& paths)
{
    std::set<std::string> names;
    for (const std::string& path : paths) {
        const std::string remote = target_path(path);
        const bool contents = remote.empty() || ends_with_separator(path);
        if (!contents && !names.insert(local_spelling(last_name(remote))).second)
            throw Usage_Error("two sources would be restored as '" + last_name(remote) + "'");
    }
}

void Get::run(const std::vector<std::string>& paths, const std::string& local)
{
    Client_IO* io = connection_.open(transfer_.report);
    if (io == nullptr)
        return;
    file_system::Status status;
    const bool exists = file_system::status(local.c_str(), true, status);
    const bool local_names_tree = paths.size() == 1 && names_local_entry(local);
    const bool local_is_directory = !local_names_tree || (exists && status.is_directory());
    // Contents of a directory may meet what other paths restore; one after the other they find
    // what the one before restored, and never write the same file at once.
    const bool may_meet =
        paths.size() > 1 && std::any_of(paths.begin(), paths.end(), [](const std::string& path) {
            return ends_with_separator(path) || target_path(path).empty();
        });
    for (const std::string& path : paths) {
        if (interrupt::requested())
            break;
        get_one(*io, path, local, local_names_tree, local_is_directory);
        if (may_meet)
            pool_.wait_idle();
    }
    transfer_.report.all_found();
    pool_.finish();
}

/// @param local_names_tree    a directory becomes @p local itself instead of an entry of it
/// @param local_is_directory  a file becomes an entry of @p local
void Get::get_one(Client_IO& io, const std::string& path, const std::string& local,
                  bool local_names_tree, bool local_is_directory)
{
    const std::string remote = target_path(path);
    const std::string name = last_name(remote);
    if (transfer_.resume && !ends_with_separator(path) &&
        continue_recorded(remote, local_is_directory ? join_path(local, name) : local,
                          local_is_directory))
        return;
    const std::uint64_t size =
        remote.empty() ? Client_IO_Base::size_of_directory : io.size(remote.c_str());
    std::optional<Client_IO_Base::Directory_Entry> entry(std::in_place);
    entry->size = size;
    // Asking for the time means listing a whole directory.
    if ((transfer_.resume && size != Client_IO_Base::size_of_directory) ||
        size == Client_IO_Base::size_unknown)
    {
        Failure failure;
        entry = find_entry(io, remote, failure);
        if (!entry)
            return transfer_.report.error(path, failure);
    } else if (const std::optional<std::string> source = transfer_.target.local_path(remote)) {
        file_system::Status here;
        if (file_system::status(source->c_str(), true, here))
            entry->mtime = here.mtime_seconds();
    }
    if (size != Client_IO_Base::size_of_directory && !entry->is_dir)
        return get_named_file(remote, local_is_directory ? join_path(local, name) : local,
                              local_is_directory, *entry);
    const bool into_local = local_names_tree || remote.empty() || ends_with_separator(path);
    const std::string destination = into_local ? local : join_path(local, name);
    const std::optional<std::string> source = transfer_.target.local_path(remote);
    if (source && is_inside(destination, *source))
        return transfer_.report.error(path,
                                      {exit_failed, "A directory cannot be restored into itself"});
    if (make_top_directory(local) && (into_local || make_directory(destination)))
        walk(io, remote, destination);
}

/// A partial file whose record names the contents that it was begun from, in the target's own
/// words, goes on without asking the target for more than to open its source, which says them
/// again.
/// @return whether that is the case here
bool Get::continue_recorded(const std::string& remote, const std::string& local, bool inside)
{
    file_system::Status there;
    if (remote.empty() || transfer_.target.transforms(remote) ||
        !file_system::status(local.c_str(), !inside, there) || !there.is_file() || there.size == 0)
        return false;
    const auto record = Resume_Record("get", transfer_.target, remote, local).load();
    if (!record || record->tag.empty() || record->size < there.size)
        return false;
    transfer_.report.file_found(record->size);
    pool_.submit({remote, local, *record, inside, true});
    return true;
}

/// @param inside  whether the file's own name comes from the target, so that no link of that name
///                is followed
void Get::get_named_file(const std::string& remote, const std::string& local, bool inside,
                         const Client_IO_Base::Directory_Entry& entry)
{
    const std::string directory = local_parent(local);
    if (!directory.empty() && !make_top_directory(directory))
        return;
    transfer_.report.file_found(transfer_.target.contents_size(remote, entry.size));
    pool_.submit({remote, local, {entry.size, entry.mtime}, inside, false});
}

void Get::walk(Client_IO& io, const std::string& remote, const std::string& local)
{
    std::vector<std::string> directories;
    {
        std::vector<Client_IO_Base::Directory_Entry> entries;
        if (!io.get_dir(remote.c_str(), entries))
            return transfer_.report.error(remote, target_failure(io));
        std::set<std::string> taken;
        for (Client_IO_Base::Directory_Entry& entry : entries) {
            if (interrupt::requested())
                return;
            std::string path = join_path(remote, entry.name);
            if (!is_safe_entry_name(entry.name)) {
                transfer_.report.error(path, {exit_failed, "The target lists a name that cannot "
                                                           "be the name of a local file"});
            } else if (is_windows && !taken.insert(local_spelling(entry.name)).second) {
                // One of them would take the place of the other.
                transfer_.report.error(path, {exit_failed, "Its name differs only in case from "
                                                           "another one, which was restored"});
            } else if (entry.is_dir) {
                directories.push_back(std::move(entry.name));
            } else {
                transfer_.report.file_found(transfer_.target.contents_size(path, entry.size));
                pool_.submit({std::move(path),
                              join_path(local, entry.name),
                              {entry.size, entry.mtime},
                              true,
                              false});
            }
        }
    }
    for (const std::string& name : directories) {
        const std::string destination = join_path(local, name);
        if (interrupt::requested())
            return;
        if (make_directory(destination))
            walk(io, join_path(remote, name), destination);
    }
}

/// Makes the directory that the user named, with its parents; links on the way are the user's.
bool Get::make_top_directory(const std::string& path)
{
    if (mkdir_p(path.c_str(), directory_mode, {}) == 0)
        return true;
    transfer_.report.error(
        path,
        {exit_failed, system_failure("Failed to create directory", ACE_OS::last_error()).text});
    return false;
}

/// Makes one directory below it. A link that bears its name could lead out of what the user named.
bool Get::make_directory(const std::string& path)
{
    file_system::Status status;
    if (file_system::make_directory(path.c_str(), directory_mode))
        return true;
    Failure failure = system_failure("Failed to create directory", ACE_OS::last_error());
    if (file_system::status(path.c_str(), false, status)) {
        if (status.is_directory())
            return true;
        failure = {exit_failed, status.is_link() ? "Is a symbolic link, which is not followed"
                                                 : "Is a file, not a directory"};
    }
    transfer_.report.error(path, failure);
    return false;
}

void run_get(Invocation& invocation)
{
    const std::vector<std::string>& arguments = invocation.arguments;
    const Target target = make_target(arguments.front(), invocation.options, false);
    const std::vector<std::string> paths(arguments.begin() + 1, arguments.end() - 1);
    if (arguments.back().empty())
        throw Usage_Error("the name of the local file or directory is empty");
    check_names(paths);
    Transfer transfer{target, invocation.report,
                      invocation.overwrite || invocation.options.overwrite, invocation.resume};
    Get(transfer, invocation.jobs).run(paths, arguments.back());
}

} // namespace

const Command get_command = {
    "get",
    "URI PATH... LOCAL",
    "Restore files and directories from a target",
    "cio get file:///mnt/backup daily/etc/fstab /tmp/fstab\n"
    "  cio get --overwrite file:///mnt/backup daily/home/ /home\n"
    "  cio get --compress zstd --encrypt aes-256-cbc --key-file K file:///mnt/b srv /tmp/srv",
    takes_overwrite | takes_resume | takes_jobs | shows_transfer | takes_transforms,
    3,
    any_number,
    run_get,
};

} // namespace cio
