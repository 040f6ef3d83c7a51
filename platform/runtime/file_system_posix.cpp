#include "platform/runtime/file_system.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace file_system
{

namespace
{

constexpr mode_t new_file_mode = 0666; // less the umask

Status to_status(const struct stat& info)
{
    constexpr std::int64_t second = 1'000'000'000;
    return {info.st_mode, static_cast<std::uint64_t>(info.st_size),
            info.st_mtim.tv_sec * second + info.st_mtim.tv_nsec, info.st_dev, info.st_ino};
}

bool is_taken(const char* path)
{
    struct stat info;
    return lstat(path, &info) == 0;
}

// For file systems that cannot rename exclusively: a second link to a file can only be made under
// a free name. Directories have one name, so for them a look has to do.
bool rename_by_link(const char* src, const char* dst)
{
    if (link(src, dst) == 0) {
        if (unlink(src) == 0)
            return true;
        const int reason = errno;
        unlink(dst);
        errno = reason;
        return false;
    }
    if (errno == EEXIST)
        return false;
    if (is_taken(dst)) {
        errno = EEXIST;
        return false;
    }
    return ::rename(src, dst) == 0;
}

} // namespace

bool status(const char* path, bool follow, Status& status)
{
    struct stat info = {};
    status = {};
    if ((follow ? stat(path, &info) : lstat(path, &info)) != 0)
        return false;
    status = to_status(info);
    return true;
}

bool status(ACE_HANDLE handle, Status& status)
{
    struct stat info = {};
    status = {};
    if (fstat(handle, &info) != 0)
        return false;
    status = to_status(info);
    return true;
}

ACE_HANDLE open(const char* path, int flags, int /*share*/)
{
    ACE_HANDLE handle = ACE_INVALID_HANDLE;
    do
        handle = ::open(path, flags | O_CLOEXEC, new_file_mode);
    while (handle < 0 && errno == EINTR);
    return handle;
}

std::int64_t seek(ACE_HANDLE handle, std::int64_t offset, int whence)
{
    return lseek(handle, offset, whence);
}

bool truncate(const char* path, std::uint64_t size)
{
    return ::truncate(path, static_cast<off_t>(size)) == 0;
}

bool make_directory(const char* path, unsigned short mode)
{
    return mkdir(path, mode) == 0;
}

void set_directory_permissions(const char* path, unsigned short mode)
{
    struct stat info;
    if (stat(path, &info) != 0)
        return;
    const mode_t wanted = mode | (info.st_mode & S_ISGID);
    if ((info.st_mode & 07777U) != wanted)
        static_cast<void>(chmod(path, wanted));
}

bool remove(const char* path)
{
    return unlink(path) == 0 || (errno == EISDIR && rmdir(path) == 0);
}

bool rename(const char* src, const char* dst)
{
    return ::rename(src, dst) == 0;
}

bool rename_new(const char* src, const char* dst)
{
    if (renameat2(AT_FDCWD, src, AT_FDCWD, dst, RENAME_NOREPLACE) == 0)
        return true;
    return (errno == EINVAL || errno == ENOSYS) && rename_by_link(src, dst);
}

bool real_path(const char* path, std::string& resolved)
{
    struct Free
    {
        void operator()(char* text) const { std::free(text); }
    };
    const std::unique_ptr<char, Free> text(realpath(path, nullptr));
    if (text == nullptr)
        return false;
    resolved = text.get();
    return true;
}

} // namespace file_system
