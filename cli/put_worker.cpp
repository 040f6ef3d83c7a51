#include "cli/put_worker.h"

#include "cli/interrupt.h"

#include <ace/OS_NS_errno.h>
#include <algorithm>
#include <array>
#include <cstring>

namespace cio
{
namespace
{

constexpr unsigned short directory_mode = 0750;

} // namespace

void Put_Worker::run(const Put_Job& job)
{
    Failure failure;
    if (interrupt::requested())
        return;
    try {
        Client_IO* io = connection_.open(failure);
        if (io == nullptr)
            fail(job.local, failure);
        else if (!job.directory)
            put(*io, job);
        else if (!io->make_dir(job.remote.c_str(), directory_mode))
            fail(job.local, target_failure(*io));
    } catch (const std::exception& error) {
        fail(job.local, {exit_failed, error.what()});
    }
}

void Put_Worker::put(Client_IO& io, const Put_Job& job)
{
    file_system::Status status;
    if (!reader_.open(job.local.c_str(), O_RDONLY, local_file_options, file_system::share_all,
                      false))
        return fail(job.local, system_failure("Failed to open local file", reader_.last_error()));
    if (!file_system::status(reader_.handle(), status) || !status.is_file())
        return fail(job.local, {exit_failed, "Not a regular file"});

    const bool replacing = transfer_.overwrite || transfer_.resume;
    const std::optional<std::string> target = transfer_.target.local_path(job.remote);
    file_system::Status there;
    // Opening the target would empty the source.
    if (replacing && target && file_system::status(target->c_str(), true, there) &&
        status.is_same_file(there))
        return fail(job.local, {exit_failed, "Source and target are the same file"});

    const std::uint64_t start = transfer_.resume && job.existing ? find_start(io, job, status) : 0;
    if (interrupt::requested())
        return; // in the midst of comparing, with nothing decided
    if (start == status.size && start > 0) {
        transfer_.report.already_there(start);
        transfer_.report.item_done(true);
        Resume_Record("put", transfer_.target, job.remote, job.local).remove();
        return;
    }
    // The first block is read before the target is opened: a source that cannot be read must not
    // cost the file that stands there.
    if (reader_.seek(static_cast<std::int64_t>(start), SEEK_SET) < 0 || !reader_.read(data_, size_))
        return fail(job.local, system_failure("Failed to read local file", reader_.last_error()));
    const std::optional<Resume_Record> record =
        status.size >= worth_continuing
            ? std::optional<Resume_Record>(std::in_place, "put", transfer_.target, job.remote,
                                           job.local)
            : std::nullopt;
    const unsigned mode = Client_IO_Base::mode_write |
                          (replaces(job) ? unsigned{Client_IO_Base::mode_overwrite} : 0U);
    if (!open_remote(io, job, mode, start))
        return;
    if (record)
        record->store({status.size, status.mtime});
    if (start > 0)
        transfer_.report.already_there(start);
    if (!move(io, job, status, start))
        return;
    if (record)
        record->remove();
    transfer_.report.item_done(true);
}

/// Where a partial file goes on, 0 = from its start; the source's size when nothing is left to do.
std::uint64_t Put_Worker::find_start(Client_IO& io, const Put_Job& job,
                                     const file_system::Status& status)
{
    const bool transforms = transfer_.target.transforms(job.remote);
    const auto record = Resume_Record("put", transfer_.target, job.remote, job.local).load();
    const std::uint64_t there = job.existing.value_or(Partial_File{}).size;
    if (!transforms && there == 0)
        return 0;
    // What is compressed or encrypted is complete or nothing.
    const std::uint64_t end = transforms ? status.size : there;
    const std::uint64_t at = transforms ? 0 : start_of_comparison(end, record);
    std::string why = obstacle(job, status, transforms, record);
    if (why.empty() && !same_bytes(io, job, at, end, transforms))
        why = "it differs from its source";
    if (why.empty())
        return end;
    if (!interrupt::requested())
        transfer_.report.note(job.local, "starts again: " + why);
    return 0;
}

/// Why there is no need to compare the existing file with its source, empty when there is.
std::string Put_Worker::obstacle(const Put_Job& job, const file_system::Status& status,
                                 bool transforms, const std::optional<Source_Version>& record)
{
    if (transforms && record) // it was never completed
        return obstacle_of_target(transfer_.target, job.remote);
    // The size of what is stored says nothing about that of its source.
    Partial_File existing = job.existing.value_or(Partial_File{});
    if (transforms)
        existing.size = 0;
    return obstacle_to_continuing(existing, {status.size, status.mtime}, status.mtime_seconds(),
                                  record);
}

/// Whether the existing file holds the bytes of its source from @p at to @p end.
/// @param whole  whether it has to end there as well
bool Put_Worker::same_bytes(Client_IO& io, const Put_Job& job, std::uint64_t at, std::uint64_t end,
                            bool whole)
{
    if (!io.open(job.remote.c_str(), Client_IO_Base::mode_read, at, whole ? 0 : end - at))
        return false;
    bool same = reader_.seek(static_cast<std::int64_t>(at), SEEK_SET) >= 0;
    size_ = 0;
    const void* theirs = nullptr;
    std::uint64_t length = 0;
    while (same && at < end && !interrupt::requested()) {
        same = io.read(theirs, length) && length > 0 && (!whole || length <= end - at);
        const auto* bytes = static_cast<const char*>(theirs);
        length = std::min(length, end - at);
        at += length;
        while (same && length > 0) {
            if (size_ == 0)
                same = reader_.read(data_, size_) && size_ > 0;
            const std::uint64_t n = std::min(length, static_cast<std::uint64_t>(size_));
            same = same && std::memcmp(bytes, data_, n) == 0;
            bytes += n;
            data_ += n;
            length -= n;
            size_ -= static_cast<std::int64_t>(n);
        }
    }
    if (same && whole && at == end)
        same = io.read(theirs, length) && length == 0;
    return io.close() && same && at == end;
}

bool Put_Worker::open_remote(Client_IO& io, const Put_Job& job, unsigned mode, std::uint64_t start)
{
    Failure failure;
    if (open_for_writing(io, job.remote, mode, start, failure))
        return true;
    fail(job.local, failure);
    return false;
}

/// Moves the bytes from @p start on; the first block was read. @return false when the file failed
/// or was interrupted, and that was told
bool Put_Worker::move(Client_IO& io, const Put_Job& job, const file_system::Status& status,
                      std::uint64_t start)
{
    std::uint64_t position = start;
    bool grew = false;
    while (size_ > 0) {
        const auto length = static_cast<std::uint64_t>(size_);
        // A file that grows as fast as it is read would never end.
        grew = length > status.size - position;
        if (grew)
            break;
        if (!io.write(data_, length)) {
            abandon(io, job, stream_failure(io), position);
            return false;
        }
        position += length;
        transfer_.report.bytes_moved(length);
        if (shall_stop(position, status.size)) {
            const Resume_Record record("put", transfer_.target, job.remote, job.local);
            stop(io, job, position, &record);
            return false;
        }
        if (!reader_.read(data_, size_)) {
            abandon(io, job, system_failure("Failed to read local file", reader_.last_error()),
                    position);
            return false;
        }
    }
    file_system::Status now;
    const bool changed = grew || position != status.size ||
                         !file_system::status(reader_.handle(), now) || now.mtime != status.mtime ||
                         now.size != status.size;
    if (!io.close()) {
        abandon(io, job, stream_failure(io), position);
        return false;
    }
    if (changed)
        fail(job.local, {exit_failed, changed_text(position)});
    return !changed;
}

/// Ends an interrupted file: the first one stays as it is and is named, others are removed. So is
/// one that cannot be continued, compressed or encrypted, for its stored form would look complete.
/// @param record  of a file that has a source to go on from; NULL for standard input
void Put_Worker::stop(Client_IO& io, const Put_Job& job, std::uint64_t position,
                      const Resume_Record* record)
{
    (void)io.close();
    const bool useless = record != nullptr && transfer_.target.transforms(job.remote);
    if (!useless && !transfer_.partial_claimed.test_and_set())
        return transfer_.report.partial(job.remote, position, record != nullptr);
    const bool removed = remove_unfinished(io, transfer_.target, job.remote, replaces(job));
    if (record != nullptr && removed)
        record->remove();
    if (!removed)
        transfer_.report.partial(job.remote, position, record != nullptr && !useless);
}

/// Ends a failed file. What is too little to be continued, or cannot be, is removed.
void Put_Worker::abandon(Client_IO& io, const Put_Job& job, Failure failure, std::uint64_t position)
{
    if (io.is_open())
        (void)io.close();
    const bool useless = position < worth_continuing ||
                         (job.local != "-" && transfer_.target.transforms(job.remote));
    if (useless && remove_unfinished(io, transfer_.target, job.remote, replaces(job)))
        Resume_Record("put", transfer_.target, job.remote, job.local).remove();
    else
        failure.text += kept_text(position, transfer_.target, job.remote, replaces(job));
    fail(job.local, failure);
}

void Put_Worker::run_standard_input(const std::string& remote)
{
    const Put_Job job{"-", remote, false, std::nullopt};
    Failure failure;
    Client_IO* io = connection_.open(failure);
    if (io == nullptr)
        return fail(remote, failure);
    const unsigned mode = Client_IO_Base::mode_write |
                          (transfer_.overwrite ? unsigned{Client_IO_Base::mode_overwrite} : 0U);
    file_system::Status status;
    file_system::Status there;
    const std::optional<std::string> target = transfer_.target.local_path(remote);
    if (target && file_system::status(ACE_STDIN, status) &&
        file_system::status(target->c_str(), true, there) && status.is_same_file(there))
        return fail(remote, {exit_failed, "Source and target are the same file"});
    std::array<char, 65536> block;
    std::uint64_t position = 0;
    bool opened = false;
    for (;;) {
        const std::optional<std::int64_t> read = interrupt::read_input(ACE_STDIN, block);
        if (!read && opened)
            return stop(*io, job, position, nullptr);
        if (!read)
            return;
        if (*read < 0) {
            const Failure unread = system_failure("Failed to read", ACE_OS::last_error());
            return opened ? abandon(*io, job, unread, position) : fail(remote, unread);
        }
        // Only now: input that cannot be read must not cost the file that stands there.
        opened = opened || open_remote(*io, job, mode, 0);
        if (!opened)
            return;
        const auto length = static_cast<std::uint64_t>(*read);
        if (length == 0)
            break;
        if (!io->write(block.data(), length))
            return abandon(*io, job, stream_failure(*io), position);
        position += length;
        transfer_.report.bytes_moved(length);
    }
    if (!io->close())
        return abandon(*io, job, stream_failure(*io), position);
    transfer_.report.item_done(true);
}

} // namespace cio
