#include "servers/storage/local_storage_tree.h"
#include "servers/storage/temporary_entry.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <fcntl.h>

namespace
{

constexpr std::size_t buffer_size = 256U << 10U;
constexpr off_t largest_step = 1 << 30;

/// Space of the quota for a copy that may come to nothing.
class Claim
{
public:
    explicit Claim(Storage_Quota& quota) : quota_(quota) {}
    ~Claim() { quota_.release(bytes_); }
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

    [[nodiscard]] bool add(std::uint64_t bytes)
    {
        if (!quota_.claim(bytes))
            return false;
        bytes_ += bytes;
        return true;
    }
    void give_back(std::uint64_t bytes)
    {
        quota_.release(bytes);
        bytes_ -= bytes;
    }
    void keep() { bytes_ = 0; }

private:
    Storage_Quota& quota_;
    std::uint64_t bytes_ = 0;
};

/// Whether the kernel cannot copy between these two files, though reading and writing may do.
bool is_declined(int reason)
{
    return reason == EXDEV || reason == EINVAL || reason == ENOSYS || reason == EOPNOTSUPP ||
           reason == EPERM;
}

/// Moves on by what it copied, which is less at the end of the source only.
bool copy_through_memory(int from, int to, off_t& at, off_t end)
{
    std::string buffer(buffer_size, '\0');
    while (at < end) {
        const auto step = static_cast<std::size_t>(std::min<off_t>(end - at, buffer_size));
        const ssize_t got = pread(from, buffer.data(), step, at);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got == 0;
        for (ssize_t done = 0; done < got;) {
            const ssize_t put =
                pwrite(to, buffer.data() + done, static_cast<std::size_t>(got - done), at + done);
            if (put < 0 && errno != EINTR)
                return false;
            done += std::max<ssize_t>(put, 0);
        }
        at += got;
    }
    return true;
}

/// Likewise; the file system shares the blocks where it can.
bool copy_range(int from, int to, off_t& at, off_t end)
{
    while (at < end) {
        off_t in = at;
        off_t out = at;
        const auto step = static_cast<std::size_t>(std::min(end - at, largest_step));
        const ssize_t count = copy_file_range(from, &in, to, &out, step, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && !is_declined(errno))
            return false;
        // 0 may be an answer of file systems that cannot tell the size in advance.
        if (count <= 0)
            return copy_through_memory(from, to, at, end);
        at += count;
    }
    return true;
}

/// Copies extent by extent, so that holes need no space in the copy either.
/// @param size  of the source; becomes that of the copy, which is less when the source was cut
bool copy_contents(int from, int to, off_t& size)
{
    for (off_t at = 0; at < size;) {
        const off_t data = lseek(from, at, SEEK_DATA);
        if (data < 0 && errno == ENXIO)
            break; // a hole up to the end
        const off_t hole = data < 0 ? size : lseek(from, data, SEEK_HOLE);
        at = std::max<off_t>(data, at);
        const off_t end = hole < 0 ? size : std::min(hole, size);
        if (!copy_range(from, to, at, end))
            return false;
        if (at < end)
            size = at;
    }
    return ftruncate(to, size) == 0;
}

/// A file system without permission bits refuses; the copy is as good as it gets there.
bool set_permissions(int handle, mode_t mode)
{
    return fchmod(handle, mode) == 0 || is_declined(errno);
}

/// Copies an open file into an empty one.
Storage_Result copy_into(int from, const struct stat& info, int to, bool sync, Claim& claim)
{
    if (!claim.add(static_cast<std::uint64_t>(info.st_size)))
        return {Storage_Failure::no_space};
    off_t size = info.st_size;
    if (!copy_contents(from, to, size) || !set_permissions(to, info.st_mode & 0777U) ||
        (sync && fsync(to) != 0))
        return last_storage_error();
    claim.give_back(static_cast<std::uint64_t>(info.st_size - size));
    return {};
}

/// The place in the copy of a directory, along with the walk over the original.
class Copied_Directory
{
public:
    /// @param mode  permissions that the directory has when it is complete
    bool begin(int directory, mode_t mode)
    {
        return push(File_Handle(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)), mode);
    }
    int handle() const { return at_.get(); }

    bool enter(const char* name, mode_t mode)
    {
        return mkdirat(at_.get(), name, 0700) == 0 &&
               push(File_Handle(
                        openat(at_.get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)),
                    mode);
    }

    /// Completes the directory and goes up. One handle serves any depth.
    bool leave(bool sync)
    {
        // Before its permissions are set, which may not allow it any more.
        File_Handle up;
        if (levels_.size() > 1) {
            up = File_Handle(openat(at_.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            struct stat info;
            if (!up || fstat(up.get(), &info) != 0)
                return false;
            if (File_Key::of(info) != levels_[levels_.size() - 2].key) {
                errno = ESTALE;
                return false;
            }
        }
        if (!set_permissions(at_.get(), levels_.back().mode) ||
            (sync && !sync_directory(at_.get())))
            return false;
        levels_.pop_back();
        at_ = std::move(up);
        return true;
    }

private:
    struct Level
    {
        File_Key key;
        mode_t mode;
    };

    bool push(File_Handle directory, mode_t mode)
    {
        struct stat info;
        if (!directory || fstat(directory.get(), &info) != 0)
            return false;
        levels_.push_back({File_Key::of(info), (mode & 0777U) | (info.st_mode & S_ISGID)});
        at_ = std::move(directory);
        return true;
    }

    File_Handle at_;
    std::vector<Level> levels_;
};

/// Copies one file of a directory; one that has vanished meanwhile is passed over.
Storage_Result copy_entry(const Directory_Walk& walk, int to, bool sync, Claim& claim)
{
    const char* const name = walk.name().c_str();
    const File_Handle from(
        openat(walk.directory(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (!from)
        return errno == ENOENT ? Storage_Result{} : last_storage_error();
    if (fstat(from.get(), &info) != 0)
        return last_storage_error();
    if (!S_ISREG(info.st_mode))
        return {};
    const File_Handle copy(openat(to, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    return copy ? copy_into(from.get(), info, copy.get(), sync, claim) : last_storage_error();
}

/// Copies a link as it is; where it leads is looked at by whoever follows it.
Storage_Result copy_link(const Directory_Walk& walk, int to)
{
    std::string target(PATH_MAX, '\0');
    const ssize_t length =
        readlinkat(walk.directory(), walk.name().c_str(), target.data(), target.size());
    if (length < 0)
        return errno == ENOENT ? Storage_Result{} : last_storage_error();
    target.resize(static_cast<std::size_t>(length));
    return symlinkat(target.c_str(), to, walk.name().c_str()) == 0 ? Storage_Result{}
                                                                   : last_storage_error();
}

Storage_Result copy_tree(File_Handle from, mode_t mode, int to, bool sync, Claim& claim)
{
    Copied_Directory target;
    if (!target.begin(to, mode))
        return last_storage_error();
    Directory_Walk walk(std::move(from));
    for (;;) {
        Storage_Result result;
        switch (walk.next()) {
        case Directory_Walk::Event::entry:
            // The copy itself may be among what is copied, under its reserved name.
            if (is_reserved(walk.name()))
                break;
            if (walk.type() == S_IFREG) {
                result = copy_entry(walk, target.handle(), sync, claim);
            } else if (walk.type() == S_IFLNK) {
                result = copy_link(walk, target.handle());
            } else if (walk.type() == S_IFDIR) {
                const std::string name = walk.name();
                struct stat info;
                if (walk.enter())
                    result = fstat(walk.directory(), &info) == 0 &&
                                     target.enter(name.c_str(), info.st_mode)
                                 ? Storage_Result{}
                                 : last_storage_error();
                else if (errno != ENOENT)
                    result = last_storage_error();
            }
            break;
        case Directory_Walk::Event::left:
            if (!target.leave(sync))
                result = last_storage_error();
            break;
        case Directory_Walk::Event::end:
            return target.leave(sync) ? Storage_Result{} : last_storage_error();
        case Directory_Walk::Event::failed:
            result = last_storage_error();
            break;
        }
        if (!result)
            return result;
    }
}

} // namespace

Storage_Result Local_Storage_Tree::copy(std::string_view from, std::string_view to, bool overwrite)
{
    Storage_Path source;
    Storage_Path target;
    if (!source.parse(from) || !target.parse(to))
        return {Storage_Failure::bad_path};
    // Before directories are made on the way to the target.
    struct stat info;
    if (const Storage_Result found = examine(source, info); !found)
        return found;
    const bool is_directory = S_ISDIR(info.st_mode);
    if (target.is_root() || target.text() == source.text() ||
        (is_directory && target.is_below(source)))
        return {Storage_Failure::denied};
    File_Handle parent;
    if (const auto made = make_parent(target, usual_creation_mask, parent); !made)
        return made;
    const Storage_Result copied =
        is_directory ? copy_directory(source, parent.get(), target.name(), overwrite)
                     : copy_file(source, parent.get(), target.name(), overwrite);
    return copied ? sync_names(parent.get()) : copied;
}

Storage_Result Local_Storage_Tree::check_target(int parent, const char* name,
                                                const struct stat& source, bool overwrite)
{
    struct stat target;
    if (fstatat(parent, name, &target, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? Storage_Result{} : last_storage_error();
    if (!overwrite)
        return storage_error(EEXIST);
    if (File_Key::of(source) == File_Key::of(target))
        return {Storage_Failure::denied};
    if (S_ISDIR(source.st_mode) == S_ISDIR(target.st_mode))
        return {};
    return storage_error(S_ISDIR(target.st_mode) ? EISDIR : ENOTDIR);
}

Storage_Result Local_Storage_Tree::copy_file(const Storage_Path& from, int parent, const char* name,
                                             bool overwrite)
{
    File_Handle source;
    struct stat info;
    if (const Storage_Result opened = open_file(from, source, info); !opened)
        return opened;
    if (const auto checked = check_target(parent, name, info, overwrite); !checked)
        return checked;
    Temporary_Entry copy;
    if (!copy.create_file(parent))
        return last_storage_error();
    Claim claim(state_->quota);
    if (const auto copied = copy_into(source.get(), info, copy.handle(), state_->sync, claim);
        !copied)
        return copied;
    if (const auto placed = place(parent, copy.name().c_str(), parent, name, overwrite); !placed)
        return placed;
    copy.placed();
    claim.keep();
    return {};
}

Storage_Result Local_Storage_Tree::copy_directory(const Storage_Path& from, int parent,
                                                  const char* name, bool overwrite)
{
    File_Handle source = root_->open(from.text(), O_RDONLY | O_DIRECTORY);
    struct stat info;
    if (!source || fstat(source.get(), &info) != 0)
        return last_storage_error();
    if (const auto checked = check_target(parent, name, info, overwrite); !checked)
        return checked;
    bool within = false;
    if (const auto found = is_within(parent, File_Key::of(info), within); !found)
        return found;
    if (within)
        return {Storage_Failure::denied};
    Temporary_Entry copy;
    if (!copy.create_directory(parent))
        return last_storage_error();
    Claim claim(state_->quota);
    if (const auto copied =
            copy_tree(std::move(source), info.st_mode, copy.handle(), state_->sync, claim);
        !copied)
        return copied;
    if (const auto placed = place(parent, copy.name().c_str(), parent, name, overwrite); !placed)
        return placed;
    copy.placed();
    claim.keep();
    return {};
}

Storage_Result Local_Storage_Tree::is_within(int directory, const File_Key& other,
                                             bool& within) const
{
    struct stat info;
    if (fstat(root_->handle(), &info) != 0)
        return last_storage_error();
    const File_Key root = File_Key::of(info);
    File_Handle at(openat(directory, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    File_Key last;
    for (;;) {
        if (!at || fstat(at.get(), &info) != 0)
            return last_storage_error();
        const File_Key key = File_Key::of(info);
        within = key == other;
        // The system's own root is its own parent.
        if (within || key == root || key == last)
            return {};
        last = key;
        at = File_Handle(openat(at.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
}
