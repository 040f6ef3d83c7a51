#include "cli/get_worker.h"

#include "cli/interrupt.h"

#include <algorithm>
#include <cstring>

namespace cio
{
namespace
{

/// Removes an unfinished file; never a device or a link that the user named as the destination.
bool remove_unfinished(const std::string& path)
{
    file_system::Status status;
    return file_system::status(path.c_str(), false, status) && status.is_file() &&
           file_system::remove(path.c_str());
}

/// Whether a local file is in the same state; a file that is missing as well.
bool is_unchanged(const file_system::Status& before, const file_system::Status& after)
{
    return before.device == after.device && before.file == after.file &&
           before.size == after.size && before.mtime == after.mtime;
}

} // namespace

void Get_Worker::run(const Get_Job& job)
{
    Failure failure;
    if (interrupt::requested())
        return;
    try {
        if (Client_IO* io = connection_.open(failure))
            get(*io, job);
        else
            fail(job.remote, failure);
    } catch (const std::exception& error) {
        fail(job.remote, {exit_failed, error.what()});
    }
}

void Get_Worker::get(Client_IO& io, const Get_Job& job)
{
    file_system::Status there;
    const bool exists = file_system::status(job.local.c_str(), !job.inside, there);
    if (exists && !check_local(job, there))
        return;

    std::uint64_t start = 0;
    std::uint64_t compare_from = 0;
    if (exists && transfer_.resume && there.size > 0)
        start = find_start(job, there, compare_from);
    Source_Version source = job.source;
    if (!open_remote(io, job, start, compare_from, source))
        return;

    const bool transforms = transfer_.target.transforms(job.remote);
    const std::uint64_t expected = transforms ? Client_IO_Base::size_unknown : io.size();
    const std::optional<Resume_Record> record =
        expected != Client_IO_Base::size_unknown && expected >= worth_continuing
            ? std::optional<Resume_Record>(std::in_place, "get", transfer_.target, job.remote,
                                           job.local)
            : std::nullopt;
    // Where only the end of the stream tells the size, that end was met behind a complete file.
    const bool complete = start > 0 && (transforms ? size_ == 0 : start == expected);
    if (!complete) {
        if (!open_local(io, job, exists, start))
            return;
        if (record)
            record->store(source);
        if (start > 0 && !transforms)
            transfer_.report.already_there(start);
        if (!move(io, job, start, expected))
            return;
    } else {
        if (!transforms)
            transfer_.report.already_there(start);
        (void)io.close();
    }
    if (record)
        record->remove();
    transfer_.report.item_done(true);
}

/// Whether what stands at the destination may be replaced. @return false when not, which was told
bool Get_Worker::check_local(const Get_Job& job, const file_system::Status& there)
{
    const std::optional<std::string> source = transfer_.target.local_path(job.remote);
    file_system::Status status;
    Failure failure;
    if (!transfer_.overwrite && !transfer_.resume)
        failure = {exit_exists, "File already exists"};
    else if (there.is_directory())
        failure = {exit_failed, "Is a directory, not a file"};
    else if (there.is_link())
        failure = {exit_failed, "Is a symbolic link, which is not followed"};
    else if (source && file_system::status(source->c_str(), true, status) &&
             status.is_same_file(there))
        failure = {exit_failed, "Source and destination are the same file"};
    else
        return true;
    fail(job.local, failure);
    return false;
}

/// Where a partial file goes on, 0 = from its start.
/// @param compare_from  receives the place from which it has to be compared with its source
std::uint64_t Get_Worker::find_start(const Get_Job& job, const file_system::Status& there,
                                     std::uint64_t& compare_from)
{
    const bool transforms = transfer_.target.transforms(job.remote);
    auto record = Resume_Record("get", transfer_.target, job.remote, job.local).load();
    // What was begun without a listing is recorded in the target's own words, which this one lacks.
    if (record && record->mtime == 0 && job.source.tag.empty())
        record.reset();
    // The stored size says nothing about that of the contents, which are read from their start
    // anyway and compared on the way.
    std::string obstacle = obstacle_to_continuing(
        {transforms ? 0 : there.size, there.mtime_seconds()}, job.source, job.source.mtime, record);
    if (obstacle.empty() && !there.is_file())
        obstacle = "it is not a regular file";
    if (obstacle.empty()) {
        compare_from = transforms ? 0 : start_of_comparison(there.size, record);
        return there.size;
    }
    transfer_.report.note(job.local, "starts again: " + obstacle);
    return 0;
}

/// Opens the source and reads its first block, so that a source that cannot be read does not
/// cost the file that stands at the destination.
/// @param start  where the partial file ends; becomes 0, with the source opened at its beginning,
///               when the source does not hold the same bytes from @p compare_from to there
/// @param source  what is known of it; becomes what the opened file says
/// @return false when the file failed, which was told, or was interrupted
bool Get_Worker::open_remote(Client_IO& io, const Get_Job& job, std::uint64_t& start,
                             std::uint64_t compare_from, Source_Version& source)
{
    const auto fail_remote = [&](const Failure& failure) {
        if (io.is_open())
            (void)io.close();
        fail(job.remote, failure);
        return false;
    };
    const auto open = [&](std::uint64_t offset) {
        size_ = 0;
        if (!io.open(job.remote.c_str(), Client_IO_Base::mode_read, offset, 0))
            return false;
        source.tag = io.get_config("file_version");
        if (job.recorded)
            source = {io.size(), 0, source.tag};
        return true;
    };
    const auto begin = [&](std::uint64_t offset) {
        if (!open(offset))
            return fail_remote(target_failure(io));
        return next_block(io) || fail_remote(stream_failure(io));
    };
    if (job.recorded) {
        const bool opened = open(compare_from);
        if (!opened && io.retriable())
            return fail_remote(target_failure(io));
        if (!opened || source.tag.empty() || !same_contents(source, job.source)) {
            transfer_.report.note(job.local, "starts again: its source has changed");
            start = 0;
            return begin(0);
        }
        if (!next_block(io))
            return fail_remote(stream_failure(io));
    } else if (!begin(compare_from)) {
        return false;
    }
    const std::optional<bool> same = same_bytes(io, job, compare_from, start);
    if (interrupt::requested() && start > 0) {
        (void)io.close();
        return false;
    }
    if (!same)
        return fail_remote(stream_failure(io));
    if (*same)
        return true;
    transfer_.report.note(job.local, "starts again: it differs from its source");
    start = 0;
    return begin(0);
}

/// Whether the partial file and its source hold the same bytes from @p at to @p end. The source's
/// block behind them is read then.
/// @return nothing when the source cannot be read, which says nothing about the partial file
std::optional<bool> Get_Worker::same_bytes(Client_IO& io, const Get_Job& job, std::uint64_t at,
                                           std::uint64_t end)
{
    File_Reader partial;
    char* ours = nullptr;
    std::int64_t ours_size = 0;
    bool same = at == end || (partial.open(job.local.c_str(), O_RDONLY, local_file_options,
                                           file_system::share_all, false) &&
                              partial.seek(static_cast<std::int64_t>(at), SEEK_SET) >= 0);
    while (same && at < end && !interrupt::requested()) {
        if (ours_size == 0)
            same = partial.read(ours, ours_size) && ours_size > 0;
        if (!same || size_ == 0)
            return false;
        const std::uint64_t n = std::min({static_cast<std::uint64_t>(ours_size), size_, end - at});
        same = std::memcmp(ours, data_, n) == 0;
        ours += n;
        ours_size -= static_cast<std::int64_t>(n);
        at += n;
        data_ += n;
        size_ -= n;
        if (same && size_ == 0 && !next_block(io))
            return std::nullopt;
    }
    return same && at == end;
}

bool Get_Worker::next_block(Client_IO& io)
{
    const void* block = nullptr;
    const bool read = io.read(block, size_);
    data_ = static_cast<const char*>(block);
    if (!read)
        size_ = 0;
    return read;
}

bool Get_Worker::open_local(Client_IO& io, const Get_Job& job, bool exists, std::uint64_t start)
{
    const int how = start > 0 ? O_APPEND : exists ? O_TRUNC : O_EXCL;
    if (writer_.open(job.local.c_str(), O_CREAT | how, true, file_system::share_all,
                     local_file_options))
        return true;
    fail(job.local, system_failure("Failed to open local file", writer_.last_error()));
    (void)io.close();
    return false;
}

/// Moves the bytes from @p start on; the first block was read. @return false when the file failed
/// or was interrupted, and that was told
bool Get_Worker::move(Client_IO& io, const Get_Job& job, std::uint64_t start,
                      std::uint64_t expected)
{
    const std::optional<std::string> source = transfer_.target.local_path(job.remote);
    file_system::Status before;
    file_system::Status after;
    if (source)
        (void)file_system::status(source->c_str(), true, before);
    std::uint64_t position = start;
    bool changed = false;
    while (size_ > 0) {
        // A file that grows as fast as it is read would never end.
        changed = expected != Client_IO_Base::size_unknown && size_ > expected - position;
        if (changed)
            break;
        if (!writer_.write(data_, size_, nullptr)) {
            abandon(io, job, system_failure("Failed to write", writer_.last_error()), position);
            return false;
        }
        position += size_;
        transfer_.report.bytes_moved(size_);
        if (shall_stop(position, expected)) {
            (void)io.close();
            stop(job, position);
            return false;
        }
        if (!next_block(io)) {
            abandon_damaged(io, job, position);
            return false;
        }
    }
    if (!writer_.close()) {
        abandon(io, job, system_failure("Failed to write", writer_.last_error()), position);
        return false;
    }
    if (!io.close()) {
        abandon_damaged(io, job, position);
        return false;
    }
    if (source)
        (void)file_system::status(source->c_str(), true, after);
    changed = changed || !is_unchanged(before, after) ||
              (expected != Client_IO_Base::size_unknown && position != expected);
    if (changed)
        fail(job.remote, {exit_failed, "changed while it was read (" + std::to_string(position) +
                                           " bytes of it stay in " + job.local + ")"});
    return !changed;
}

/// Ends an interrupted file: the first one stays as it is and is named, others are removed.
void Get_Worker::stop(const Get_Job& job, std::uint64_t position)
{
    const bool stored = writer_.close();
    if (stored && !transfer_.partial_claimed.test_and_set())
        return transfer_.report.partial(job.local, position);
    (void)remove_unfinished(job.local);
    Resume_Record("get", transfer_.target, job.remote, job.local).remove();
}

/// Ends a failed file. What is too little to be continued is removed.
void Get_Worker::abandon(Client_IO& io, const Get_Job& job, Failure failure, std::uint64_t position)
{
    (void)writer_.close();
    if (io.is_open())
        (void)io.close();
    // Not all that the writer took need have reached the file.
    file_system::Status there;
    if (file_system::status(job.local.c_str(), true, there) && there.is_file())
        position = there.size;
    if (position < worth_continuing && remove_unfinished(job.local))
        Resume_Record("get", transfer_.target, job.remote, job.local).remove();
    else
        failure.text += " (" + std::to_string(position) + " bytes of it stay there)";
    fail(job.local, failure);
}

/// Ends a file whose source cannot be read on. When that is compressed or encrypted and will not
/// get better, what came out of it is removed whatever its size: nothing tells it from a whole
/// file.
void Get_Worker::abandon_damaged(Client_IO& io, const Get_Job& job, std::uint64_t position)
{
    Failure failure = stream_failure(io);
    const bool hopeless = transfer_.target.transforms(job.remote) && failure.code != exit_retriable;
    if (!hopeless || position < worth_continuing)
        return abandon(io, job, failure, position);
    (void)writer_.close();
    if (io.is_open())
        (void)io.close();
    if (!remove_unfinished(job.local))
        return abandon(io, job, failure, position);
    failure.text += " (the " + std::to_string(position) + " bytes before that were removed)";
    fail(job.local, failure);
}

} // namespace cio
