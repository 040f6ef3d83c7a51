#include "cli/command.h"
#include "cli/interrupt.h"
#include "cli/limit.h"
#include "cli/local_path.h"
#include "cli/path_rules.h"
#include "cli/put_worker.h"
#include "cli/worker_pool.h"
#include "platform/runtime/directory_reader.h"
#include "platform/runtime/file_system.h"

#include <ace/OS_NS_errno.h>
#include <algorithm>
#include <map>
#include <set>

namespace cio
{
namespace
{

/// One LOCAL of the command line and where it goes.
struct Source
{
    std::string local;
    std::string remote{};
    bool contents = false; ///< a directory whose entries go directly to @c remote
    file_system::Status status{};
    int error = 0; ///< why there is no status
};

class Put
{
public:
    Put(Transfer& transfer, unsigned jobs)
        : transfer_(transfer), connection_(transfer.target),
          pool_(
              jobs,
              [&transfer](unsigned workers) {
                  return std::make_unique<Put_Worker>(transfer, workers);
              },
              has_limit(transfer.target.options))
    {}

    void run(std::vector<Source> sources, const std::string& path);

private:
    using Listing = std::map<std::string, Partial_File, std::less<>>;

    void put_one(Source& source);
    void walk(const std::string& local, const std::string& remote);
    void submit_file(const std::string& local, const std::string& remote, std::uint64_t size,
                     const Listing& existing);
    const Listing& listing_of_parent(const std::string& remote);
    Listing list_existing(const std::string& remote);
    void skip_link(const std::string& path);

    Transfer& transfer_;
    Connection connection_;
    Worker_Pool<Put_Worker, Put_Job> pool_;
    std::optional<std::string> listed_; // directory of the target that listing_ shows
    Listing listing_;
};

/// The names under which the sources go to the target; two of them may not be the same.
/// @param path_names_tree    a directory becomes @p path itself instead of an entry of it
/// @param path_is_directory  a file becomes an entry of @p path
/// @param local  whether the target is on this machine, and names are told apart as here
void name_sources(std::vector<Source>& sources, const std::string& path, bool path_names_tree,
                  bool path_is_directory, bool local)
{
    std::set<std::string> names;
    for (Source& source : sources) {
        const std::string name = local_name(source.local);
        const bool no_name = name.empty() || name == "." || name == "..";
        source.contents =
            no_name || (source.status.is_directory() && ends_with_separator(source.local));
        const bool below = source.status.is_directory() ? !path_names_tree : path_is_directory;
        source.remote = below && !source.contents ? join_path(path, name) : path;
        const std::string spelling = local ? local_spelling(source.remote) : source.remote;
        if (!source.contents && !names.insert(spelling).second)
            throw Usage_Error("two sources would be stored as '" + source.remote + "'");
    }
}

void Put::run(std::vector<Source> sources, const std::string& path)
{
    Client_IO* io = connection_.open(transfer_.report);
    if (io == nullptr)
        return;
    const bool path_names_tree = sources.size() == 1 && names_entry(path);
    const bool path_is_directory = !path_names_tree || io->size(target_path(path).c_str()) ==
                                                           Client_IO_Base::size_of_directory;
    name_sources(sources, target_path(path), path_names_tree, path_is_directory,
                 transfer_.target.local_path("").has_value());
    // Contents of a directory may meet what other sources store; one after the other they find
    // what the one before stored, and never write the same file at once.
    const bool may_meet =
        sources.size() > 1 &&
        std::any_of(sources.begin(), sources.end(), [](const Source& s) { return s.contents; });
    for (Source& source : sources) {
        if (interrupt::requested())
            break;
        put_one(source);
        if (may_meet)
            pool_.wait_idle();
    }
    transfer_.report.all_found();
    pool_.finish();
}

void Put::put_one(Source& source)
{
    if (source.error != 0)
        return transfer_.report.error(source.local,
                                      system_failure("Failed to open local file", source.error));
    if (source.status.is_file())
        return submit_file(source.local, source.remote, source.status.size,
                           listing_of_parent(source.remote));
    if (!source.status.is_directory())
        return transfer_.report.error(source.local,
                                      {exit_failed, "Neither a file nor a directory"});
    const std::optional<std::string> target = transfer_.target.local_path(source.remote);
    if (target && is_inside(*target, source.local))
        return transfer_.report.error(source.local,
                                      {exit_failed, "A directory cannot be put into itself"});
    walk(source.local, source.remote);
}

void Put::walk(const std::string& local, const std::string& remote)
{
    Directory_Reader reader;
    Directory_Reader::Entry entry;
    if (!reader.open(local.c_str(), false, 0))
        return transfer_.report.error(
            local, system_failure("Failed to open local directory", ACE_OS::last_error()));
    const Listing existing = list_existing(remote);
    std::vector<std::string> directories;
    bool empty = true;
    int result = 0;
    while (!interrupt::requested() && (result = reader.read(entry)) > 0) {
        const std::string path = join_path(local, entry.name);
        if (entry.error != 0) {
            transfer_.report.error(path, system_failure("Failed to examine", entry.error));
            continue;
        }
        switch (entry.mode & 0xF000U) {
        case 0x4000U:
            directories.push_back(entry.name);
            break;
        case 0x8000U:
            submit_file(path, join_path(remote, entry.name), entry.size, existing);
            break;
        case 0xA000U:
            skip_link(path);
            continue;
        default:
            transfer_.report.skipped(path, "not a regular file");
            continue;
        }
        empty = false;
    }
    if (result < 0)
        transfer_.report.error(
            local, system_failure("Failed to read local directory", ACE_OS::last_error()));
    reader.close();
    if (empty && !remote.empty() && !interrupt::requested())
        pool_.submit({local, remote, true, std::nullopt});
    for (const std::string& name : directories) {
        if (interrupt::requested())
            return;
        walk(join_path(local, name), join_path(remote, name));
    }
}

void Put::submit_file(const std::string& local, const std::string& remote, std::uint64_t size,
                      const Listing& existing)
{
    Put_Job job{local, remote, false, std::nullopt};
    const auto found = existing.find(last_name(remote));
    if (found != existing.end())
        job.existing = found->second;
    transfer_.report.file_found(size);
    pool_.submit(std::move(job));
}

/// The same directory is asked for again and again when many files are named.
const Put::Listing& Put::listing_of_parent(const std::string& remote)
{
    const std::string parent = parent_path(remote);
    if (listed_ != parent) {
        listing_ = list_existing(parent);
        listed_ = parent;
    }
    return listing_;
}

/// What stands in a directory of the target already. Only a resumed transfer looks.
Put::Listing Put::list_existing(const std::string& remote)
{
    Listing listing;
    Failure failure;
    std::vector<Client_IO_Base::Directory_Entry> entries;
    Client_IO* io = transfer_.resume ? connection_.open(failure) : nullptr;
    if (io != nullptr && io->get_dir(remote.c_str(), entries))
        for (Client_IO_Base::Directory_Entry& entry : entries)
            if (!entry.is_dir)
                listing.emplace(std::move(entry.name), Partial_File{entry.size, entry.mtime});
    return listing;
}

void Put::skip_link(const std::string& path)
{
    file_system::Status status;
    const bool leads_somewhere = file_system::status(path.c_str(), true, status);
    transfer_.report.skipped(path, leads_somewhere
                                       ? "a symbolic link to a directory is not followed"
                                       : "a symbolic link that leads nowhere");
}

/// LOCAL... URI [PATH]: the URI is the last argument but one if that looks like one.
std::size_t find_uri(const std::vector<std::string>& arguments)
{
    const std::size_t last = arguments.size() - 1;
    return last >= 2 && looks_like_uri(arguments[last - 1]) ? last - 1 : last;
}

void run_put(Invocation& invocation)
{
    const std::vector<std::string>& arguments = invocation.arguments;
    const std::size_t uri = find_uri(arguments);
    const Target target = make_target(arguments[uri], invocation.options, true);
    const std::string path = uri + 1 < arguments.size() ? arguments[uri + 1] : "";
    (void)target_path(path); // refused before anything happens
    Transfer transfer{target, invocation.report,
                      invocation.overwrite || invocation.options.overwrite, invocation.resume};
    if (uri == 1 && arguments[0] == "-") {
        if (target_path(path).empty() || ends_with_separator(path))
            throw Usage_Error("standard input has no name: give a PATH that names a file");
        if (invocation.resume)
            throw Usage_Error("standard input cannot be continued: --resume needs a file");
        return Put_Worker(transfer).run_standard_input(target_path(path));
    }
    std::vector<Source> sources;
    for (std::size_t i = 0; i < uri; ++i) {
        Source source{arguments[i]};
        if (source.local.empty() || source.local == "-")
            throw Usage_Error(source.local.empty() ? "the name of a source is empty"
                                                   : "'-' (standard input) stands alone; a file "
                                                     "of this name is ./-");
        if (!file_system::status(source.local.c_str(), true, source.status))
            source.error = ACE_OS::last_error();
        sources.push_back(std::move(source));
    }
    Put(transfer, invocation.jobs).run(std::move(sources), path);
}

} // namespace

const Command put_command = {
    "put",
    "LOCAL... URI [PATH]",
    "Store files and directories (\"-\": standard input) in a target",
    "cio put /etc /home file:///mnt/backup daily\n"
    "  cio put --resume --jobs 8 /srv/data/ file:///mnt/backup data\n"
    "  cio put --compress zstd --encrypt aes-256-cbc --key-file K --limit 20M /srv file:///mnt/b\n"
    "  pg_dump shop | cio put - file:///mnt/backup shop.sql",
    takes_overwrite | takes_resume | takes_jobs | shows_transfer | takes_transforms,
    2,
    any_number,
    run_put,
};

} // namespace cio
