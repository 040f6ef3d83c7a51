#include "cli/verify_worker.h"

#include "cli/interrupt.h"
#include "platform/runtime/file_system.h"

#include <algorithm>
#include <cstring>

namespace cio
{

void Verify_Worker::run(const Verify_Job& job)
{
    Failure failure;
    if (interrupt::requested())
        return;
    try {
        Client_IO* io = connection_.open(failure);
        if (io == nullptr)
            return report_.error(job.remote, failure);
        compare(*io, job);
        if (io->is_open())
            (void)io->close();
    } catch (const std::exception& error) {
        report_.error(job.local, {exit_failed, error.what()});
    }
}

/// Reads both to their ends rather than trusting sizes, which transforms and liars get wrong.
void Verify_Worker::compare(Client_IO& io, const Verify_Job& job)
{
    if (!reader_.open(job.local.c_str(), O_RDONLY, local_file_options, file_system::share_all,
                      false))
        return report_.error(job.local,
                             system_failure("Failed to open local file", reader_.last_error()));
    if (!io.open(job.remote.c_str(), Client_IO_Base::mode_read, 0, 0))
        return report_.error(job.remote, target_failure(io));
    char* ours = nullptr;
    std::int64_t ours_left = 0;
    const void* block = nullptr;
    const char* theirs = nullptr;
    std::uint64_t theirs_left = 0;
    std::uint64_t offset = 0;
    while (!interrupt::requested()) {
        if (ours_left == 0 && !reader_.read(ours, ours_left))
            return report_.error(job.local,
                                 system_failure("Failed to read local file", reader_.last_error()));
        if (theirs_left == 0) {
            if (!io.read(block, theirs_left))
                return report_.error(job.remote, stream_failure(io));
            theirs = static_cast<const char*>(block);
        }
        const std::uint64_t length = std::min(static_cast<std::uint64_t>(ours_left), theirs_left);
        if (length == 0)
            break;
        if (std::memcmp(ours, theirs, length) != 0) {
            const auto at = std::mismatch(ours, ours + length, theirs).first - ours;
            const std::uint64_t byte = offset + static_cast<std::uint64_t>(at);
            return report_.difference(job.remote, "content",
                                      "content differs at byte " + std::to_string(byte),
                                      static_cast<std::int64_t>(byte));
        }
        ours += length;
        theirs += length;
        ours_left -= static_cast<std::int64_t>(length);
        theirs_left -= length;
        offset += length;
        report_.bytes_moved(length);
    }
    if (interrupt::requested())
        return;
    if (ours_left > 0 || theirs_left > 0)
        return report_.difference(
            job.remote, "size",
            std::string("size differs: ") + (ours_left > 0 ? "the target's" : "the local") +
                " file ends after " + std::to_string(offset) + " bytes, the other goes on");
    report_.item_done(true);
}

} // namespace cio
