#include "servers/storage/local_storage_tree.h"
#include "servers/storage/temporary_entry.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>

namespace
{

bool is_missing_or_closed(int errnum)
{
    return errnum == ENOENT || errnum == EACCES;
}

/// One walk over the tree for all that open() has to know and do.
bool survey(File_Handle top, Storage_Quota& quota, bool remove_left_overs)
{
    Directory_Walk walk(std::move(top));
    for (;;) {
        switch (walk.next()) {
        case Directory_Walk::Event::entry:
            if (is_reserved(walk.name())) {
                if (remove_left_overs)
                    remove_left_over(walk.directory(), walk.name());
            } else if (walk.type() == S_IFDIR) {
                // Who cannot look into a directory cannot fill it either.
                if (!walk.enter() && !is_missing_or_closed(errno))
                    return false;
            } else if (walk.type() == S_IFREG && quota.is_limited()) {
                struct stat info;
                if (fstatat(walk.directory(), walk.name().c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0)
                    quota.count(static_cast<std::uint64_t>(info.st_size));
            }
            break;
        case Directory_Walk::Event::left:
            break;
        case Directory_Walk::Event::end:
            return true;
        case Directory_Walk::Event::failed:
            return false;
        }
    }
}

bool is_served(mode_t mode)
{
    return S_ISREG(mode) || S_ISDIR(mode);
}

bool may_be_renamed(mode_t mode)
{
    return is_served(mode) || S_ISLNK(mode);
}

} // namespace

std::mutex& Storage_State::name_lock(int directory, std::string_view name)
{
    struct stat info = {};
    fstat(directory, &info); // it is open
    return name_locks_[(std::hash<std::string_view>()(name) + info.st_ino) % name_locks_.size()];
}

std::unique_ptr<Storage_Tree> Storage_Tree::open(const Options& options, std::string& error)
{
    const auto failed = [&](const char* what) {
        error = std::string(what) + ' ' + options.root + ": " + std::strerror(errno);
        return nullptr;
    };
    auto state = std::make_shared<Storage_State>(options);
    const int flags = O_DIRECTORY | O_CLOEXEC;
    state->root = File_Handle(::open(options.root.c_str(), flags | O_PATH));
    if (!state->root)
        return failed("cannot open the directory");
    const Root_Lock::State lock = state->lock.take(state->root.get());
    if (lock == Root_Lock::State::in_use) {
        error = "the directory " + options.root + " is served by another process";
        return nullptr;
    }
    const bool killed = lock == Root_Lock::State::taken_after_kill;
    if (killed || options.quota != 0) {
        File_Handle top(openat(state->root.get(), ".", flags | O_RDONLY));
        if (!survey(std::move(top), state->quota, killed))
            return failed("cannot read the directory");
    }
    File_Handle root(openat(state->root.get(), ".", flags | O_PATH));
    if (!root)
        return failed("cannot open the directory");
    return std::make_unique<Local_Storage_Tree>(
        Confined_Root(std::move(root), options.follow_links), std::move(state));
}

Local_Storage_Tree::Local_Storage_Tree(Confined_Root root, std::shared_ptr<Storage_State> state)
    : root_(std::make_shared<const Confined_Root>(std::move(root))), state_(std::move(state))
{}

Storage_Result Local_Storage_Tree::make_collection(std::string_view path, unsigned creation_mask)
{
    Storage_Path place;
    if (!place.parse(path))
        return {Storage_Failure::bad_path};
    if (root_->make_directories(place.text(), new_directory_mode & ~creation_mask, state_->sync))
        return {};
    const int reason = errno;
    struct stat info;
    if (reason == ENOTDIR && examine(place, info))
        return storage_error(EEXIST);
    return storage_error(reason);
}

Storage_Result Local_Storage_Tree::remove(std::string_view path)
{
    Storage_Path entry;
    if (!entry.parse(path))
        return {Storage_Failure::bad_path};
    if (entry.is_root())
        return {Storage_Failure::denied};
    const File_Handle parent = root_->open(entry.parent(), O_PATH | O_DIRECTORY);
    if (!parent)
        return last_storage_error();

    File_Handle found; // closed without the lock, since the space of a large file goes with it
    const std::scoped_lock lock(state_->name_lock(parent.get(), entry.name()));
    found = File_Handle(openat(parent.get(), entry.name(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info;
    if (!found || fstat(found.get(), &info) != 0)
        return last_storage_error();
    if (!may_be_renamed(info.st_mode))
        return {Storage_Failure::denied};
    if (unlinkat(parent.get(), entry.name(), S_ISDIR(info.st_mode) ? AT_REMOVEDIR : 0) != 0)
        return last_storage_error();
    settle_nameless(found.get());
    return sync_names(parent.get());
}

Storage_Result Local_Storage_Tree::move(std::string_view from, std::string_view to, bool overwrite)
{
    Storage_Path source;
    Storage_Path target;
    if (!source.parse(from) || !target.parse(to))
        return {Storage_Failure::bad_path};
    if (source.is_root() || target.is_root() || target.is_below(source))
        return {Storage_Failure::denied};
    const File_Handle from_directory = root_->open(source.parent(), O_PATH | O_DIRECTORY);
    struct stat info;
    // Before directories are made on the way to the target.
    if (!from_directory ||
        fstatat(from_directory.get(), source.name(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return last_storage_error();
    File_Handle to_directory;
    if (const auto made = make_parent(target, usual_creation_mask, to_directory); !made)
        return made;
    if (const auto placed = place(from_directory.get(), source.name(), to_directory.get(),
                                  target.name(), overwrite);
        !placed)
        return placed;
    const Storage_Result synced = sync_names(to_directory.get());
    return synced ? sync_names(from_directory.get()) : synced;
}

std::uint64_t Local_Storage_Tree::used() const
{
    return state_->quota.used();
}

Storage_Result Local_Storage_Tree::subtree(std::string_view path,
                                           std::unique_ptr<Storage_Tree>& tree)
{
    Storage_Path top;
    if (!top.parse(path))
        return {Storage_Failure::bad_path};
    File_Handle root = root_->open(top.text(), O_PATH | O_DIRECTORY);
    if (!root)
        return last_storage_error();
    tree = std::make_unique<Local_Storage_Tree>(
        Confined_Root(std::move(root), root_->follows_links()), state_);
    return {};
}

Storage_Result Local_Storage_Tree::examine(const Storage_Path& path, struct stat& info) const
{
    const File_Handle found = root_->open(path.text(), O_PATH);
    if (!found || fstat(found.get(), &info) != 0)
        return last_storage_error();
    return is_served(info.st_mode) ? Storage_Result{} : Storage_Result{Storage_Failure::denied};
}

Storage_Result Local_Storage_Tree::make_parent(const Storage_Path& path, unsigned creation_mask,
                                               File_Handle& parent) const
{
    parent =
        root_->make_directories(path.parent(), new_directory_mode & ~creation_mask, state_->sync);
    return parent ? Storage_Result{} : last_storage_error();
}

Storage_Result Local_Storage_Tree::place(int from_directory, const char* from, int to_directory,
                                         const char* to, bool overwrite)
{
    File_Handle displaced; // closed without the locks, since the space of a large file goes with it
    std::mutex& from_lock = state_->name_lock(from_directory, from);
    std::mutex& to_lock = state_->name_lock(to_directory, to);
    std::unique_lock first(from_lock, std::defer_lock);
    std::unique_lock second(to_lock, std::defer_lock);
    if (&from_lock == &to_lock)
        first.lock();
    else
        std::lock(first, second);

    struct stat source;
    struct stat target;
    if (fstatat(from_directory, from, &source, AT_SYMLINK_NOFOLLOW) != 0)
        return last_storage_error();
    if (!may_be_renamed(source.st_mode))
        return {Storage_Failure::denied};
    displaced = File_Handle(openat(to_directory, to, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (displaced) {
        if (!overwrite)
            return storage_error(EEXIST);
        if (fstat(displaced.get(), &target) != 0)
            return last_storage_error();
        // Two names of one file, of which rename() would leave both.
        if (!may_be_renamed(target.st_mode) || File_Key::of(source) == File_Key::of(target))
            return {Storage_Failure::denied};
    } else if (errno != ENOENT) {
        return last_storage_error();
    }

    int renamed = renameat2(from_directory, from, to_directory, to,
                            overwrite ? 0U : unsigned{RENAME_NOREPLACE});
    // Not every file system can rename exclusively; for clients of this tree the lock does.
    if (renamed != 0 && !overwrite && errno == EINVAL)
        renamed = renameat(from_directory, from, to_directory, to);
    if (renamed != 0) {
        const int reason = errno;
        if (reason == EINVAL) // a directory into itself
            return {Storage_Failure::denied, reason};
        return storage_error(overwrite && reason == EEXIST ? ENOTEMPTY : reason);
    }
    if (displaced)
        settle_nameless(displaced.get());
    return {};
}

void Local_Storage_Tree::settle_nameless(int handle)
{
    struct stat info;
    if (fstat(handle, &info) != 0 || !S_ISREG(info.st_mode))
        return;
    if (info.st_nlink == 0)
        state_->uploads.supersede(File_Key::of(info));
    // It may have grown until just now.
    if (fstat(handle, &info) == 0)
        state_->quota.release(static_cast<std::uint64_t>(info.st_size));
}

Storage_Result Local_Storage_Tree::sync_names(int directory) const
{
    return !state_->sync || sync_directory(directory) ? Storage_Result{} : last_storage_error();
}
