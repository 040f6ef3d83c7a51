#include "platform/runtime/copy_file.h"

#include "platform/runtime/file_system.h"
#include "platform/runtime/path.h"
#include "platform/runtime/posix_error.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace
{

constexpr std::uint64_t whole_file = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t largest_step = 1U << 30U;
constexpr std::size_t buffer_size = 256U << 10U;

/// A descriptor that is closed at the end of its block.
class File
{
public:
    explicit File(int handle) : handle_(handle) {}
    ~File()
    {
        const int reason = errno;
        close();
        errno = reason;
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int handle() const { return handle_; }

    int release() { return std::exchange(handle_, -1); }

    bool close()
    {
        const int handle = release();
        return handle < 0 || ::close(handle) == 0;
    }

private:
    int handle_;
};

// Whether the kernel cannot copy between these two files, though reading and writing may do.
bool kernel_declines(int reason)
{
    return reason == EXDEV || reason == EINVAL || reason == ENOSYS || reason == EOPNOTSUPP ||
           reason == EPERM;
}

bool write_all(int handle, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t count = write(handle, data, size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            if (count == 0)
                errno = EIO;
            return false;
        }
        data += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

bool copy_through_memory(int from, int to, std::uint64_t size)
{
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[buffer_size]);
    if (buffer == nullptr) {
        errno = ENOMEM;
        return false;
    }
    while (size > 0) {
        const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(size, buffer_size));
        const ssize_t count = read(from, buffer.get(), step);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count == 0;
        if (!write_all(to, buffer.get(), static_cast<std::size_t>(count)))
            return false;
        size -= static_cast<std::uint64_t>(count);
    }
    return true;
}

// Copies up to `size` bytes between the two positions; the end of the source ends it earlier.
bool copy_bytes(int from, int to, std::uint64_t size)
{
    while (size > 0) {
        const auto step = static_cast<std::size_t>(std::min(size, largest_step));
        const ssize_t count = copy_file_range(from, nullptr, to, nullptr, step, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && !kernel_declines(errno))
            return false;
        // 0 is the end of the file, but also the answer for files that the system makes up while
        // they are read; reading tells which.
        if (count <= 0)
            return copy_through_memory(from, to, size);
        size -= static_cast<std::uint64_t>(count);
    }
    return true;
}

// Copies a file extent by extent, so that its holes need no space in the copy either.
bool copy_extents(int from, int to)
{
    off_t at = 0;
    off_t end = 0;
    for (;;) {
        // Asked for before the next extent: of a file that grows meanwhile, what follows the last
        // extent up to here is a hole, and what comes after may be data.
        end = lseek(from, 0, SEEK_END);
        const off_t data = end < 0 ? end : lseek(from, at, SEEK_DATA);
        if (data < 0 && end >= 0 && errno == ENXIO)
            break;
        const off_t hole = data < 0 ? data : lseek(from, data, SEEK_HOLE);
        if (hole < 0 || lseek(from, data, SEEK_SET) < 0 || lseek(to, data, SEEK_SET) < 0)
            return false;
        if (!copy_bytes(from, to, static_cast<std::uint64_t>(hole - data)))
            return false;
        at = hole;
    }
    return ftruncate(to, end) == 0;
}

bool copy_contents(int from, int to, const struct stat& info)
{
    constexpr off_t block = 512; // the unit of st_blocks
    if (info.st_blocks < info.st_size / block && lseek(from, 0, SEEK_DATA) >= 0)
        return copy_extents(from, to);
    return lseek(from, 0, SEEK_SET) >= 0 && copy_bytes(from, to, whole_file);
}

bool copy_permissions(int to, const struct stat& info)
{
    // A file system without permission bits refuses; the copy is as good as it gets there.
    return fchmod(to, info.st_mode & 0777U) == 0 || errno == EPERM || errno == ENOSYS ||
           errno == EOPNOTSUPP;
}

int open_source(const char* path, struct stat& info)
{
    // O_NONBLOCK: a pipe would make open() wait for a writer; regular files ignore the flag.
    const int handle = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (handle < 0)
        return -1;
    File file(handle);
    if (fstat(handle, &info) != 0)
        return -1;
    if (!S_ISREG(info.st_mode)) {
        errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
        return -1;
    }
    return file.release();
}

// Creates a file of a name that nobody uses beside `dst`.
int create_beside(const char* dst, std::string& path)
{
    static std::atomic<unsigned> counter{0};
    constexpr int attempts = 100;
    std::string directory;
    if (dirname_string(dst, directory, '/') && directory.back() != '/')
        directory += '/';
    for (int i = 0; i < attempts; ++i) {
        path = directory + ".client_io-copy-" + std::to_string(getpid()) + "-" +
               std::to_string(counter.fetch_add(1, std::memory_order_relaxed));
        const int handle = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (handle >= 0 || errno != EEXIST)
            return handle;
    }
    return -1;
}

// The whole copy; on failure errno tells why and nothing is left behind.
bool copy(const char* src, const char* dst, bool replace)
{
    struct stat info;
    const File from(open_source(src, info));
    if (from.handle() < 0)
        return false;
    // Known early, so that a large file is not copied in vain; rename() would refuse it too.
    struct stat target;
    if (stat(dst, &target) == 0 && S_ISDIR(target.st_mode)) {
        errno = EISDIR;
        return false;
    }
    std::string temporary;
    File to(create_beside(dst, temporary));
    if (to.handle() < 0)
        return false;
    if (copy_contents(from.handle(), to.handle(), info) && copy_permissions(to.handle(), info) &&
        to.close() &&
        (replace ? rename(temporary.c_str(), dst) == 0
                 : file_system::rename_new(temporary.c_str(), dst)))
        return true;
    const int reason = errno;
    unlink(temporary.c_str());
    errno = reason;
    return false;
}

bool checked_copy(const char* src, const char* dst, bool replace)
{
    if (src == nullptr || dst == nullptr || *src == '\0' || *dst == '\0') {
        errno = EINVAL;
        return false;
    }
    try {
        return copy(src, dst, replace);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return false;
    }
}

} // namespace

bool copy_file(const char* src, const char* dst, int /*share*/, std::string* error, bool replace)
{
    if (checked_copy(src, dst, replace))
        return true;
    if (error != nullptr)
        *error = POSIX_Error(errno, 1).str();
    return false;
}
