#include "platform/runtime/path.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

bool exists(const char* path)
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
    if (exists(dst)) {
        errno = EEXIST;
        return false;
    }
    return rename(src, dst) == 0;
}

} // namespace

void set_directory_permissions(const char* path, unsigned short mode)
{
    struct stat info;
    if (stat(path, &info) != 0)
        return;
    const mode_t wanted = mode | (info.st_mode & S_ISGID);
    if ((info.st_mode & 07777U) != wanted)
        static_cast<void>(chmod(path, wanted));
}

bool rename_new(const char* src, const char* dst)
{
    if (renameat2(AT_FDCWD, src, AT_FDCWD, dst, RENAME_NOREPLACE) == 0)
        return true;
    return (errno == EINVAL || errno == ENOSYS) && rename_by_link(src, dst);
}

bool is_same_file(const char* first, const char* second)
{
    struct stat one;
    struct stat two;
    return stat(first, &one) == 0 && stat(second, &two) == 0 && one.st_dev == two.st_dev &&
           one.st_ino == two.st_ino;
}
