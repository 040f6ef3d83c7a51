#pragma once

#include "servers/storage/file_handle.h"

#include <string_view>
#include <sys/stat.h>

/// A directory as the root of lookups that cannot lead out of it.
///
/// Where the kernel has openat2() (5.6), it resolves each path beneath the root's handle and
/// follows symbolic links that stay inside; otherwise each name is opened from the handle of the
/// one before and a link ends the lookup. Either way a link that is put in the place of a directory
/// meanwhile is met by the lookup itself, not by a check before it.
///
/// Paths are those of Storage_Path::text(), of any length. Failures leave errno: ELOOP stands for
/// every way out and every link that may not be followed.
class Confined_Root
{
public:
    Confined_Root() = default;
    /// @param root  a directory's handle, O_PATH suffices
    Confined_Root(File_Handle root, bool follow_links);

    int handle() const { return root_.get(); }
    bool follows_links() const { return follow_links_; }

    /// openat() beneath the root; never waits for the other end of a pipe.
    /// @param mode  permissions of the file that O_CREAT makes, less the process's umask
    File_Handle open(std::string_view path, int flags, mode_t mode = 0) const;

    /// O_PATH handle of a directory, which is made with its missing parents.
    /// @param mode  permissions of made ones, whatever the process's umask
    /// @param sync  made names are on disk before this returns
    File_Handle make_directories(std::string_view path, mode_t mode, bool sync) const;

private:
    File_Handle open_step_by_step(std::string_view path, int flags, mode_t mode) const;

    File_Handle root_;
    bool follow_links_ = false;
};

/// Waits until the names in a directory are on disk.
/// @param directory  a handle of any kind, O_PATH included
[[nodiscard]] bool sync_directory(int directory);
