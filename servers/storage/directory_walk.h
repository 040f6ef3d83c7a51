#pragma once

#include "servers/storage/file_handle.h"

#include <dirent.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

/// Tells one file of the system from every other that exists at the same time.
struct File_Key
{
    dev_t device = 0;
    ino_t file = 0;

    static File_Key of(const struct stat& info) { return {info.st_dev, info.st_ino}; }
    friend bool operator==(const File_Key&, const File_Key&) = default;

    /// For those who only compare it.
    std::string text() const { return std::to_string(device) + '-' + std::to_string(file); }
};

/// Walks a directory tree, each directory's entries before what follows it, without following
/// links. However many entries there are and however deep they lie, few handles are open at a time.
class Directory_Walk
{
public:
    enum class Event
    {
        entry, ///< name() stands in directory()
        left,  ///< the directory name() of directory(), which was entered, has no more entries
        end,
        failed, ///< errno
    };

    /// @param top  a handle for reading
    explicit Directory_Walk(File_Handle top);

    Event next();
    /// The next events are those of the directory that was given last.
    /// @return false: it is none, or cannot be read (errno); the walk goes on behind it
    [[nodiscard]] bool enter();

    const std::string& name() const { return name_; }
    int directory() const;
    /// What kind of file the entry is, as in st_mode; 0 when it has vanished or cannot be examined.
    mode_t type() const { return type_; }

private:
    struct Close
    {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    using Stream = std::unique_ptr<DIR, Close>;
    struct Level
    {
        Stream stream; ///< closed where `position` counts
        long position = 0;
        File_Key key;
        std::string name;
    };

    bool push(File_Handle directory);
    bool pop();

    std::vector<Level> levels_;
    std::string name_;
    mode_t type_ = 0;
    int failure_ = 0;
};
