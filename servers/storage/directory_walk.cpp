#include "servers/storage/directory_walk.h"

#include <cerrno>
#include <fcntl.h>

namespace
{

// Further up than this, directories are closed, and opened again on the way back.
constexpr std::size_t open_levels = 32;

} // namespace

Directory_Walk::Directory_Walk(File_Handle top)
{
    if (!push(std::move(top)))
        failure_ = errno != 0 ? errno : EBADF;
}

Directory_Walk::Event Directory_Walk::next()
{
    while (failure_ == 0) {
        // Only errno tells the end of the directory from a failure.
        errno = 0;
        const dirent* const found = readdir(levels_.back().stream.get());
        if (found == nullptr && errno != 0) {
            failure_ = errno;
        } else if (found == nullptr) {
            if (levels_.size() == 1)
                return Event::end;
            if (pop())
                return Event::left;
            failure_ = errno;
        } else {
            name_ = found->d_name;
            if (name_ == "." || name_ == "..")
                continue;
            type_ = static_cast<mode_t>(DTTOIF(found->d_type));
            struct stat info;
            if (found->d_type == DT_UNKNOWN &&
                fstatat(directory(), found->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0)
                type_ = info.st_mode & S_IFMT;
            return Event::entry;
        }
    }
    errno = failure_;
    return Event::failed;
}

bool Directory_Walk::enter()
{
    return push(File_Handle(
        openat(directory(), name_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)));
}

int Directory_Walk::directory() const
{
    return dirfd(levels_.back().stream.get());
}

bool Directory_Walk::push(File_Handle directory)
{
    struct stat info;
    if (!directory || fstat(directory.get(), &info) != 0)
        return false;
    Stream stream(fdopendir(directory.get()));
    if (stream == nullptr)
        return false;
    directory.release();
    levels_.push_back({std::move(stream), 0, File_Key::of(info), name_});
    if (levels_.size() > open_levels) {
        Level& far = levels_[levels_.size() - 1 - open_levels];
        far.position = telldir(far.stream.get());
        far.stream.reset();
    }
    return true;
}

bool Directory_Walk::pop()
{
    Level& parent = levels_[levels_.size() - 2];
    if (parent.stream == nullptr) {
        File_Handle up(openat(directory(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        struct stat info;
        if (!up || fstat(up.get(), &info) != 0)
            return false;
        // Somebody moved the directory, and ".." is where he moved it to.
        if (File_Key::of(info) != parent.key) {
            errno = ESTALE;
            return false;
        }
        parent.stream.reset(fdopendir(up.get()));
        if (parent.stream == nullptr)
            return false;
        up.release();
        // Positions are the file system's own and outlive the stream that told them.
        seekdir(parent.stream.get(), parent.position);
    }
    name_ = std::move(levels_.back().name);
    type_ = S_IFDIR;
    levels_.pop_back();
    return true;
}
