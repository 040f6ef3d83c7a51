#include "cli/interrupt.h"
#include "cli/limit.h"
#include "cli/listing.h"
#include "cli/path_rules.h"
#include "cli/verify_worker.h"
#include "cli/worker_pool.h"
#include "platform/runtime/directory_reader.h"
#include "platform/runtime/file_system.h"

#include <ace/OS_NS_errno.h>
#include <map>

namespace cio
{
namespace
{

class Verify
{
public:
    Verify(const Target& target, Reporter& report, unsigned jobs)
        : target_(target), report_(report),
          pool_(
              jobs,
              [&target, &report](unsigned workers) {
                  return std::make_unique<Verify_Worker>(target, report, workers);
              },
              has_limit(target.options))
    {}

    void file(const std::string& local, std::uint64_t local_size, const std::string& remote,
              std::uint64_t remote_size);
    void tree(Client_IO& io, const std::string& local, const std::string& remote);
    void finish()
    {
        report_.all_found();
        pool_.finish();
    }

private:
    using Locals = std::map<std::string, Directory_Reader::Entry, std::less<>>;

    bool read_local(const std::string& path, Locals& locals);
    void compare_entry(const std::string& local, const Directory_Reader::Entry* ours,
                       const std::string& remote, const Client_IO_Base::Directory_Entry* theirs,
                       std::vector<std::string>& directories);

    const Target& target_;
    Reporter& report_;
    Worker_Pool<Verify_Worker, Verify_Job> pool_;
};

void Verify::file(const std::string& local, std::uint64_t local_size, const std::string& remote,
                  std::uint64_t remote_size)
{
    if (local_size != remote_size && !target_.transforms(remote))
        return report_.difference(remote, "size",
                                  "size differs: " + std::to_string(local_size) + " here, " +
                                      std::to_string(remote_size) + " in the target");
    report_.file_found(local_size);
    pool_.submit({local, remote});
}

void Verify::tree(Client_IO& io, const std::string& local, const std::string& remote)
{
    Locals locals;
    Entries entries;
    std::vector<std::string> directories;
    if (!read_local(local, locals) || !list(io, remote, entries, report_))
        return;
    const std::vector<std::size_t> order = order_by_name(entries);
    auto ours = locals.begin();
    auto next = order.begin();
    while ((ours != locals.end() || next != order.end()) && !interrupt::requested()) {
        const auto* theirs = next == order.end() ? nullptr : &entries[*next];
        const int before = ours == locals.end() ? 1
                           : theirs == nullptr  ? -1
                                                : ours->first.compare(theirs->name);
        const std::string name = before <= 0 ? ours->first : theirs->name;
        compare_entry(join_path(local, name), before <= 0 ? &ours->second : nullptr,
                      join_path(remote, name), before >= 0 ? theirs : nullptr, directories);
        if (before <= 0)
            ++ours;
        if (before >= 0)
            ++next;
    }
    // Memory for one directory at a time.
    locals.clear();
    entries = Entries();
    for (const std::string& name : directories) {
        if (interrupt::requested())
            return;
        tree(io, join_path(local, name), join_path(remote, name));
    }
}

bool Verify::read_local(const std::string& path, Locals& locals)
{
    Directory_Reader reader;
    Directory_Reader::Entry entry;
    bool read = reader.open(path.c_str(), false, 0);
    int result = 0;
    while (read && (result = reader.read(entry)) > 0)
        locals.emplace(entry.name, entry);
    read = read && result == 0;
    if (!read)
        report_.error(path, system_failure("Failed to read local directory", ACE_OS::last_error()));
    return read;
}

void Verify::compare_entry(const std::string& local, const Directory_Reader::Entry* ours,
                           const std::string& remote, const Client_IO_Base::Directory_Entry* theirs,
                           std::vector<std::string>& directories)
{
    const bool is_file = ours != nullptr && (ours->mode & 0xF000U) == 0x8000U;
    if (ours == nullptr)
        return report_.difference(remote, "extra", "is in the target only");
    if (ours->error != 0)
        return report_.error(local, system_failure("Failed to examine", ours->error));
    if (!is_file && !ours->is_dir() && theirs != nullptr)
        return report_.difference(remote, "type",
                                  "is neither a file nor a directory here, so it cannot be that");
    if (!is_file && !ours->is_dir())
        return report_.skipped(local, "neither a file nor a directory, so nothing is stored");
    if (theirs == nullptr)
        return report_.difference(remote, "missing", "is missing in the target");
    if (theirs->is_dir != ours->is_dir())
        return report_.difference(remote, "type",
                                  theirs->is_dir ? "is a directory in the target, a file here"
                                                 : "is a file in the target, a directory here");
    if (ours->is_dir())
        directories.push_back(ours->name);
    else
        file(local, ours->size, remote, theirs->size);
}

void run_verify(Invocation& invocation)
{
    const std::string& local = invocation.arguments[0];
    const Target target = make_target(invocation.arguments[1], invocation.options, false);
    const std::string path = target_path(invocation.arguments[2]);
    Reporter& report = invocation.report;
    Connection connection(target);
    Failure failure;
    file_system::Status status;
    if (!file_system::status(local.c_str(), true, status))
        return report.error(local,
                            system_failure("Failed to open local file", ACE_OS::last_error()));
    if (!status.is_file() && !status.is_directory())
        return report.error(local, {exit_failed, "Neither a file nor a directory"});
    Client_IO* io = connection.open(failure);
    if (io == nullptr)
        return report.error(target.uri_text, failure);
    const std::optional<bool> directory = is_directory(*io, path, report);
    if (!directory)
        return;
    if (*directory != (status.is_directory()))
        return report.difference(path, "type",
                                 *directory ? "is a directory in the target, a file here"
                                            : "is a file in the target, a directory here");
    Verify verify(target, report, invocation.jobs);
    if (*directory)
        verify.tree(*io, local, path);
    else
        verify.file(local, status.size, path, io->size(path.c_str()));
    verify.finish();
}

} // namespace

const Command verify_command = {
    "verify",
    "LOCAL URI PATH",
    "Read a file or tree back and compare it with LOCAL; tell each difference",
    "cio verify /home file:///mnt/backup daily/home",
    takes_jobs | shows_transfer | takes_transforms,
    3,
    3,
    run_verify,
};

} // namespace cio
