#include "servers/storage/confined_root.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string>
#include <sys/syscall.h>

namespace
{

constexpr int directory_handle = O_PATH | O_DIRECTORY;

File_Handle open_beneath(int root, const std::string& path, int flags, mode_t mode)
{
    open_how how = {};
    how.flags = static_cast<unsigned>(flags);
    how.mode = mode;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    // EAGAIN: something was renamed while a ".." of a link was followed, so that the kernel cannot
    // tell whether it stayed inside. It can be made to say so for ever, hence the bound.
    constexpr int attempts = 1000;
    for (int i = 0; i < attempts; ++i) {
        const long handle = syscall(SYS_openat2, root, path.c_str(), &how, sizeof how);
        if (handle >= 0)
            return File_Handle(static_cast<int>(handle));
        if (errno != EAGAIN && errno != EINTR)
            break;
    }
    if (errno == EXDEV)
        errno = ELOOP;
    return {};
}

bool is_link(int directory, const std::string& name)
{
    struct stat info;
    return fstatat(directory, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISLNK(info.st_mode);
}

/// openat() of one name, which may not be a link.
File_Handle open_name(int directory, const std::string& name, int flags, mode_t mode)
{
    File_Handle opened(openat(directory, name.c_str(), flags | O_NOFOLLOW, mode));
    if (!opened) {
        if (errno == ENOTDIR && is_link(directory, name))
            errno = ELOOP;
        return {};
    }
    // With O_PATH a link opens as itself.
    struct stat info;
    if (fstat(opened.get(), &info) != 0)
        return {};
    if (S_ISLNK(info.st_mode)) {
        errno = ELOOP;
        return {};
    }
    return opened;
}

/// Takes the first name off a path.
std::string next_name(std::string_view& path)
{
    const std::size_t end = path.find('/');
    std::string name(path.substr(0, end));
    path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
    return name;
}

File_Handle make_directory(int parent, const std::string& name, mode_t mode, bool sync)
{
    const bool made = mkdirat(parent, name.c_str(), mode) == 0;
    if (!made && errno != EEXIST)
        return {};
    File_Handle directory = open_name(parent, name, directory_handle | O_CLOEXEC, 0);
    if (!made || !directory)
        return directory;
    // The umask is not changed for this: all threads share it. A group that entries inherit stays.
    struct stat info;
    if (fstat(directory.get(), &info) != 0)
        return {};
    const mode_t wanted = mode | (info.st_mode & S_ISGID);
    if ((info.st_mode & 07777U) != wanted)
        static_cast<void>(fchmodat(directory.get(), ".", wanted, 0));
    if (sync && !sync_directory(parent))
        return {};
    return directory;
}

} // namespace

Confined_Root::Confined_Root(File_Handle root, bool follow_links)
    : root_(std::move(root)),
      // Kernels without the call say ENOSYS, sandboxes that do not know it EPERM.
      follow_links_(follow_links && open_beneath(root_.get(), ".", O_PATH | O_CLOEXEC, 0))
{}

File_Handle Confined_Root::open(std::string_view path, int flags, mode_t mode) const
{
    flags |= O_CLOEXEC;
    if ((flags & O_PATH) == 0)
        flags |= O_NONBLOCK | O_NOCTTY;
    if (path.empty())
        path = ".";
    if (!follow_links_)
        return open_step_by_step(path, flags, mode);

    // The system takes no longer paths than this at a time.
    File_Handle at;
    while (path.size() >= PATH_MAX) {
        const std::size_t end = path.rfind('/', PATH_MAX - 1);
        at = open_beneath(at ? at.get() : root_.get(), std::string(path.substr(0, end)),
                          directory_handle | O_CLOEXEC, 0);
        if (!at)
            return {};
        path.remove_prefix(end + 1);
    }
    return open_beneath(at ? at.get() : root_.get(), std::string(path), flags, mode);
}

File_Handle Confined_Root::make_directories(std::string_view path, mode_t mode, bool sync) const
{
    File_Handle at = open(path, directory_handle);
    if (at || errno != ENOENT)
        return at;
    at = open("", directory_handle);
    for (std::string_view rest = path; at && !rest.empty();) {
        const std::string name = next_name(rest);
        const std::string_view so_far = path.substr(0, path.size() - rest.size());
        File_Handle next = open_name(at.get(), name, directory_handle | O_CLOEXEC, 0);
        // Where a link leads can only be seen from the root.
        if (!next && errno == ELOOP && follow_links_)
            next = open(so_far.substr(0, so_far.find_last_not_of('/') + 1), directory_handle);
        if (!next && errno == ENOENT)
            next = make_directory(at.get(), name, mode, sync);
        at = std::move(next);
    }
    return at;
}

File_Handle Confined_Root::open_step_by_step(std::string_view path, int flags, mode_t mode) const
{
    File_Handle at;
    for (;;) {
        const std::string name = next_name(path);
        const bool last = path.empty();
        at = open_name(at ? at.get() : root_.get(), name,
                       last ? flags : directory_handle | O_CLOEXEC, last ? mode : 0);
        if (!at || last)
            return at;
    }
}

bool sync_directory(int directory)
{
    const File_Handle readable(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!readable)
        return false;
    // EINVAL: a file system that keeps no names to be written, such as those in memory.
    return fsync(readable.get()) == 0 || errno == EINVAL;
}
