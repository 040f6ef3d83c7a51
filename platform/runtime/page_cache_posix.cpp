#include "platform/runtime/page_cache.h"

#include <ace/OS_Errno.h>
#include <fcntl.h>

namespace page_cache
{

void expect_sequential(ACE_HANDLE handle)
{
    // posix_fadvise returns its error and leaves errno alone.
    static_cast<void>(posix_fadvise(handle, 0, 0, POSIX_FADV_SEQUENTIAL));
}

void fetch(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t size)
{
    static_cast<void>(posix_fadvise(handle, static_cast<off_t>(offset), static_cast<off_t>(size),
                                    POSIX_FADV_WILLNEED));
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
