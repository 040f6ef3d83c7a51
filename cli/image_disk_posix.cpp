#include "cli/image_disk.h"

#include "platform/runtime/file_system.h"
#include "platform/runtime/os_error.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/falloc.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cio::image_disk
{

Kind kind_of(const char* path)
{
    struct stat info = {};
    if (::stat(path, &info) != 0)
        return Kind::none;
    if (S_ISREG(info.st_mode))
        return Kind::file;
    return S_ISBLK(info.st_mode) ? Kind::device : Kind::other;
}

ACE_HANDLE open_for_writing(const char* path, Kind kind)
{
    // Of a device, the flag alone asks to be its only user.
    const int how = kind == Kind::none ? O_CREAT | O_EXCL : kind == Kind::device ? O_EXCL : 0;
    return file_system::open(path, O_WRONLY | how, file_system::share_all);
}

bool is_same_device(ACE_HANDLE device, const char* path)
{
    struct stat one = {};
    struct stat other = {};
    return ::fstat(device, &one) == 0 && ::stat(path, &other) == 0 && S_ISBLK(one.st_mode) &&
           S_ISBLK(other.st_mode) && one.st_rdev == other.st_rdev;
}

bool device_size(ACE_HANDLE device, std::uint64_t& size)
{
    return ::ioctl(device, BLKGETSIZE64, &size) == 0;
}

std::optional<Extent> next_data(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t end)
{
    const off_t start = ::lseek(handle, static_cast<off_t>(offset), SEEK_DATA);
    if (start < 0 && errno == ENXIO)
        return std::nullopt;
    const off_t hole = start < 0 ? -1 : ::lseek(handle, start, SEEK_HOLE);
    if (hole < 0)
        return Extent{offset, end - offset};
    // A file that has grown meanwhile has data behind its end.
    const std::uint64_t from = std::min(static_cast<std::uint64_t>(start), end);
    const std::uint64_t to = std::min(static_cast<std::uint64_t>(hole), end);
    return from < to ? std::optional<Extent>({from, to - from}) : std::nullopt;
}

std::int64_t read_at(ACE_HANDLE handle, void* buffer, std::uint64_t size, std::uint64_t offset)
{
    std::uint64_t count = 0;
    while (count < size) {
        const ssize_t got = ::pread(handle, static_cast<char*>(buffer) + count, size - count,
                                    static_cast<off_t>(offset + count));
        if (got == 0)
            break;
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        count += static_cast<std::uint64_t>(got);
    }
    return static_cast<std::int64_t>(count);
}

bool write_at(ACE_HANDLE handle, const void* data, std::uint64_t size, std::uint64_t offset)
{
    std::uint64_t count = 0;
    while (count < size) {
        const ssize_t put = ::pwrite(handle, static_cast<const char*>(data) + count, size - count,
                                     static_cast<off_t>(offset + count));
        if (put < 0 && errno == EINTR)
            continue;
        if (put == 0)
            errno = os_error::write_fault;
        if (put <= 0)
            return false;
        count += static_cast<std::uint64_t>(put);
    }
    return true;
}

bool set_file_size(ACE_HANDLE file, std::uint64_t size)
{
    return ::ftruncate(file, static_cast<off_t>(size)) == 0;
}

bool make_zero(ACE_HANDLE device, std::uint64_t offset, std::uint64_t length)
{
    // The first keeps the page cache in step, the second serves older kernels.
    std::uint64_t range[2] = {offset, length};
    return ::fallocate(device, FALLOC_FL_ZERO_RANGE | FALLOC_FL_KEEP_SIZE,
                       static_cast<off_t>(offset), static_cast<off_t>(length)) == 0 ||
           ::ioctl(device, BLKZEROOUT, range) == 0;
}

bool sync(ACE_HANDLE handle)
{
    return ::fsync(handle) == 0;
}

void forget(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t length)
{
    if (length == 0)
        return; // to the system that would be all up to the end
    (void)::posix_fadvise(handle, static_cast<off_t>(offset), static_cast<off_t>(length),
                          POSIX_FADV_DONTNEED);
}

void store(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t length)
{
    const int reason = errno;
    (void)::sync_file_range(handle, static_cast<off_t>(offset), static_cast<off_t>(length),
                            SYNC_FILE_RANGE_WRITE);
    errno = reason;
}

} // namespace cio::image_disk
