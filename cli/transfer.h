#pragma once

#include "cli/connection.h"
#include "cli/reporter.h"
#include "platform/runtime/fixed_block_file.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace cio
{

/// Local files are moved in blocks that the target takes without copying, and leave the page
/// cache to others.
inline constexpr File_Options local_file_options{262144, 33554432, true, 1, 33554432};

/// What all the workers of one put or get share.
struct Transfer
{
    const Target& target;
    Reporter& report;
    bool overwrite; ///< the flag or the connection's option
    bool resume;
    /// An interruption leaves one partial file at most: the worker that sets this first.
    std::atomic_flag partial_claimed = ATOMIC_FLAG_INIT;
};

/// Whether an interrupted transfer shall stop here.
/// @param size  of the whole file, size_unknown when it is not known. A transfer that is nearly
///              done is finished rather than thrown away.
[[nodiscard]] bool shall_stop(std::uint64_t position, std::uint64_t size);

/// What a source is told to have done whose stored form has @p kept bytes that stay.
[[nodiscard]] std::string changed_text(std::uint64_t kept);

/// Opens a file of a target for writing. A failure is "exists" only when the file itself is there.
[[nodiscard]] bool open_for_writing(Client_IO& io, const std::string& path, unsigned mode,
                                    std::uint64_t start, Failure& failure);

/// Removes an unfinished file; never a device that stands in a target on this machine, and
/// nothing of another target that it should have replaced: a server that refused the new file
/// may hold the old one still.
/// @return whether it was removed
[[nodiscard]] bool remove_unfinished(Client_IO& io, const Target& target, const std::string& path,
                                     bool replaces);
/// What is said of @p kept bytes of a file that was not removed.
[[nodiscard]] std::string kept_text(std::uint64_t kept, const Target& target,
                                    const std::string& path, bool replaces);

} // namespace cio
