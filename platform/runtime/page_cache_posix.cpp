#include "platform/runtime/page_cache.h"

#include <ace/OS_Errno.h>
#include <algorithm>
#include <fcntl.h>

namespace page_cache
{

namespace
{

// Linux cuts a longer request to what it would read ahead by itself instead of going on; for a
// file that is read in sequence that is twice the device's setting of, as a rule, 128 KiB.
constexpr std::uint64_t largest_fetch = 256U << 10U;

} // namespace

void expect_sequential(ACE_HANDLE handle)
{
    // posix_fadvise returns its error and leaves errno alone.
    static_cast<void>(posix_fadvise(handle, 0, 0, POSIX_FADV_SEQUENTIAL));
}

void fetch(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t size)
{
    while (size > 0) {
        const std::uint64_t piece = std::min(size, largest_fetch);
        if (posix_fadvise(handle, static_cast<off_t>(offset), static_cast<off_t>(piece),
                          POSIX_FADV_WILLNEED) != 0)
            return;
        offset += piece;
        size -= piece;
    }
}

void store(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t size)
{
    const ACE_Errno_Guard guard(errno);
    static_cast<void>(sync_file_range(handle, static_cast<off64_t>(offset),
                                      static_cast<off64_t>(size), SYNC_FILE_RANGE_WRITE));
}

void forget(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t size)
{
    static_cast<void>(posix_fadvise(handle, static_cast<off_t>(offset), static_cast<off_t>(size),
                                    POSIX_FADV_DONTNEED));
}

} // namespace page_cache
