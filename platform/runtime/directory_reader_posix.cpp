#include "platform/runtime/directory_reader.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <new>
#include <string_view>
#include <sys/stat.h>

struct Directory_Reader::State
{
    ~State() { close(); }

    void close()
    {
        if (directory != nullptr)
            closedir(directory);
        directory = nullptr;
    }

    // Fills `info` with the record to show for an entry; false with errno set when there is none.
    bool examine(const dirent& entry, struct stat& info) const;

    DIR* directory = nullptr;
    bool follow_links = false;
    std::uint64_t limit = 0;
    std::uint64_t count = 0;
};

bool Directory_Reader::State::examine(const dirent& entry, struct stat& info) const
{
    const int handle = dirfd(directory);
    // The entry's type saves the second stat of everything but links; DT_UNKNOWN comes from file
    // systems that do not keep it.
    if (entry.d_type != DT_LNK) {
        if (fstatat(handle, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0)
            return false;
        if (!S_ISLNK(info.st_mode))
            return true;
    }
    if (fstatat(handle, entry.d_name, &info, 0) == 0 && (follow_links || !S_ISDIR(info.st_mode)))
        return true;
    return fstatat(handle, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == 0;
}

Directory_Reader::Directory_Reader() = default;
Directory_Reader::~Directory_Reader() = default;

bool Directory_Reader::open(const char* path, bool follow_links, std::uint64_t limit)
{
    if (state_ == nullptr)
        state_.reset(new (std::nothrow) State);
    if (state_ == nullptr) {
        errno = ENOMEM;
        return false;
    }
    state_->close();
    if (path == nullptr) {
        errno = EINVAL;
        return false;
    }
    state_->follow_links = follow_links;
    state_->limit = limit;
    state_->count = 0;
    state_->directory = opendir(path);
    return state_->directory != nullptr;
}

int Directory_Reader::read(Entry& entry)
{
    if (state_ == nullptr || state_->directory == nullptr) {
        errno = EBADF;
        return -1;
    }
    if (state_->limit != 0 && state_->count >= state_->limit)
        return 0;
    for (;;) {
        // Only errno tells the end of the directory from a failure.
        errno = 0;
        const dirent* const found = readdir(state_->directory);
        if (found == nullptr)
            return errno == 0 ? 0 : -1;
        const std::string_view name = found->d_name;
        if (name == "." || name == "..")
            continue;
        struct stat info = {};
        entry.error = state_->examine(*found, info) ? 0 : errno;
        if (entry.error == ENOENT)
            continue;
        try {
            entry.name = name;
        } catch (const std::bad_alloc&) {
            errno = ENOMEM;
            return -1;
        }
        entry.mode = info.st_mode;
        entry.mtime = info.st_mtim.tv_sec;
        entry.size = static_cast<std::uint64_t>(info.st_size);
        ++state_->count;
        return 1;
    }
}

void Directory_Reader::close()
{
    if (state_ != nullptr)
        state_->close();
}
