#include "servers/storage/root_lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace
{

constexpr const char* lock_name = ".cio-lock";

} // namespace

Root_Lock::~Root_Lock()
{
    // While it is locked: whoever opens it now finds that it has no name any more.
    if (file_)
        unlinkat(root_, lock_name, 0);
}

Root_Lock::State Root_Lock::take(int root)
{
    constexpr int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    for (;;) {
        File_Handle file(openat(root, lock_name, flags | O_EXCL, 0600));
        const bool found = !file && errno == EEXIST;
        if (found)
            file = File_Handle(openat(root, lock_name, flags, 0600));
        if (!file)
            return State::not_lockable;
        if (flock(file.get(), LOCK_EX | LOCK_NB) != 0)
            return errno == EWOULDBLOCK ? State::in_use : State::not_lockable;
        struct stat info;
        if (fstat(file.get(), &info) != 0)
            return State::not_lockable;
        if (info.st_nlink == 0)
            continue; // of one who has just ended
        root_ = root;
        file_ = std::move(file);
        return found ? State::taken_after_kill : State::taken;
    }
}
